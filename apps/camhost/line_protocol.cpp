#include "apps/camhost/line_protocol.h"

#include <algorithm>
#include <cstddef>

namespace camhost {

namespace {

std::size_t countLines(const std::string& text) {
    if (text.empty())
        return 0;
    return 1 + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace

std::string wireText(bool ok, const std::string& text) {
    return (ok ? "OK " : "ERR ") + std::to_string(countLines(text)) + "\n" +
           (text.empty() ? "" : text + "\n");
}

std::string wireEvent(const std::string& text) {
    std::string event = "* ";
    for (const char c : text)
        event += c == '\n' ? std::string("\n* ") : std::string(1, c);
    return event + "\n";
}

} // namespace camhost

#include "apps/camhost/listen_address.h"

#include <charconv>
#include <string_view>

#include "apps/camhost/errors.h"

namespace camhost {

namespace {

std::uint16_t parsePort(const std::string& text, std::string_view port) {
    std::uint16_t value = 0;
    const char* const end = port.data() + port.size();
    const auto [stop, error] = std::from_chars(port.data(), end, value);
    if (error != std::errc() || stop != end)
        throw tcFatalError(teExit::eListen,
                           "address \"" + text +
                               "\" not understood: the port is no number from 0 to "
                               "65535. Give ADDRESS:PORT with --listen.");
    return value;
}

} // namespace

tsAddress parseAddress(const std::string& text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos)
        return {"127.0.0.1", parsePort(text, text)};
    std::string host = text.substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']'))
        host = host.substr(1, host.size() - 2);
    return {host.empty() ? "127.0.0.1" : host,
            parsePort(text, std::string_view(text).substr(colon + 1))};
}

} // namespace camhost

#include "sim/after/trace_reader.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "sim/base/timed_text.h"

namespace sim {

namespace {

[[noreturn]] void fail(std::size_t number, const std::string& what) {
    throw std::runtime_error("line " + std::to_string(number) + ": " + what);
}

tsTraceLine lineFrom(std::string_view line, std::size_t number) {
    const tsTimedText timed = splitTime(line, number);
    tsTraceLine result;
    result.timeNs = timed.timeNs;
    result.text = timed.text;
    std::istringstream stream(result.text);
    for (std::string word; stream >> word;) {
        result.words.push_back(word);
    }
    if (result.words.empty()) {
        fail(number, "there is no event behind the time");
    }
    return result;
}

void sortByTime(std::vector<tsTraceLine>& lines) {
    std::stable_sort(
        lines.begin(), lines.end(),
        [](const tsTraceLine& one, const tsTraceLine& other) { return one.timeNs < other.timeNs; });
}

} // namespace

std::vector<tsTraceLine> parseTrace(std::string_view text) {
    std::vector<tsTraceLine> result;
    std::size_t number = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        result.push_back(lineFrom(text.substr(0, end), ++number));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    sortByTime(result);
    return result;
}

std::vector<tsTraceLine> parseTrace(const std::vector<std::string>& lines) {
    std::vector<tsTraceLine> result;
    for (std::size_t at = 0; at < lines.size(); ++at) {
        result.push_back(lineFrom(lines[at], at + 1));
    }
    sortByTime(result);
    return result;
}

} // namespace sim

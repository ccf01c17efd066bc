#include "sim/recordings/recording.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sim/base/timed_text.h"

namespace sim {

namespace {

constexpr std::string_view kBetween = " = ";

[[noreturn]] void refuse(std::size_t line, const std::string& what) {
    throw std::runtime_error("line " + std::to_string(line) + ": " + what);
}

tsExchange exchangeFrom(std::string_view text, std::size_t line) {
    const tsTimedText timed = splitTime(text, line);
    const std::size_t between = timed.text.rfind(kBetween);
    if (between == std::string_view::npos || between == 0) {
        refuse(line, "expected \"[TIME] CALL = ANSWER\"");
    }
    return {timed.timeNs, std::string(timed.text.substr(0, between)),
            std::string(timed.text.substr(between + kBetween.size())), line};
}

} // namespace

std::vector<tsExchange> parseRecording(std::string_view text) {
    std::vector<tsExchange> exchanges;
    std::size_t line = 0;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view content = text.substr(0, end);
        ++line;
        if (line == 1 && content != kRecordingHeading) {
            refuse(line, "expected \"" + std::string(kRecordingHeading) + "\"");
        }
        // A program that was killed may have left half a line.
        if (end == std::string_view::npos) {
            refuse(line, "the line is not whole: the recording was cut off");
        }
        if (line > 1) {
            exchanges.push_back(exchangeFrom(content, line));
        }
        text.remove_prefix(end + 1);
    }
    if (line == 0) {
        refuse(1, "the file is empty");
    }
    return exchanges;
}

std::vector<tsExchange> readRecording(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf())) {
        throw std::runtime_error(path + ": cannot be read: " + std::strerror(errno));
    }
    try {
        return parseRecording(text.str());
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

} // namespace sim

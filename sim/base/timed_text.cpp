#include "sim/base/timed_text.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string>

namespace sim {

namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::uint64_t kLongestSeconds = 1'000'000'000; // 31 years: what fits into the sum
constexpr std::size_t kFractionDigits = 9;

[[noreturn]] void fail(std::size_t number, const std::string& what) {
    throw std::runtime_error("line " + std::to_string(number) + ": " + what);
}

std::uint64_t timeFrom(std::string_view text, std::size_t number) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos || text.size() - point - 1 != kFractionDigits) {
        fail(number, "a time is seconds with nine digits after the point");
    }
    try {
        const std::uint64_t seconds = numberFrom(text.substr(0, point), 10);
        if (seconds < kLongestSeconds) {
            return seconds * kNsPerSecond + numberFrom(text.substr(point + 1), 10);
        }
    } catch (const std::runtime_error&) {
        fail(number, "the time is not a number");
    }
    fail(number, "the time is out of range");
}

} // namespace

std::uint64_t numberFrom(std::string_view word, int base) {
    if ((base == 0 || base == 16) && word.starts_with("0x")) {
        word.remove_prefix(2);
        base = 16;
    }
    std::uint64_t value = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value, base == 0 ? 10 : base);
    if (word.empty() || error != std::errc{} || stop != end) {
        throw std::runtime_error("\"" + std::string(word) + "\" is not a number");
    }
    return value;
}

tsTimedText splitTime(std::string_view line, std::size_t number) {
    const std::size_t end = line.find("] ");
    if (line.empty() || line.front() != '[' || end == std::string_view::npos) {
        fail(number, "expected \"[TIME] EVENT\"");
    }
    return {timeFrom(line.substr(1, end - 1), number), line.substr(end + 2)};
}

} // namespace sim

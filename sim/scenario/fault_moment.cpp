#include "sim/scenario/fault_moment.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "sim/scenario/scenario_text.h"

namespace sim {

namespace {

// What lines of the log begin with. What the head does by itself is not always logged.
constexpr std::array<std::string_view, 17> kEvents{
    "SPI",   "SPI-MODE", "SPI-LSB", "SPI-BITS", "SPI-HZ", "GPIO",  "ADC",  "ADC-COMMAND", "READ",
    "WRITE", "SLEEP",    "OPEN",    "CLOSE",    "MAP",    "UNMAP", "NOTE", "VIOLATION"};

bool isEvent(std::string_view word) {
    return std::find(kEvents.begin(), kEvents.end(), word) != kEvents.end();
}

// The words of a line are separated by one blank each.
std::string joined(std::span<const std::string> words) {
    std::string result;
    for (const std::string& word : words) {
        result += (result.empty() ? "" : " ") + word;
    }
    return result;
}

} // namespace

std::optional<tsMoment> timeFrom(const std::string& value) {
    tsMoment moment;
    moment.timeNs = text::milliseconds(value);
    return moment.timeNs ? std::optional(moment) : std::nullopt;
}

std::optional<tsMoment> eventFrom(const std::string& value) {
    const std::vector<std::string> words = text::words(value);
    tsMoment moment;
    std::size_t first = 0;
    if (words.size() > 1) {
        if (const std::optional<std::uint64_t> nth = text::whole<std::uint64_t>(words[0])) {
            moment.nth = *nth;
            first = 1;
        }
    }
    if (first >= words.size() || moment.nth == 0 || !isEvent(words[first])) {
        return std::nullopt;
    }
    moment.event = joined(std::span<const std::string>(words).subspan(first));
    return moment;
}

std::optional<tsMoment> timeOrEvent(const std::string& value) {
    const std::optional<tsMoment> time = timeFrom(value);
    return time ? time : eventFrom(value);
}

} // namespace sim

/// \file
/// A run of the head as text: the event log with what the head did by itself, line by line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// One line of a trace: "[    0.301003200] SPI 0F B9 04 36".
struct tsTraceLine {
    std::uint64_t timeNs = 0;       ///< since the head was built
    std::vector<std::string> words; ///< what happened, split at spaces: "SPI", "0F", ...
    std::string text;               ///< what happened, as it stands
};

/// A line, taken apart at its time.
struct tsTimedText {
    std::uint64_t timeNs = 0;
    std::string_view text; ///< behind the time
};

/// \param line for example "[    0.301003200] SPI 0F B9 04 36" \param number of the line, for
/// errors \throws std::runtime_error "line N: ..." for a line that does not begin with a time
[[nodiscard]] tsTimedText splitTime(std::string_view line, std::size_t number);

/// \param text lines as `tcVirtualHead::timedLines` gives them and a log file holds them
/// \return the lines in the order of their times; those of one instant keep their order
/// \throws std::runtime_error "line N: ..." for a line that is none
[[nodiscard]] std::vector<tsTraceLine> parseTrace(std::string_view text);
/// As above, from separate lines.
[[nodiscard]] std::vector<tsTraceLine> parseTrace(const std::vector<std::string>& lines);

/// \param base 10, 16, or 0: by the prefix 0x
/// \throws std::runtime_error when the word is not a number
[[nodiscard]] std::uint64_t numberFrom(std::string_view word, int base = 0);

} // namespace sim

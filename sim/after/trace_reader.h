/// \file
/// Reads a trace, which is a run of the head as text: the event log with what the head did by
/// itself, line by line.
#pragma once

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

/// \param text lines as `tcVirtualHead::timedLines` gives them and a log file holds them
/// \return the lines in the order of their times; those of one instant keep their order
/// \throws std::runtime_error "line N: ..." for a line that is none
[[nodiscard]] std::vector<tsTraceLine> parseTrace(std::string_view text);
/// As above, from separate lines.
[[nodiscard]] std::vector<tsTraceLine> parseTrace(const std::vector<std::string>& lines);

} // namespace sim

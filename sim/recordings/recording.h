/// \file
/// Recordings: what passed between a program and the device files, call by call, as a text file.
///
///     virtual-head recording 1
///     [    0.000000000] open /dev/spidev1.0 rw = #1
///     [    0.000000000] ioctl #1 SPI_IOC_WR_MODE 0 = 0
///     [    0.300003200] load 0xFF210004 4 = 0x0000000F
///
/// A line has the time at which the call was answered, what the program said, and behind the last
/// " = " what it got.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// First line of a recording.
inline constexpr std::string_view kRecordingHeading = "virtual-head recording 1";

/// One call.
struct tsExchange {
    std::uint64_t timeNs = 0; ///< when it was answered, since the program's first call
    std::string asked;        ///< what the program said
    std::string answer;       ///< what it got
    std::size_t line = 0;     ///< of the file, from 1
};

/// \param text of the file
/// \throws std::runtime_error "line N: ..." for a text that is no recording
[[nodiscard]] std::vector<tsExchange> parseRecording(std::string_view text);

/// \param path of the file
/// \throws std::runtime_error "PATH: ..." when it cannot be read, "PATH: line N: ..." when it is no
///         recording
[[nodiscard]] std::vector<tsExchange> readRecording(const std::string& path);

} // namespace sim

/// \file
/// Lines that begin with a time, and numbers in them: logs, traces and recordings have the same
/// form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sim {

/// A line, taken apart at its time.
struct tsTimedText {
    std::uint64_t timeNs = 0;
    std::string_view text; ///< behind the time
};

/// \param line for example "[    0.301003200] SPI 0F B9 04 36" \param number of the line, for
/// errors \throws std::runtime_error "line N: ..." for a line that does not begin with a time
[[nodiscard]] tsTimedText splitTime(std::string_view line, std::size_t number);

/// \param base 10, 16, or 0: by the prefix 0x
/// \throws std::runtime_error when the word is not a number
[[nodiscard]] std::uint64_t numberFrom(std::string_view word, int base = 0);

} // namespace sim

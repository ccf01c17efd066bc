/// \file
/// What a line to camhost means, read from docs/camhost.md once more, independently of the host's
/// own reader.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// One line.
struct tsCommandLine {
    bool good = true;               ///< false: a control character, or a quote that is not closed
    std::vector<std::string> words; ///< without quotes, up to a comment
    std::string rest;               ///< from the second word to the last one, as it was typed
};

/// \param line without its end
tsCommandLine readCommandLine(std::string_view line);

/// \return the number that a word says, -2^63 to 2^63 - 1: a sign, 0x, digits; sign and 0x may be
///         left out
std::optional<std::int64_t> readCommandNumber(std::string_view word);

} // namespace fuzz

/// \file
/// What a register settings file means, read from docs/settings-file.md once more, independently
/// of the driver's loader.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// What loading a file must do.
struct tsPrediction {
    std::vector<std::string> steps; ///< "SPI 0F B9 04 36" and "PAUSE 1000 us", in order
    std::string report;             ///< on standard error; empty when the whole file is accepted
};

/// \param text of the file
/// \param name by which the report calls it
tsPrediction predict(std::string_view text, std::string_view name);

} // namespace fuzz

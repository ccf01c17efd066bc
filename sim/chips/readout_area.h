/// \file
/// A readout area of the sensor.
#pragma once

#include <cstdint>

namespace sim {

/// Where the sensor reads out: rows and columns of the array, both ends included.
struct tsReadoutArea {
    std::uint32_t rowStart = 0;
    std::uint32_t rowEnd = 0;
    std::uint32_t columnStart = 0;
    std::uint32_t columnEnd = 0;
};

} // namespace sim

/// \file
/// From the lanes to the delivered picture: a function of the FPGA's settings and nothing else.
#pragma once

#include <array>
#include <cstdint>

#include "sim/base/export.h"
#include "sim/base/frame.h"
#include "sim/pictures/sensor_image.h"
#include <varnox/core_registers.h>

namespace sim {

/// Everything that shapes a picture on its way through the FPGA.
struct tsFpgaImage {
    // Frame control
    bool pairsFlip = false;      ///< the line of the last six lanes comes first
    std::uint32_t width = 0;     ///< that arrives [pixels]
    std::uint32_t height = 0;    ///< that arrives [lines]
    std::uint32_t porchX = 0;    ///< pixels of each line that are skipped
    std::uint32_t porchY = 0;    ///< lines that are skipped
    std::uint32_t roiX = 0;      ///< number of the first column delivered
    std::uint32_t roiY = 0;      ///< number of the first line delivered
    std::uint32_t roiWidth = 0;  ///< that is delivered [pixels]
    std::uint32_t roiHeight = 0; ///< that is delivered [lines]

    // Bad-pixel replacement
    bool replace = false;
    bool color = false;     ///< neighbours of the same colour
    std::uint32_t mapX = 0; ///< place of the picture in the map
    std::uint32_t mapY = 0;
    std::uint32_t mapWidth = 0; ///< pixels of the map beyond this do not count
    std::uint32_t mapHeight = 0;
    std::uint32_t entries = 0;
    /// Row above column, as the table has them, in raster order.
    std::array<std::uint32_t, badPixelRegisters::kTableEntries> table{};

    // Pixel shift
    bool shiftLeft = false;
    std::uint32_t shift = 0; ///< [bits]
};

/// \return the picture, without time and settings text. What did not arrive is 0.
SIM_API tsFrame fpgaImage(const tsFpgaImage& settings, const tsRawFrame& raw);

} // namespace sim

/// \file
/// A delivered picture, as a test sees it.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/export.h"

namespace sim {

/// One frame as it leaves the FPGA.
struct SIM_API tsFrame {
    std::uint32_t width = 0;  ///< [pixels]
    std::uint32_t height = 0; ///< [lines]
    /// Lines from the top, pixels from the left: `width` x `height` words.
    std::vector<std::uint16_t> pixels;
    std::chrono::nanoseconds time{0}; ///< when it was complete, since the head was built
    std::string settings;             ///< what sensor and FPGA were set to: lines of "name: value"

    /// \param x 0 to `width` - 1 \param y 0 to `height` - 1 \throws std::out_of_range
    [[nodiscard]] std::uint16_t at(std::uint32_t x, std::uint32_t y) const;
};

/// Where the pixels of a picture of the test chart come from, in pixels of the sensor's array.
struct tsChartReading {
    /// By column of the picture; empty where no line says.
    std::vector<std::optional<std::uint32_t>> columns;
    /// By line of the picture; empty where the chart carries no row numbers. A line of two binned
    /// rows gives the upper one.
    std::vector<std::optional<std::uint32_t>> rows;
};

/// Reads the test chart's column and row numbers, from a picture that was exposed for 30 ms with
/// all gains at one, and not shifted. Single wrong pixels do not matter.
SIM_API tsChartReading readChart(const tsFrame& frame);

} // namespace sim

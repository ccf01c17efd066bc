/// \file
/// What lies before the sensor.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sensor/registers.h"
#include "sim/base/export.h"

namespace sim {

/// Light on every pixel of the sensor's array: 0 is none; 65535 just fills a pixel in 30 ms at
/// gains of one. Takes no lock; reading it is possible from several threads.
class SIM_API tcScene {
public:
    static constexpr std::uint32_t kRows = sensorArray::kRows;
    static constexpr std::uint32_t kColumns = sensorArray::kColumns;

    /// The test chart. A period of 256 rows:
    ///
    ///     rows   0 to 35   ruler: the numbers of a column and a row every 288 columns, ticks every
    ///                      48, diagonals
    ///     rows  40 to 235  for the eye: words and marks that say where top, left and the corners
    ///                      are, stars, lines, a wedge of steps, a ramp; each in a period of its
    ///                      own
    ///     rows 240 to 247  for the machine: the code is 1024 plus the pixel's column
    ///     rows 248 to 255  for the machine: the code is 1024 plus the pixel's row
    static tcScene chart();
    /// A picture, scaled to fill the array (each pixel takes the nearest of the picture). Colours
    /// become grey; values without a gamma of their own are sRGB with 8 bits and linear with 16.
    /// \throws std::runtime_error with the path, when it is not a readable PNG picture
    static tcScene fromPng(const std::string& path);
    /// \param light kRows times kColumns values, from the top left
    /// \throws std::invalid_argument for another number of values
    explicit tcScene(std::vector<std::uint16_t> light);

    /// \param row 0 to kRows - 1 \param column 0 to kColumns - 1
    [[nodiscard]] std::uint16_t light(std::uint32_t row, std::uint32_t column) const {
        return m_light[std::size_t{row} * kColumns + column];
    }

private:
    std::vector<std::uint16_t> m_light;
};

} // namespace sim

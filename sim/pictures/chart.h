/// \file
/// The test chart: its painter, and the numbers that painter and reader share.
#pragma once

#include <cstdint>
#include <vector>

namespace sim::chart {

// A period of the chart: a ruler, a strip for the eye, and a band for the machine.
inline constexpr std::uint32_t kPeriod = 256;     // rows
inline constexpr std::uint32_t kRuler = 36;       // rows, from a period's first on
inline constexpr std::uint32_t kColumnBand = 240; // first row of the column numbers in a period
inline constexpr std::uint32_t kRowBand = 248;    // first row of the row numbers in a period
inline constexpr std::uint32_t kFirstCode = 1024; // of column 0 and of row 0
inline constexpr std::uint32_t kLightPerCode = 16;

// As a printed chart has them: black is not dark, and white is not full.
inline constexpr std::uint32_t kBlack = 120;
inline constexpr std::uint32_t kWhite = 3800;
inline constexpr std::uint32_t kFullCode = 4095; // brightest step of the wedge

/// \return the light of every pixel of the array, from the top left; see `tcScene::chart`
[[nodiscard]] std::vector<std::uint16_t> paint();

} // namespace sim::chart

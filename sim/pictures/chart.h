/// \file
/// The test chart: its painter, and the numbers that painter and reader share.
#pragma once

#include <cstdint>
#include <vector>

namespace sim::chart {

inline constexpr std::uint32_t kPeriod = 64;      // rows
inline constexpr std::uint32_t kColumnBand = 48;  // first row of the column numbers in a period
inline constexpr std::uint32_t kRowBand = 56;     // first row of the row numbers in a period
inline constexpr std::uint32_t kFirstCode = 1024; // of column 0 and of row 0
inline constexpr std::uint32_t kLightPerCode = 16;

// What the eye sees lies outside the codes of columns (1024 to 3615) and rows (1024 to 3079).
inline constexpr std::uint32_t kBlack = 300;
inline constexpr std::uint32_t kGrey = 700;
inline constexpr std::uint32_t kWhite = 3800;

/// \return the light of every pixel of the array, from the top left; see `tcScene::chart`
[[nodiscard]] std::vector<std::uint16_t> paint();

} // namespace sim::chart

/// \file
/// Numbers of the test chart that its painter and its reader share.
#pragma once

#include <cstdint>

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

} // namespace sim::chart

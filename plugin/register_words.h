/// \file
/// Words of the host's register file that the board publishes or serves.
#pragma once

#include <cstdint>

#include <varnox/sensor_board.h>

namespace registerWords {
using Varnox::sensorBoardWords::kExposure;
using Varnox::sensorBoardWords::kFrameInterval;
inline constexpr std::uint32_t kImageWidth = 0x3A008;    // pixels
inline constexpr std::uint32_t kImageHeight = 0x3A00C;   // rows
inline constexpr std::uint32_t kImageX = 0x3A010;        // pixels
inline constexpr std::uint32_t kImageY = 0x3A014;        // rows
inline constexpr std::uint32_t kBoardFormat = 0x3A020;   // written once, kBoardFormatValue
inline constexpr std::uint32_t kBadPixelLoad = 0x3A070;  // non-zero loads the default map, 0 clears
inline constexpr std::uint32_t kBadPixelApply = 0x3A074; // non-zero applies the map
inline constexpr std::uint32_t kInternalExposure = 0x3A200; // 0 external, else internal
inline constexpr std::uint32_t kBoardReady = 0x3B00C;       // written once, 1
inline constexpr std::uint32_t kMinFrameInterval = 0x3C020; // us
inline constexpr std::uint32_t kExposureMode = 0x3D000;     // tc3U5MGXS::teExposureMode
inline constexpr std::uint32_t kDigitalGain = 0x3D004;      // tc3U5MGXS::teDGainCoarse

inline constexpr std::uint32_t kBoardFormatValue = 0x0108'0001; // the host's format
} // namespace registerWords

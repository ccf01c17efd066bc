/// \file
/// In which order saved settings are brought back.
#pragma once

namespace camhost::settingOrder {

// The clock changes every time; binning holds for the rectangle that is set after it; a frame
// interval shortens an exposure that does not fit into it.
inline constexpr int kClock = 0;
inline constexpr int kTrigger = 1;
inline constexpr int kShutter = 2;
inline constexpr int kBinning = 3;
inline constexpr int kRegion = 4;
inline constexpr int kMirror = 5;
inline constexpr int kInterval = 6;
inline constexpr int kExposure = 7;
inline constexpr int kPixel = 8;

} // namespace camhost::settingOrder

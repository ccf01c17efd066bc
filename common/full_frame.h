/// \file
/// The whole pixel array as the host's rectangle.
#pragma once

#include <varnox/roi.h>

/// Every pixel of the sensor: y 0, x 0, 2592 columns, 2056 rows.
inline constexpr Varnox::ROI kFullFrame{0, 0, 2592, 2056};

/// \file
/// The pictures that a scenario's head delivers.
#pragma once

#include <string>

#include "sim/base/export.h"
#include "sim/pictures/frame_writer.h"

namespace sim {

/// \param scenario file that may name scene and defects; empty: a healthy head
/// \param scene    PNG picture before the sensor; empty: the scenario's, or else the test chart
/// \throws std::runtime_error with the path of what cannot be read
[[nodiscard]] SIM_API tcFrameWriter frameWriter(const std::string& scenario,
                                                const std::string& scene);

} // namespace sim

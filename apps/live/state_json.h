/// \file
/// A head's state as JSON: what docs/live-interface.md promises.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "sim/after/head_state.h"

namespace live {

/// \return supplies, lines, sensor, link, pulses, frames, conversions, counts
[[nodiscard]] nlohmann::ordered_json stateJson(const sim::tcHeadState& state);

/// \return the registers of sensor and FPGA that are known, with their fields; where sensor and
///         program differ, that too
[[nodiscard]] nlohmann::ordered_json registersJson(const sim::tcHeadState& state);

} // namespace live

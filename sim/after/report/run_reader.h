/// \file
/// From a trace to what happened in the run.
#pragma once

#include <vector>

#include "sim/after/report/run.h"
#include "sim/after/trace_reader.h"

namespace sim {

/// \param trace in the order of its times
/// \throws std::runtime_error for a line that no head writes
[[nodiscard]] tsRun readRun(const std::vector<tsTraceLine>& trace);

} // namespace sim

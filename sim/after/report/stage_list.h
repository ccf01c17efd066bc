/// \file
/// Which stages a run reached, and when.
#pragma once

#include <vector>

#include "sim/after/report/run.h"
#include "sim/after/report/stage_bars.h"

namespace sim::page {

struct tsStages {
    std::vector<tsStage> reached; ///< by their times; each lasts until the next
    std::vector<const char*> never;
};

[[nodiscard]] tsStages stagesOf(const tsRun& run);

} // namespace sim::page

/// \file
/// What is to be said of a run in a few lines.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/after/diagnosis.h"
#include "sim/after/report/run.h"
#include "sim/after/run_facts.h"

namespace sim {

struct tsVerdict {
    bool good = true;     ///< the program succeeded, no rule was broken, pictures came
    std::string headline; ///< "The program failed: it ended with status 5."
    std::vector<std::string>
        findings;                     ///< what was wrong, a sentence each, from supplies to picture
    std::optional<tsKnown> diagnosis; ///< where the run was not good, and somebody knows
};

[[nodiscard]] tsVerdict verdictOf(const tsRun& run, const tsRunFacts& facts);

} // namespace sim

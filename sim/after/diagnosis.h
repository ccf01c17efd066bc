/// \file
/// From what a run showed to the failure of the head that it is.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/after/report/judged_reading.h"
#include "sim/after/report/run.h"
#include "sim/after/run_facts.h"

namespace sim {

/// What a run showed that no healthy head shows.
struct tsSymptoms {
    std::vector<page::tsJudgedReading> supplies; ///< the last wrong reading of each
    std::vector<std::string> failedCalls;        ///< "OPEN /dev/spidev1.0 failed ENOENT"
    std::vector<std::string> rules;              ///< that were broken, each once
    bool poweredUp = false;                      ///< supplies were switched on, reset was released
    bool coreOn = false;                         ///< the link was trained at all
    std::vector<std::string> pllFlags;           ///< of the last training: those that did not lock
    std::vector<unsigned> lanes;                 ///< of the last training: those that did not lock
    bool unaligned = false;            ///< all lanes of the last training locked, and no frame did
    std::vector<std::string> silences; ///< times without pictures, and why
};

[[nodiscard]] tsSymptoms symptomsOf(const tsRun& run, const tsRunFacts& facts);

/// The first thing on the way from the supplies to a picture that went wrong decides: what comes
/// behind it cannot work.
///
/// \return the failure's name, as the board's table of failures has it: "lanes"; empty where the
///         symptoms say nothing
[[nodiscard]] std::string failureOf(const tsSymptoms& symptoms);

} // namespace sim

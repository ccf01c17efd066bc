/// \file
/// How the link was trained in a run, attempt by attempt.
#pragma once

#include <cstdint>
#include <string>

#include "sim/after/report/run.h"

namespace sim {

/// Collects the attempts to train the link.
class tcTrainingReader {
public:
    /// \param run outlives the reader
    explicit tcTrainingReader(tsRun& run) : m_run(run) {}

    /// \param name of a state that is set now: "CORE-ENABLED", "LANE3-LOCK", ...; others are none
    ///             of the training's
    void take(const std::string& name, std::uint64_t timeNs);

private:
    void takeStep(const std::string& name, std::uint64_t timeNs);

    tsRun& m_run;
};

} // namespace sim

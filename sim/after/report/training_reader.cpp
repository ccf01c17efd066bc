#include "sim/after/report/training_reader.h"

#include <array>

namespace sim {

void tcTrainingReader::take(const std::string& name, std::uint64_t timeNs) {
    if (name == "CORE-ENABLED") {
        m_run.attempts.push_back({timeNs, {}, {}, {}, {}, {}});
    } else if (!m_run.attempts.empty()) {
        takeStep(name, timeNs);
    }
}

void tcTrainingReader::takeStep(const std::string& name, std::uint64_t timeNs) {
    if (name == "DPA-RESET" && m_run.attempts.back().reset) {
        // The core stays on when training fails: another reset is another attempt.
        tsAttempt again{timeNs, m_run.attempts.back().pll, {}, {}, {}, {}};
        m_run.attempts.push_back(again);
    }
    tsAttempt& attempt = m_run.attempts.back();
    constexpr std::array flags{"PLL-LOCKED", "PLL-RG-LOCKED", "PLL-GB-LOCKED"};
    for (std::size_t at = 0; at < flags.size(); ++at) {
        if (name == flags[at] && !attempt.pll[at]) { // a later one is none of the training's
            attempt.pll[at] = timeNs;
        }
    }
    for (unsigned lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
        if (name == "LANE" + std::to_string(lane) + "-LOCK" && !attempt.lanes[lane]) {
            attempt.lanes[lane] = timeNs;
        }
    }
    if (name == "DPA-RESET") {
        attempt.reset = timeNs;
    } else if (name == "DPA-HOLD" && !attempt.held) {
        attempt.held = timeNs;
    } else if (name == "ALIGNED" && !attempt.aligned) {
        attempt.aligned = timeNs;
    }
}

} // namespace sim

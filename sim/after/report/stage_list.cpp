#include "sim/after/report/stage_list.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace sim::page {

namespace {

// The receiver's PLL has locked when all of its flags are set.
tcMoment reachedAt(const tsRun& run, const char* what) {
    constexpr std::array flags{"PLL-LOCKED", "PLL-RG-LOCKED", "PLL-GB-LOCKED"};
    if (what != std::string_view(flags[0])) {
        return run.firstTime(what);
    }
    tcMoment last;
    for (const char* flag : flags) {
        const tcMoment first = run.firstTime(flag);
        if (!first) {
            return std::nullopt;
        }
        last = std::max(last, first);
    }
    return last;
}

} // namespace

tsStages stagesOf(const tsRun& run) {
    constexpr std::array<std::pair<const char*, const char*>, 11> names{
        {{"PS_1.2V_EN", "1.2 V on"},
         {"PS_3.3SVDD_EN", "3.3 V SVDD on"},
         {"PS_3.3AVDDH_EN", "3.3 V AVDDH on"},
         {"RESET_B", "reset released"},
         {"SENSOR-AWAKE", "sensor awake"},
         {"conversion", "supplies measured"},
         {"register", "first register write"},
         {"CORE-ENABLED", "frame-control core on"},
         {"PLL-LOCKED", "receiver PLL locked"},
         {"ALIGNED", "link aligned"},
         {"FRAMES", "frames arrive"}}};
    tsStages stages;
    for (const auto& [what, name] : names) {
        if (const tcMoment first = reachedAt(run, what)) {
            stages.reached.push_back({*first, run.endNs, name});
        } else {
            stages.never.push_back(name);
        }
    }
    std::stable_sort(
        stages.reached.begin(), stages.reached.end(),
        [](const tsStage& one, const tsStage& other) { return one.startNs < other.startNs; });
    for (std::size_t at = 1; at < stages.reached.size(); ++at) {
        stages.reached[at - 1].endNs = stages.reached[at].startNs;
    }
    return stages;
}

} // namespace sim::page

// When the run reached which stage.

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"
#include "sim/after/report/stage_bars.h"

namespace sim::page {

namespace {

struct tsStages {
    std::vector<tsStage> reached; // by their times
    std::vector<const char*> never;
};

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
        if (const tcMoment first = run.firstTime(what)) {
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

} // namespace

std::string stages(const tsRun& run) {
    const tsStages all = stagesOf(run);
    std::string rows;
    for (const tsStage& stage : all.reached) {
        rows += row(
            {milliseconds(stage.startNs), stage.name, milliseconds(stage.endNs - stage.startNs)});
    }
    rows += row({milliseconds(run.endNs), "end of the run", ""});
    for (const char* name : all.never) {
        rows += row({"never", name, ""});
    }
    return "<h2>Stages</h2>\n" + stageBars(all.reached, run.endNs) +
           table("stages", {"Time", "Stage", "Until the next"}, rows);
}

} // namespace sim::page

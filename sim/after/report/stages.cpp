// When the run reached which stage.

#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"
#include "sim/after/report/stage_list.h"

namespace sim::page {

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
    return "<h2>Stages</h2>\n<div class=\"beside\">\n<section>\n" +
           stageBars(all.reached, run.endNs) + "</section>\n<section>\n" +
           table("stages", {"Time", "Stage", "Until the next"}, rows) + "</section>\n</div>\n";
}

} // namespace sim::page

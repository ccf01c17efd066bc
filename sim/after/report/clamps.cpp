// What the program says that it got in place of what was asked for.

#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"
#include "sim/after/settings.h"

namespace sim::page {

std::string clamps(const std::optional<std::string>& printed) {
    std::string rows;
    for (const tsSetting& setting : settingsIn(printed.value_or(""))) {
        if (!setting.limitedBy.empty()) {
            rows += row({setting.name, setting.asked, setting.applied, setting.limitedBy});
        }
    }
    const std::string none =
        printed
            ? "none that the program told"
            : "the program's output was not kept, for there was no pseudo-terminal: put it into "
              "a pipe, virtual-head --report FILE ... | cat";
    return "<h2>Clamps</h2>\n<p>What was asked for, and what the program says that it got.</p>\n" +
           (rows.empty() ? "<p id=\"clamps\">" + none + "</p>\n"
                         : table("clamps", {"Setting", "Asked", "Applied", "Limited by"}, rows));
}

} // namespace sim::page

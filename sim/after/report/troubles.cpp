// What went wrong in the run, line by line.

#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"

namespace sim::page {

std::string troubles(const char* id, const char* title, const std::vector<tsTraceLine>& lines) {
    std::string rows;
    for (const tsTraceLine& line : lines) {
        rows += row({milliseconds(line.timeNs), line.text}, kBad);
    }
    return "<h2>" + std::string(title) + "</h2>\n" +
           (lines.empty() ? "<p id=\"" + std::string(id) + "\">none</p>\n"
                          : table(id, {"Time", "Event"}, rows));
}

} // namespace sim::page

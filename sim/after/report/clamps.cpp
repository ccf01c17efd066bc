// What the program says that it got in place of what was asked for.

#include <array>
#include <cstddef>
#include <sstream>
#include <string_view>

#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"

namespace sim::page {

namespace {

// The row of a line "NAME: asked A, applied B, limited by C (result ...)"; empty for any other.
std::string clamp(std::string_view line) {
    constexpr std::array<std::string_view, 4> between{": asked ", ", applied ", ", limited by ",
                                                      " (result "};
    std::vector<std::string> cells;
    for (const std::string_view mark : between) {
        const std::size_t at = line.find(mark);
        if (at == std::string_view::npos) {
            return "";
        }
        cells.emplace_back(line.substr(0, at));
        line.remove_prefix(at + mark.size());
    }
    return row(cells);
}

} // namespace

std::string clamps(const std::optional<std::string>& printed) {
    std::string rows;
    std::istringstream lines(printed.value_or(""));
    for (std::string line; std::getline(lines, line);) {
        rows += clamp(line);
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

#include "sim/after/report/stage_bars.h"

#include <algorithm>

#include "sim/after/markup.h"
#include "sim/after/report/page.h"

namespace sim::page {

namespace {

// [pixels]
namespace timeLine {
constexpr unsigned kLeft = 180;     // of the bars
constexpr unsigned kSpan = 600;     // of the run
constexpr unsigned kLine = 20;      // from one stage to the next
constexpr unsigned kBar = 14;       // height
constexpr unsigned kText = 11;      // from a line's top to the foot of its text
constexpr unsigned kDuration = 880; // right end of the durations
constexpr double kThinnest = 2;     // what a person still sees
} // namespace timeLine

std::string drawnText(unsigned x, unsigned y, const char* anchor, const std::string& text) {
    return "<text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" text-anchor=\"" +
           anchor + "\">" + escapedMarkup(text) + "</text>\n";
}

std::string drawnStage(const tsStage& stage, std::uint64_t runNs, unsigned top) {
    using namespace timeLine;
    const auto place = [runNs](std::uint64_t ns) {
        return kSpan * static_cast<double>(ns) / static_cast<double>(runNs);
    };
    const std::string duration = milliseconds(stage.endNs - stage.startNs);
    const double width = std::max(place(stage.endNs) - place(stage.startNs), kThinnest);
    return drawnText(kLeft - 10, top + kText, "end", stage.name) + "<rect x=\"" +
           fixed(kLeft + place(stage.startNs), 1) + "\" y=\"" + std::to_string(top) +
           "\" width=\"" + fixed(width, 1) + "\" height=\"" + std::to_string(kBar) + "\"><title>" +
           escapedMarkup(std::string(stage.name) + ": " + duration) + "</title></rect>\n" +
           drawnText(kDuration, top + kText, "end", duration);
}

} // namespace

std::string stageBars(const std::vector<tsStage>& reached, std::uint64_t runNs) {
    using namespace timeLine;
    if (reached.empty() || runNs == 0) {
        return "";
    }
    std::string text;
    unsigned top = 0;
    for (const tsStage& stage : reached) {
        text += drawnStage(stage, runNs, top);
        top += kLine;
    }
    text += drawnText(kLeft, top + kText, "start", milliseconds(0)) +
            drawnText(kLeft + kSpan, top + kText, "end", milliseconds(runNs));
    return "<svg id=\"timeline\" viewBox=\"0 0 " + std::to_string(kDuration) + " " +
           std::to_string(top + kLine) + "\" role=\"img\" aria-label=\"stages of the run\">\n" +
           text + "</svg>\n";
}

} // namespace sim::page

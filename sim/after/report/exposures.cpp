// Frame and exposure after each change, with the bounds that they reached.

#include <cstdint>

#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"

namespace sim::page {

namespace {

// What the registers say about a bound: they stand at it.
std::string boundOf(const tsTiming& timing) {
    constexpr std::uint32_t longest = 16383; // lines, of every counter
    if (timing.triggered) {
        return timing.exposureLines == longest ? "exposure: the longest" : "";
    }
    std::string bound;
    if (timing.fromFirstLine) {
        bound = "exposure: all that the frame has";
    } else if (timing.exposureLines <= 1) {
        bound = "exposure: the shortest";
    }
    if (timing.frameLines == longest) {
        bound += std::string(bound.empty() ? "" : "; ") + "frame: the longest";
    }
    return bound;
}

std::string exposure(const tsTimedTiming& at) {
    const double lineUs = at.timing.lineClocks / at.timing.clockMhz;
    const auto duration = [lineUs](std::uint32_t count) {
        return std::to_string(count) + " lines, " + fixed(count * lineUs, 1) + " us";
    };
    return row({milliseconds(at.timeNs), duration(at.timing.frameLines),
                duration(at.timing.exposureLines), boundOf(at.timing)});
}

} // namespace

std::string exposures(const tsRun& run) {
    std::string rows;
    for (const tsTimedTiming& at : run.timings) {
        rows += exposure(at);
    }
    return "<h2>Frame and exposure</h2>\n<p>As the registers stood after each change, and the "
           "bound at which they stood.</p>\n" +
           (rows.empty() ? "<p id=\"exposures\">never set</p>\n"
                         : table("exposures", {"Time", "Frame", "Exposure", "At its bound"}, rows));
}

} // namespace sim::page

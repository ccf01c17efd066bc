#include "sim/after/report.h"

#include "sim/after/report/run_reader.h"
#include "sim/after/report/sections.h"

namespace sim {

namespace {

constexpr const char* kHead =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
    "<title>A run of the virtual head</title>\n<style>\n"
    "body { font: 14px sans-serif; margin: 2em; color: #222; }\n"
    "table { border-collapse: collapse; }\n"
    "th, td { text-align: left; padding: 2px 12px 2px 0; border-bottom: 1px solid #ddd; "
    "font-variant-numeric: tabular-nums; }\n.bad { color: #b00020; }\n"
    "svg { display: block; margin-bottom: 1em; font-size: 12px; }\nsvg rect { fill: #3b6ea5; }\n"
    "figure { display: inline-block; width: 260px; margin: 0 1em 1em 0; vertical-align: top; }\n"
    "</style>\n</head>\n<body>\n"
    "<h1>A run of the virtual head</h1>\n";

} // namespace

std::string report(const std::vector<tsTraceLine>& trace, const std::vector<tsThumbnail>& pictures,
                   const tsRunFacts& facts) {
    const tsRun run = readRun(trace);
    return kHead + page::stages(run) + page::delays(run) + page::supplies(run) +
           page::training(run) + page::clamps(facts.printed) + page::exposures(run) +
           page::pictures(pictures) +
           page::troubles("faults", "Faults of the scenario", run.faults) +
           page::troubles("violations", "Violations", run.violations) +
           page::troubles("failures", "Calls that failed", run.failures) +
           page::registerWrites(run) + "</body>\n</html>\n";
}

} // namespace sim

#include "sim/after/report.h"

#include "sim/after/report/run_reader.h"
#include "sim/after/report/sections.h"

namespace sim {

namespace {

constexpr const char* kHead =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
    "<meta name=\"viewport\" content=\"width=device-width\">\n"
    "<title>A run of the virtual head</title>\n<style>\n"
    "body { font: 14px/1.4 sans-serif; margin: 1.5em 2em; color: #222; background: #fff; }\n"
    "h1 { font-size: 1.5em; }\nh2 { font-size: 1.2em; margin: 1.6em 0 0.4em; }\n"
    "h3 { font-size: 1em; margin: 0.8em 0 0.3em; }\np { margin: 0.3em 0; }\n"
    "table { border-collapse: collapse; width: 100%; }\n"
    "th, td { text-align: left; vertical-align: top; padding: 2px 12px 2px 0; "
    "border-bottom: 1px solid #ddd; font-variant-numeric: tabular-nums; "
    "overflow-wrap: anywhere; }\n"
    "th { background: #fff; position: sticky; top: 0; }\n.bad { color: #b00020; }\n"
    "summary { cursor: pointer; padding: 0.2em 0; }\n"
    "#verdict { border: 1px solid #ccc; border-left: 10px solid #2e7d32; padding: 0.2em 1em 0.6em; "
    "}"
    "\n#verdict.wrong { border-left-color: #b00020; }\n#verdict h2 { margin-top: 0.5em; }\n"
    "#verdict ul { margin: 0.4em 0; padding-left: 1.2em; }\n"
    "dl { display: grid; grid-template-columns: max-content 1fr; gap: 2px 1em; margin: 0.6em 0; }\n"
    "dt { font-weight: bold; }\ndd { margin: 0; overflow-wrap: anywhere; }\n"
    "#cause, #measure { font-weight: bold; }\npre { margin: 0.3em 0; white-space: pre-wrap; }\n"
    ".beside, .attempts { display: flex; flex-wrap: wrap; gap: 0 3em; }\n"
    ".beside > section { flex: 1 1 420px; min-width: 0; }\n"
    ".attempts > section { flex: 1 1 260px; }\n"
    "svg { display: block; width: 100%; height: auto; margin: 0.5em 0 1em; }\n"
    "#timeline { max-width: 1300px; font-size: 15px; }\n#timeline rect { fill: #3b6ea5; }\n"
    "figure { display: inline-block; width: 260px; margin: 0 1em 1em 0; vertical-align: top; }\n"
    "#filter { font: inherit; width: 24em; padding: 2px 6px; margin-right: 1em; }\n"
    "@media print {\n@page { margin: 12mm; }\nbody { font-size: 10px; margin: 0; }\n"
    ".beside > section { flex-basis: 300px; }\nth { position: static; }\n#search { display: none; "
    "}\n"
    "tr, figure, #verdict, section { break-inside: avoid; }\n"
    "h2, h3 { break-after: avoid; }\n#wires { max-height: 230mm; }\n"
    "* { print-color-adjust: exact; -webkit-print-color-adjust: exact; }\n}\n"
    "</style>\n</head>\n<body>\n"
    "<h1>A run of the virtual head</h1>\n";

// Sections beside each other, as far as the page is wide enough.
std::string besides(const std::vector<std::string>& sections) {
    std::string text = "<div class=\"beside\">\n";
    for (const std::string& section : sections) {
        text += "<section>\n" + section + "</section>\n";
    }
    return text + "</div>\n";
}

} // namespace

std::string report(const std::vector<tsTraceLine>& trace, const std::vector<tsThumbnail>& pictures,
                   const tsRunFacts& facts) {
    const tsRun run = readRun(trace);
    return kHead + page::verdict(run, facts) + page::wires(trace) + page::stages(run) +
           besides({page::delays(run), page::supplies(run)}) +
           besides({page::training(run), page::clamps(facts.printed) + page::exposures(run)}) +
           page::pictures(pictures) +
           besides({page::troubles("faults", "Faults of the scenario", run.faults),
                    page::troubles("violations", "Violations", run.violations),
                    page::troubles("failures", "Calls that failed", run.failures)}) +
           page::registerWrites(run) + "</body>\n</html>\n";
}

} // namespace sim

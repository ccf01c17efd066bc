// How the run went: what was run, how it ended, the cause and what to measure.

#include <csignal>
#include <sstream>

#include "sim/after/markup.h"
#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"
#include "sim/after/verdict.h"

namespace sim::page {

namespace {

std::string described(const std::string& name, const std::string& text, const char* look = "") {
    return text.empty() ? ""
                        : "<dt>" + name + "</dt><dd" + look + ">" + escapedMarkup(text) + "</dd>\n";
}

// What the program said of its own version and the board's, where it did.
std::string versionsOf(const tsRunFacts& facts) {
    std::string text = facts.version;
    std::istringstream lines(facts.printed.value_or(""));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("version ")) {
            return text + (text.empty() ? "" : "; the board: ") + line.substr(8);
        }
    }
    return text;
}

std::string endOf(const tsRunFacts& facts) {
    constexpr int signalled = 128; // and the signal, as shells have it
    if (!facts.status) {
        return "";
    }
    return *facts.status > signalled ? "by signal " + std::to_string(*facts.status - signalled)
                                     : "with status " + std::to_string(*facts.status);
}

std::string strikesOf(const tsRun& run) {
    std::string text;
    for (const tsTraceLine& fault : run.faults) {
        text += (text.empty() ? "" : "; ") + fault.text.substr(std::string("NOTE fault ").size()) +
                " at " + milliseconds(fault.timeNs);
    }
    return text;
}

std::string listed(const std::vector<std::string>& findings) {
    std::string items;
    for (const std::string& finding : findings) {
        items += "<li>" + escapedMarkup(finding) + "</li>\n";
    }
    return items.empty() ? "" : "<ul>\n" + items + "</ul>\n";
}

} // namespace

std::string verdict(const tsRun& run, const tsRunFacts& facts) {
    const tsVerdict all = verdictOf(run, facts);
    std::string text = "<section id=\"verdict\" class=\"" +
                       std::string(all.good ? "good" : "wrong") + "\">\n<h2>" +
                       escapedMarkup(all.headline) + "</h2>\n" + listed(all.findings) + "<dl>\n";
    if (all.diagnosis) {
        text += described("Probable cause", all.diagnosis->cause, " id=\"cause\"") +
                described("What to measure", all.diagnosis->measure, " id=\"measure\"");
    }
    text += described("Program", facts.command) + described("Ended", endOf(facts)) +
            described("Versions", versionsOf(facts)) +
            described("Scenario", facts.scenarioTitle()) + described("Faults", strikesOf(run)) +
            "</dl>\n";
    if (!facts.scenarioText.empty()) {
        text += "<details><summary>the scenario's file</summary><pre>" +
                escapedMarkup(facts.scenarioText) + "</pre></details>\n";
    }
    return text + "</section>\n";
}

} // namespace sim::page

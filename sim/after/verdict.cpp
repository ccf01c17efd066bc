#include "sim/after/verdict.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>

#include "sim/after/report/page.h"
#include "sim/after/report/stage_list.h"

namespace sim {

namespace {

constexpr int kSignalled = 128; // and the signal, as shells have it

std::string counted(std::uint64_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string picturesOf(const tsRunFacts& facts) {
    return facts.pictures ? counted(*facts.pictures, "picture", "pictures") + " delivered"
                          : "pictures not counted";
}

std::string headlineOf(const tsRun& run, const tsRunFacts& facts) {
    const int status = facts.status.value_or(0);
    if (status > kSignalled) {
        return "A signal ended the program: " + std::to_string(status - kSignalled) + ", " +
               std::string(::strsignal(status - kSignalled)) + ".";
    }
    if (status != 0) {
        return "The program failed: it ended with status " + std::to_string(status) + ".";
    }
    if (!run.violations.empty()) {
        return "The program succeeded, but broke " +
               counted(run.violations.size(), "rule of the head.", "rules of the head.");
    }
    if (!facts.silences.empty()) {
        return "The program succeeded, but no picture came.";
    }
    return run.failures.empty()
               ? "All went well: " + picturesOf(facts) + "."
               : "The program succeeded: " + picturesOf(facts) + ". Not every call did.";
}

// How far the run came, and what it never reached.
std::string progressOf(const tsRun& run) {
    const page::tsStages stages = page::stagesOf(run);
    std::string text = stages.reached.empty()
                           ? "No stage was reached"
                           : std::string("Last stage reached: ") + stages.reached.back().name +
                                 ", at " + page::milliseconds(stages.reached.back().startNs);
    const char* separator = "; never: ";
    for (const char* name : stages.never) {
        text += separator + std::string(name);
        separator = ", ";
    }
    return text + ".";
}

void addBrokenRules(const tsRun& run, const tsSymptoms& symptoms,
                    std::vector<std::string>& findings) {
    for (const std::string& rule : symptoms.rules) {
        const std::string start = "VIOLATION " + rule + ":";
        const auto broken = [&start](const tsTraceLine& line) {
            return line.text.starts_with(start);
        };
        const auto count = std::count_if(run.violations.begin(), run.violations.end(), broken);
        const auto first = std::find_if(run.violations.begin(), run.violations.end(), broken);
        if (first != run.violations.end()) {
            findings.push_back("Rule " + rule + " broken" +
                               (count == 1 ? "" : " " + std::to_string(count) + " times, first") +
                               " at " + page::milliseconds(first->timeNs) + ":" +
                               first->text.substr(start.size()) + ".");
        }
    }
}

std::string joined(const std::vector<unsigned>& lanes) {
    std::string text;
    for (const unsigned lane : lanes) {
        text += " " + std::to_string(lane);
    }
    return text;
}

void addTrouble(const tsSymptoms& symptoms, std::vector<std::string>& findings) {
    for (const page::tsJudgedReading& supply : symptoms.supplies) {
        findings.push_back(std::string(supply.supply) + ": " +
                           (supply.volts ? page::fixed(*supply.volts, 4) + " V, " : "") +
                           supply.verdict + "; the sensor needs " + page::limitsOf(supply) + ".");
    }
    for (const std::string& flag : symptoms.pllFlags) {
        findings.push_back("PLL flag " + flag + " did not lock.");
    }
    if (!symptoms.lanes.empty()) {
        findings.push_back((symptoms.lanes.size() == 1 ? "Lane" : "Lanes") +
                           joined(symptoms.lanes) + " did not lock.");
    }
    if (symptoms.unaligned) {
        findings.emplace_back("All lanes locked, but the frame did not align.");
    }
}

} // namespace

tsVerdict verdictOf(const tsRun& run, const tsRunFacts& facts) {
    const tsSymptoms symptoms = symptomsOf(run, facts);
    tsVerdict verdict;
    verdict.good =
        facts.status.value_or(0) == 0 && run.violations.empty() && facts.silences.empty();
    verdict.headline = headlineOf(run, facts);
    addTrouble(symptoms, verdict.findings);
    addBrokenRules(run, symptoms, verdict.findings);
    for (const std::string& silence : symptoms.silences) {
        verdict.findings.push_back("N" + silence.substr(1) + "."); // "no picture ..."
    }
    if (!symptoms.failedCalls.empty()) {
        verdict.findings.push_back(
            counted(symptoms.failedCalls.size(), "call failed", "calls failed, the first one") +
            ": " + symptoms.failedCalls.front() + ".");
    }
    if (!verdict.good) {
        verdict.findings.push_back(progressOf(run));
        const auto known = facts.known.find(failureOf(symptoms));
        if (known != facts.known.end()) {
            verdict.diagnosis = known->second;
        }
    }
    return verdict;
}

} // namespace sim

#include "sim/after/diagnosis.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "fpga/registers.h"
#include "sim/after/report/page.h"

namespace sim {

namespace {

// A supply that was wrong once may have come up later: its last reading counts.
std::vector<page::tsJudgedReading> wrongSupplies(const tsRun& run) {
    std::vector<page::tsJudgedReading> last;
    for (const tsReading& converted : run.readings) {
        const std::optional<page::tsJudgedReading> reading = page::judged(converted);
        if (!reading) {
            continue;
        }
        std::erase_if(last, [&reading](const page::tsJudgedReading& one) {
            return std::string_view(one.supply) == reading->supply;
        });
        last.push_back(*reading);
    }
    std::erase_if(last, [](const page::tsJudgedReading& one) { return one.good; });
    return last;
}

void addTraining(const tsRun& run, tsSymptoms& symptoms) {
    if (run.attempts.empty()) {
        return;
    }
    symptoms.coreOn = true;
    const tsAttempt& attempt = run.attempts.back();
    constexpr std::array flags{"locked", "rgLocked", "gbLocked"};
    for (std::size_t at = 0; at < flags.size(); ++at) {
        if (!attempt.pll[at]) {
            symptoms.pllFlags.emplace_back(flags[at]);
        }
    }
    if (!symptoms.pllFlags.empty()) {
        return; // lanes cannot lock
    }
    for (unsigned lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
        if (!attempt.lanes[lane]) {
            symptoms.lanes.push_back(lane);
        }
    }
    symptoms.unaligned = symptoms.lanes.empty() && !attempt.aligned;
}

// How a call on a device ended: "ENOENT"; empty when none failed.
std::string errorOf(const tsSymptoms& symptoms, std::string_view call) {
    for (const std::string& failed : symptoms.failedCalls) {
        if (failed.starts_with(call)) {
            return failed.substr(failed.rfind(' ') + 1);
        }
    }
    return {};
}

bool failed(const tsSymptoms& symptoms, std::string_view call) {
    return !errorOf(symptoms, call).empty();
}

std::string ofMonitor(const tsSymptoms& symptoms) {
    if (failed(symptoms, "OPEN /dev/i2c")) {
        return "monitor-bus";
    }
    const std::string error = errorOf(symptoms, "ADC");
    return error.empty()          ? ""
           : error == "ETIMEDOUT" ? "monitor-bus-busy"
           : error == "EIO"       ? "monitor-short"
           : error == "EPROTO"    ? "monitor-floats"
                                  : "monitor-silent";
}

std::string ofMemory(const tsSymptoms& symptoms) {
    if (const std::string error = errorOf(symptoms, "OPEN /dev/mem"); !error.empty()) {
        return error == "EMFILE" ? "fpga-descriptors" : "fpga-permission";
    }
    return failed(symptoms, "MAP ") ? "fpga-mapping" : "";
}

std::string ofDevices(const tsSymptoms& symptoms) {
    if (failed(symptoms, "OPEN /dev/spidev")) {
        return "spi-open";
    }
    // Without the line of external triggers the head runs all the same.
    if (!symptoms.poweredUp && failed(symptoms, "GPIO ")) {
        return "line-busy";
    }
    if (!symptoms.poweredUp && failed(symptoms, "OPEN /dev/gpiochip0")) {
        return "line-chip";
    }
    // Who searches the next chips did not find a line on the first one.
    if (!symptoms.poweredUp && failed(symptoms, "OPEN /dev/gpiochip")) {
        return "line-missing";
    }
    const std::string monitor = ofMonitor(symptoms);
    return !monitor.empty() ? monitor : ofMemory(symptoms);
}

std::string ofSupplies(const tsSymptoms& symptoms) {
    if (symptoms.supplies.empty()) {
        return {};
    }
    const page::tsJudgedReading& supply = symptoms.supplies.front();
    if (!supply.volts) {
        return "monitor-floats";
    }
    return *supply.volts < supply.lowest ? "supply-low" : "supply-high";
}

std::string ofTraining(const tsSymptoms& symptoms) {
    constexpr std::size_t kFlags = 3;
    if (symptoms.pllFlags.size() == kFlags) {
        return "pll";
    }
    if (!symptoms.pllFlags.empty()) {
        return symptoms.pllFlags.front() == "locked"     ? "pll-clock"
               : symptoms.pllFlags.front() == "rgLocked" ? "pll-clock-of-red-and-green"
                                                         : "pll-clock-of-green-and-blue";
    }
    if (!symptoms.lanes.empty()) {
        return symptoms.lanes.size() == frameCtrlRegisters::kLanes ? "all-lanes" : "lanes";
    }
    return symptoms.unaligned ? "alignment" : "";
}

std::string ofCapture(const tsSymptoms& symptoms) {
    if (symptoms.silences.empty()) {
        return {};
    }
    const auto about = [&symptoms](std::string_view what) {
        return symptoms.silences.front().find(what) != std::string::npos;
    };
    return about(": no pulses")              ? "no-frame-starts"
           : about(": the pipeline is held") ? "pipeline-held"
           : about("PLL has no lock")        ? "pll-lost"
                                             : "lanes-lost";
}

} // namespace

tsSymptoms symptomsOf(const tsRun& run, const tsRunFacts& facts) {
    tsSymptoms symptoms;
    symptoms.supplies = wrongSupplies(run);
    for (const tsTraceLine& call : run.failures) {
        symptoms.failedCalls.push_back(call.text);
    }
    for (const tsTraceLine& violation : run.violations) {
        const std::string& rule = violation.words.size() > 1 ? violation.words[1] : "";
        const std::string name = rule.substr(0, rule.find(':'));
        if (std::find(symptoms.rules.begin(), symptoms.rules.end(), name) == symptoms.rules.end()) {
            symptoms.rules.push_back(name);
        }
    }
    constexpr std::array power{"PS_1.2V_EN", "PS_3.3SVDD_EN", "PS_3.3AVDDH_EN", "RESET_B"};
    symptoms.poweredUp = std::all_of(power.begin(), power.end(), [&run](const char* line) {
        return run.firstTime(line).has_value();
    });
    addTraining(run, symptoms);
    symptoms.silences = facts.silences;
    return symptoms;
}

std::string failureOf(const tsSymptoms& symptoms) {
    for (const auto look : {ofDevices, ofSupplies, ofTraining, ofCapture}) {
        if (std::string found = look(symptoms); !found.empty()) {
            return found;
        }
    }
    return {};
}

} // namespace sim

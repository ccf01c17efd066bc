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

bool failed(const tsSymptoms& symptoms, std::string_view device) {
    return std::any_of(symptoms.failedCalls.begin(), symptoms.failedCalls.end(),
                       [device](const std::string& call) { return call.starts_with(device); });
}

std::optional<tsDiagnosis> ofDevices(const tsSymptoms& symptoms) {
    if (failed(symptoms, "OPEN /dev/spidev")) {
        return tsDiagnosis{"The SPI port cannot be opened: no such device, or no right to it",
                           "ls -l /dev/spidev*; the device tree"};
    }
    // Without the line of external triggers the head runs all the same.
    if (!symptoms.poweredUp &&
        (failed(symptoms, "OPEN /dev/gpiochip") || failed(symptoms, "GPIO "))) {
        return tsDiagnosis{"A line of the head is not there, or somebody else holds it",
                           "gpioinfo; the device tree"};
    }
    if (failed(symptoms, "OPEN /dev/i2c") || failed(symptoms, "ADC")) {
        return tsDiagnosis{"The supply monitor does not answer: bus, address or power",
                           "i2cdetect -y 1; SDA, SCL and the monitor's supply"};
    }
    if (failed(symptoms, "OPEN /dev/mem") || failed(symptoms, "MAP ")) {
        return tsDiagnosis{"The FPGA's registers cannot be mapped: rights, kernel lockdown",
                           "User and capabilities; dmesg; /proc/iomem"};
    }
    return std::nullopt;
}

std::optional<tsDiagnosis> ofSupplies(const tsSymptoms& symptoms) {
    if (symptoms.supplies.empty()) {
        return std::nullopt;
    }
    const page::tsJudgedReading& supply = symptoms.supplies.front();
    if (!supply.volts) {
        return tsDiagnosis{std::string("The supply monitor gave no reading of ") + supply.supply +
                               ": " + supply.verdict,
                           "SDA and SCL with an oscilloscope; the monitor's address and supply"};
    }
    return tsDiagnosis{
        std::string(supply.supply) + " is " + supply.verdict + ": " +
            page::fixed(*supply.volts, 4) + " V, and the sensor needs " + page::limitsOf(supply),
        std::string(supply.supply) + " at the sensor with a voltmeter, under load; its regulator"};
}

std::optional<tsDiagnosis> ofTraining(const tsSymptoms& symptoms) {
    if (symptoms.pllFlags.size() == 3) {
        return tsDiagnosis{"The receiver gets no clock: the sensor does not send, or no "
                           "frame-start pulses reach it",
                           "Sensor clock at the connector; frame-start pulses; SPI at the sensor"};
    }
    if (!symptoms.pllFlags.empty()) {
        return tsDiagnosis{"A receiver PLL does not lock: " + symptoms.pllFlags.front(),
                           symptoms.pllFlags.front() == "locked" ? "Sensor clock at the connector"
                           : symptoms.pllFlags.front() == "rgLocked"
                               ? "Clock of the red and green lanes"
                               : "Clock of the green and blue lanes"};
    }
    if (symptoms.lanes.size() == frameCtrlRegisters::kLanes) {
        return tsDiagnosis{"No lane locks: the sensor's lanes have no supply, or the cable is off",
                           "The sensor's lane supply; the cable"};
    }
    if (!symptoms.lanes.empty()) {
        return tsDiagnosis{"A lane carries nothing (cable, connector, termination), or arrives "
                           "inverted, against LaneInvertMask",
                           "The lane with a differential probe; the mask of this head in "
                           "3u5mgxs_config.ini"};
    }
    if (symptoms.unaligned) {
        return tsDiagnosis{"Sync codes are not found, though every lane locks",
                           "Register settings file; frame-start pulses: present, and at the right "
                           "interval"};
    }
    return std::nullopt;
}

std::optional<tsDiagnosis> ofCapture(const tsSymptoms& symptoms) {
    if (symptoms.silences.empty()) {
        return std::nullopt;
    }
    const auto about = [&symptoms](std::string_view what) {
        return symptoms.silences.front().find(what) != std::string::npos;
    };
    if (about(": no pulses")) {
        return tsDiagnosis{"Nothing starts a frame: no frame-start pulses, no triggers",
                           "Frame-start pulse at the sensor; the trigger input"};
    }
    if (about(": the pipeline is held")) {
        return tsDiagnosis{"Frames arrive, but a core of the FPGA's pipeline lets none through",
                           "Version of the FPGA image; the core's control word"};
    }
    return tsDiagnosis{"The link was lost after it had been trained",
                       "The lanes' eye with the cable moved; ripple of the sensor's supplies"};
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

std::optional<tsDiagnosis> diagnose(const tsSymptoms& symptoms) {
    for (const auto look : {ofDevices, ofSupplies, ofTraining, ofCapture}) {
        if (std::optional<tsDiagnosis> found = look(symptoms)) {
            return found;
        }
    }
    return std::nullopt;
}

} // namespace sim

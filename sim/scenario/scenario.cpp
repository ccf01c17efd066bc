#include "sim/scenario/scenario.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <ini.h>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/base/calls.h"
#include "sim/base/fault.h"
#include "sim/scenario/fault_keys.h"
#include "sim/scenario/fault_plan.h"
#include "sim/scenario/reference.h"
#include "sim/scenario/scenario_keys.h"
#include "sim/scenario/scenario_text.h"

namespace sim {

namespace {

constexpr std::string_view kFaultSection = "Fault ";

// Collects what a file says, and the first thing wrong with it.
struct tsReading {
    std::string path;
    tsHeadOptions* options = nullptr;
    std::vector<std::pair<std::string, std::string>> files;
    std::vector<tsFault> faults;
    std::string error;
};

std::string knownSections() {
    std::string text;
    std::string_view last;
    for (const tsScenarioKey& key : scenarioKeys()) {
        if (last != key.section) {
            last = key.section;
            text += (text.empty() ? "[" : ", [") + std::string(last) + "]";
        }
    }
    return text + ", [Fault NAME]";
}

std::string knownKeys(const std::string& section) {
    std::string text;
    for (const tsScenarioKey& key : scenarioKeys()) {
        if (section == key.section) {
            text += (text.empty() ? "" : ", ") + std::string(key.name);
        }
    }
    return text;
}

std::string describe(const std::string& name, const tsFaultError& error) {
    return "[Fault " + name + "] " + error.key + (error.value.empty() ? "" : " = " + error.value) +
           ": " + error.why;
}

// A fault's section may go on later in the file.
std::string checkFault(tsReading& reading, const std::string& section, const std::string& name,
                       const std::string& value) {
    const std::string fault = text::trimmed(section.substr(kFaultSection.size()));
    auto found = std::find_if(reading.faults.begin(), reading.faults.end(),
                              [&](const tsFault& known) { return known.name == fault; });
    if (found == reading.faults.end()) {
        found = reading.faults.insert(found, tsFault{.name = fault});
    }
    const std::optional<tsFaultError> error = setFaultText(*found, name, value);
    return error ? describe(fault, *error) : "";
}

void planFaults(const tsReading& reading, tsHeadOptions& options) {
    for (const tsFault& fault : reading.faults) {
        tsFaultError error;
        const std::optional<tsPlannedFault> plan = plannedFault(fault, error);
        if (!plan) {
            throw std::runtime_error(reading.path + ": " + describe(fault.name, error));
        }
        options.faults.push_back(*plan);
    }
}

std::string check(tsReading& reading, const std::string& section, const std::string& name,
                  const std::string& value) {
    if (section.starts_with(kFaultSection) && section.size() > kFaultSection.size()) {
        return checkFault(reading, section, name, value);
    }
    bool sectionKnown = false;
    for (const tsScenarioKey& key : scenarioKeys()) {
        if (section != key.section) {
            continue;
        }
        sectionKnown = true;
        if (!isKey(key, name)) {
            continue;
        }
        if (!key.apply(*reading.options, name, value)) {
            return "[" + section + "] " + name + " = " + value + ": allowed is " + key.values;
        }
        if (section == kFilesSection) {
            reading.files.emplace_back(name, value);
        }
        return "";
    }
    if (!sectionKnown) {
        return "[" + section + "] " + name + ": unknown section; allowed are " + knownSections();
    }
    return "[" + section + "] " + name + ": unknown key; allowed are " + knownKeys(section);
}

int onKey(void* user, const char* section, const char* name, const char* value) {
    auto& reading = *static_cast<tsReading*>(user);
    if (reading.error.empty() && name != nullptr) {
        reading.error = check(reading, section, name, value);
    }
    return reading.error.empty() ? 1 : 0;
}

// The path of a file that a scenario names.
std::string besideScenario(const std::string& scenario, const std::string& section,
                           const std::string& name, const std::string& path) {
    const std::filesystem::path folder = std::filesystem::absolute(scenario).parent_path();
    const std::filesystem::path full = (folder / path).lexically_normal();
    if (!std::filesystem::exists(full)) {
        throw std::runtime_error(scenario + ": [" + section + "] " + name + " = " + path +
                                 ": allowed is a file that exists");
    }
    return full.string();
}

bool canBeShort(const tsFailure& failure, const tsHeadOptions& options) {
    const bool transfer = failure.kind == teCall::ioctl || failure.kind == teCall::write;
    return (failure.device == options.spiPath && transfer) ||
           (failure.device == "/dev/i2c-1" && (transfer || failure.kind == teCall::read));
}

// Which device a call is for, and whether it can be short, is known when the whole file is read.
void checkFailures(const std::string& path, const tsHeadOptions& options) {
    for (const tsFailure& failure : options.failures) {
        if (failure.device != options.spiPath && failure.device != options.gpioPath &&
            failure.device != "/dev/i2c-1" && failure.device != "/dev/mem" &&
            failure.device != "clock") {
            throw std::runtime_error(path + ": [Failures] " + failure.device +
                                     ": unknown device; allowed are " + options.spiPath + ", " +
                                     options.gpioPath + ", /dev/i2c-1, /dev/mem, clock");
        }
        if (failure.error == kShort && !canBeShort(failure, options)) {
            throw std::runtime_error(path + ": [Failures] short on " + failure.device +
                                     ": allowed is short for ioctl and write on " +
                                     options.spiPath + ", ioctl, read and write on /dev/i2c-1");
        }
    }
}

tsReading readScenario(const std::string& path, tsHeadOptions& options) {
    const std::string before = std::exchange(options.scenePath, "");
    tsReading reading;
    reading.path = path;
    reading.options = &options;
    const int result = ini_parse(path.c_str(), onKey, &reading);
    if (result < 0) {
        throw std::runtime_error(path + ": cannot be read: " + std::strerror(errno));
    }
    if (!reading.error.empty()) {
        throw std::runtime_error(path + ": " + reading.error);
    }
    if (result > 0) {
        throw std::runtime_error(path + ": line " + std::to_string(result) +
                                 " is neither a [section], a KEY = VALUE nor a ; comment");
    }
    options.scenePath = options.scenePath.empty()
                            ? before
                            : besideScenario(path, "Scene", "picture", options.scenePath);
    planFaults(reading, options);
    checkFailures(path, options);
    return reading;
}

} // namespace

void applyScenario(const std::string& path, tsHeadOptions& options) {
    readScenario(path, options);
}

std::vector<tsReplacedFile> replacedFiles(const std::string& scenarioPath) {
    tsHeadOptions options;
    const tsReading reading = readScenario(scenarioPath, options);
    std::vector<tsReplacedFile> result;
    for (const auto& [name, path] : reading.files) {
        result.push_back({name, besideScenario(scenarioPath, kFilesSection, name, path)});
    }
    return result;
}

} // namespace sim

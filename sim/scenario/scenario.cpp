#include "sim/scenario/scenario.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <ini.h>
#include <optional>
#include <stdexcept>
#include <utility>

#include "sim/base/calls.h"
#include "sim/base/error_names.h"
#include "sim/base/fault.h"
#include "sim/chips/gpio_chip.h"
#include "sim/scenario/faults.h"
#include "sim/scenario/reference.h"
#include "sim/scenario/scenario_text.h"

namespace sim {

namespace {

using text::listed;
using text::whole;
using text::words;

constexpr std::size_t kCalls = 8; // members of teCall
constexpr const char* kYesNo = "`yes` or `no`";
constexpr const char* kTime = "milliseconds, for example `3` or `0.5`, or `never`";
constexpr const char* kVolts = "volts, for example `2.9`, or an offset with its sign, `-0.2`";
constexpr const char* kNames = "names of the head's lines, separated by commas";

bool setFlag(bool& flag, const std::string& value, const char* on, const char* off) {
    if (value != on && value != off) {
        return false;
    }
    flag = value == on;
    return true;
}

bool setTime(std::uint64_t& time, const std::string& value) {
    if (value == "never") {
        time = tsLinkFacts::kForEver;
        return true;
    }
    const std::optional<std::uint64_t> ns = text::milliseconds(value);
    time = ns.value_or(0);
    return ns.has_value();
}

bool setRail(tsHeadOptions& options, teRail rail, const std::string& value) {
    const std::optional<double> volts = text::volts(rail, value);
    options.conditions.rails[static_cast<std::size_t>(rail)].settledVolts = volts.value_or(0);
    return volts.has_value();
}

bool setLines(std::uint32_t& lines, const std::string& value) {
    const std::vector<std::string> names = listed(value);
    lines = 0;
    for (const std::string& name : names) {
        const std::optional<unsigned> line = tcGpioChip::lineNamed(name);
        if (!line) {
            return false;
        }
        lines |= 1U << *line;
    }
    return !names.empty();
}

bool setSilentCores(tsHeadOptions& options, const std::string& value) {
    const std::vector<std::string> cores = listed(value);
    for (const std::string& core : cores) {
        const auto found = std::find(kCoreNames.begin(), kCoreNames.end(), core);
        if (found == kCoreNames.end()) {
            return false;
        }
        options.conditions.silent[static_cast<std::size_t>(found - kCoreNames.begin())] = true;
    }
    return !cores.empty();
}

bool setUnmappable(tsHeadOptions& options, const std::string& value) {
    const std::vector<std::string> addresses = listed(value);
    for (const std::string& address : addresses) {
        const std::optional<std::uint32_t> physical = whole<std::uint32_t>(address);
        const std::optional<std::size_t> page = physical ? pageOf(*physical) : std::nullopt;
        if (!page) {
            return false;
        }
        options.conditions.mapErrors[*page] = ENOMEM;
    }
    return !addresses.empty();
}

bool setFailFrom(tsHeadOptions& options, const std::string& value) {
    const std::vector<std::string> parts = words(value);
    if (parts.size() != 2) {
        return false;
    }
    const std::optional<std::uint64_t> nth = whole<std::uint64_t>(parts[0]);
    options.spiFailFrom = nth.value_or(0);
    options.spiFailError = errorNamed(parts[1]);
    return options.spiFailFrom != 0 && options.spiFailError != 0;
}

bool setSystemId(tsHeadOptions& options, const std::string& value) {
    const std::vector<std::string> parts = words(value);
    for (std::size_t at = 0; at < parts.size() && at < 2; ++at) {
        const std::optional<std::uint32_t> part = whole<std::uint32_t>(parts[at]);
        if (!part) {
            return false;
        }
        options.fpga.systemId[at] = *part;
    }
    return parts.size() == 2;
}

std::optional<teCall> callNamed(const std::string& name) {
    constexpr std::array<std::string_view, kCalls> names{"open",   "close", "ioctl", "mmap",
                                                         "munmap", "read",  "write", "sleep"};
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        return std::nullopt;
    }
    return static_cast<teCall>(found - names.begin());
}

bool addFailure(tsHeadOptions& options, const std::string& value) {
    std::vector<std::string> parts = words(value);
    if (parts.size() != 4) {
        return false;
    }
    tsFailure failure;
    const std::optional<teCall> kind = callNamed(parts[0]);
    failure.device = parts[1];
    failure.lasting = parts[2].back() == '+';
    if (failure.lasting) {
        parts[2].pop_back();
    }
    failure.nth = whole<std::uint64_t>(parts[2]).value_or(0);
    failure.error = parts[3] == "short" ? kShort : errorNamed(parts[3]);
    if (!kind || failure.nth == 0 || failure.error == 0) {
        return false;
    }
    failure.kind = *kind;
    options.failures.push_back(failure);
    return true;
}

bool setPath(std::string& path, bool& present, const std::string& value, std::string_view prefix) {
    present = value != "none";
    if (present) {
        path = value;
    }
    return !present || value.starts_with(prefix);
}

bool addDefect(tsHeadOptions& options, const std::string& value) {
    if (value == "none") {
        options.defects.clear();
        return true;
    }
    const std::vector<std::string> parts = words(value);
    if (parts.size() != 3) {
        return false;
    }
    const std::optional<std::uint32_t> x = whole<std::uint32_t>(parts[0]);
    const std::optional<std::uint32_t> y = whole<std::uint32_t>(parts[1]);
    const std::optional<std::uint16_t> code = whole<std::uint16_t>(parts[2]);
    if (!x || !y || !code || !possible({*x, *y, *code})) {
        return false;
    }
    options.defects.push_back({*x, *y, *code});
    return true;
}

// A key of a scenario. An empty name stands for any.
struct tsKey {
    const char* section;
    const char* name;
    const char* values;
    const char* meaning;
    bool (*apply)(tsHeadOptions& options, const std::string& name, const std::string& value);
};

constexpr const char* kFiles = "Files";

constexpr std::array kKeys{
    tsKey{"Supplies", "VDD1.2", kVolts, "The voltage to which the supply rises.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setRail(options, teRail::core, value);
          }},
    tsKey{"Supplies", "VDD3.3AVDDH", kVolts, "As above.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setRail(options, teRail::avddh, value);
          }},
    tsKey{"Supplies", "VDD3.3SVDD", kVolts, "As above.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setRail(options, teRail::svdd, value);
          }},
    tsKey{"ADC", "answers", kYesNo, "Whether the supply monitor answers at its address.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              bool answers = true;
              const bool good = setFlag(answers, value, "yes", "no");
              options.conditions.adcError = answers ? 0 : ENXIO;
              return good;
          }},
    tsKey{"ADC", "bus", kYesNo, "Whether `/dev/i2c-1` exists.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setFlag(options.conditions.i2cPresent, value, "yes", "no");
          }},
    tsKey{"GPIO", "chip", "a path that begins with `/dev/gpiochip`, or `none`",
          "The chip that has the head's lines.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setPath(options.gpioPath, options.conditions.gpioPresent, value,
                             "/dev/gpiochip");
          }},
    tsKey{"GPIO", "missing", kNames, "Lines that have no name.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setLines(options.conditions.missingLines, value);
          }},
    tsKey{"GPIO", "busy", kNames, "Lines that somebody else holds.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setLines(options.conditions.busyLines, value);
          }},
    tsKey{"SPI", "device", "a path that begins with `/dev/spidev`, or `none`", "The sensor's port.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setPath(options.spiPath, options.conditions.spiPresent, value, "/dev/spidev");
          }},
    tsKey{"SPI", "settings", "`accepted` or `refused`",
          "Whether the port takes mode, bit order, word size and clock.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setFlag(options.conditions.spiSettingsRefused, value, "refused", "accepted");
          }},
    tsKey{"SPI", "fail-from", "a message's number from 1, and an errno name: `5 EIO`",
          "That message and all later ones fail.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setFailFrom(options, value);
          }},
    tsKey{"Memory", "open", "`ok` or an errno name", "What opening `/dev/mem` gives.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              options.conditions.memOpenError = value == "ok" ? 0 : errorNamed(value);
              return value == "ok" || options.conditions.memOpenError != 0;
          }},
    tsKey{"Memory", "unmappable", "physical addresses of FPGA pages, separated by commas",
          "Mappings that start there fail (ENOMEM).",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setUnmappable(options, value);
          }},
    tsKey{"FPGA", "silent",
          "`frame-control`, `pwm`, `pixel-shift`, `bad-pixel`, separated by commas",
          "Cores whose identification reads 0.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setSilentCores(options, value);
          }},
    tsKey{"FPGA", "system-id", "two numbers: `0x3505 0x10203`", "The words of the system id.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setSystemId(options, value);
          }},
    tsKey{"Link", "locked", kTime, "How long the PLL flag takes.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setTime(options.conditions.link.pllNs[0], value);
          }},
    tsKey{"Link", "rgLocked", kTime, "As above.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setTime(options.conditions.link.pllNs[1], value);
          }},
    tsKey{"Link", "gbLocked", kTime, "As above.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setTime(options.conditions.link.pllNs[2], value);
          }},
    tsKey{"Link", "lanes", kTime, "How long each lane's DPA takes.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              std::uint64_t time = 0;
              const bool good = setTime(time, value);
              options.conditions.link.laneNs.fill(time);
              return good;
          }},
    tsKey{"Link", "lane0 ... lane11", kTime, "One lane; after `lanes`.",
          [](tsHeadOptions& options, const std::string& name, const std::string& value) {
              const std::optional<unsigned> lane = whole<unsigned>(name.substr(4));
              return lane && setTime(options.conditions.link.laneNs[*lane], value);
          }},
    tsKey{"Link", "alignment", kTime, "How long frame alignment takes.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setTime(options.conditions.link.alignmentNs, value);
          }},
    tsKey{"Link", "polarity", "a number of 12 bits: `0x5D9`",
          "Which lanes arrive inverted: what the lane inversion must be.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              const std::optional<std::uint32_t> lanes = whole<std::uint32_t>(value);
              options.conditions.link.polarity = lanes.value_or(0);
              return lanes && *lanes <= 0xFFF;
          }},
    tsKey{"Scene", "picture", "a path, relative to the scenario's folder",
          "PNG picture before the sensor, in place of the test chart.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              options.scenePath = value;
              return !value.empty();
          }},
    tsKey{
        "Defects", "",
        "`X Y CODE`: column and row of the array, and what the ADC makes of the pixel, 0 to 4095; "
        "or `none` for none of those before",
        "A pixel that always gives the same. The key is a name of your choice. Three are there "
        "from the start.",
        [](tsHeadOptions& options, const std::string&, const std::string& value) {
            return addDefect(options, value);
        }},
    tsKey{"Time", "mode", "`virtual` or `real`", "Whether sleeps really sleep.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setFlag(options.realTime, value, "real", "virtual");
          }},
    tsKey{"Time", "wire", kYesNo, "Whether SPI messages take their time in real time.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return setFlag(options.wireTime, value, "yes", "no");
          }},
    tsKey{"Failures", "",
          "`CALL DEVICE N ERRNO`, or `N+` for the Nth and all later: `ioctl /dev/spidev1.0 3 EIO`. "
          "CALL is open, close, ioctl, mmap, munmap, read, write, or sleep on the device `clock`; "
          "`short` for ERRNO on the ports of SPI and I2C",
          "A call that fails, or succeeds with less than it was asked for. The key is a name of "
          "your choice.",
          [](tsHeadOptions& options, const std::string&, const std::string& value) {
              return addFailure(options, value);
          }},
    tsKey{kFiles, "", "a path, relative to the scenario's folder",
          "The file that stands in for the file KEY of the program's working directory.",
          [](tsHeadOptions&, const std::string& name, const std::string& value) {
              return !value.empty() && name.find('/') == std::string::npos;
          }},
};

bool isLane(const std::string& name) {
    if (!name.starts_with("lane")) {
        return false;
    }
    const std::optional<unsigned> lane = whole<unsigned>(std::string_view(name).substr(4));
    return lane && *lane < kLinkLanes && name == "lane" + std::to_string(*lane);
}

bool matches(const tsKey& key, const std::string& name) {
    const std::string_view known = key.name;
    return known.empty() || known == name || (known.starts_with("lane0") && isLane(name));
}

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
    for (const tsKey& key : kKeys) {
        if (last != key.section) {
            last = key.section;
            text += (text.empty() ? "[" : ", [") + std::string(last) + "]";
        }
    }
    return text + ", [Fault NAME]";
}

std::string knownKeys(const std::string& section) {
    std::string text;
    for (const tsKey& key : kKeys) {
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
    for (const tsKey& key : kKeys) {
        if (section != key.section) {
            continue;
        }
        sectionKnown = true;
        if (!matches(key, name)) {
            continue;
        }
        if (!key.apply(*reading.options, name, value)) {
            return "[" + section + "] " + name + " = " + value + ": allowed is " + key.values;
        }
        if (section == kFiles) {
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
        result.push_back({name, besideScenario(scenarioPath, kFiles, name, path)});
    }
    return result;
}

std::string scenarioKeysMarkdown() {
    std::string text =
        "# Scenario keys\n\n"
        "A scenario is an INI file that says what is wrong with the virtual head. "
        "What it does not\nmention is healthy. A line that begins with `;` or `#` is "
        "a comment. An unknown section, key\nor value is an error.\n";
    std::string_view section;
    for (const tsKey& key : kKeys) {
        if (section != key.section) {
            section = key.section;
            text +=
                "\n## [" + std::string(section) + "]\n\n| Key | Value | Meaning |\n|---|---|---|\n";
        }
        const std::string name = *key.name == '\0' ? "any" : "`" + std::string(key.name) + "`";
        text += "| " + name + " | " + key.values + " | " + key.meaning + " |\n";
    }
    return text + faultsMarkdown();
}

} // namespace sim

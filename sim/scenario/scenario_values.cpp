#include "sim/scenario/scenario_values.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <vector>

#include "sim/base/calls.h"
#include "sim/base/error_names.h"
#include "sim/chips/conditions.h"
#include "sim/chips/gpio_chip.h"
#include "sim/scenario/scenario_text.h"

namespace sim::values {

namespace {

using text::listed;
using text::whole;
using text::words;

constexpr std::size_t kCalls = 8; // members of teCall

std::optional<teCall> callNamed(const std::string& name) {
    constexpr std::array<std::string_view, kCalls> names{"open",   "close", "ioctl", "mmap",
                                                         "munmap", "read",  "write", "sleep"};
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        return std::nullopt;
    }
    return static_cast<teCall>(found - names.begin());
}

} // namespace

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

bool setPath(std::string& path, bool& present, const std::string& value, std::string_view prefix) {
    present = value != "none";
    if (present) {
        path = value;
    }
    return !present || value.starts_with(prefix);
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

} // namespace sim::values

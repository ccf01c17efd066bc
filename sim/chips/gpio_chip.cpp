#include "sim/chips/gpio_chip.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace sim {

namespace {

struct tsNamedLine {
    unsigned offset;
    const char* name;
};
constexpr std::array kNamedLines{
    tsNamedLine{0, "LED_STATUS"},    tsNamedLine{2, "HEAD_PRESENT_B"}, tsNamedLine{5, "PS_1.2V_EN"},
    tsNamedLine{6, "PS_3.3SVDD_EN"}, tsNamedLine{7, "PS_3.3AVDDH_EN"}, tsNamedLine{11, "RESET_B"},
    tsNamedLine{12, "EXT_TRIG_EN"},  tsNamedLine{17, "FAN_ALERT_B"},
};

constexpr std::uint64_t kDirections = GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_OUTPUT;
constexpr std::uint64_t kBiases = GPIO_V2_LINE_FLAG_BIAS_PULL_UP |
                                  GPIO_V2_LINE_FLAG_BIAS_PULL_DOWN |
                                  GPIO_V2_LINE_FLAG_BIAS_DISABLED;
constexpr std::uint64_t kKnownFlags = kDirections | GPIO_V2_LINE_FLAG_ACTIVE_LOW | kBiases;

void copyName(char* destination, std::string_view name) {
    std::memset(destination, 0, GPIO_MAX_NAME_SIZE);
    name.copy(destination, GPIO_MAX_NAME_SIZE - 1);
}

// Flags and output value of the line at an index of its request: the first attribute that names
// the line wins over the defaults.
std::uint64_t flagsOf(const gpio_v2_line_config& config, std::uint32_t index) {
    for (std::uint32_t at = 0; at < config.num_attrs; ++at) {
        const gpio_v2_line_config_attribute& entry = config.attrs[at];
        if (entry.attr.id == GPIO_V2_LINE_ATTR_ID_FLAGS && (entry.mask >> index & 1) != 0) {
            return entry.attr.flags;
        }
    }
    return config.flags;
}

int outputValueOf(const gpio_v2_line_config& config, std::uint32_t index) {
    for (std::uint32_t at = 0; at < config.num_attrs; ++at) {
        const gpio_v2_line_config_attribute& entry = config.attrs[at];
        if (entry.attr.id == GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES && (entry.mask >> index & 1) != 0) {
            return static_cast<int>(entry.attr.values >> index & 1);
        }
    }
    return 0;
}

// The bits that lines of a request have in values and masks.
std::uint64_t maskOf(const tsLineRequest& lines) {
    return (lines.count == GPIO_V2_LINES_MAX ? 0 : std::uint64_t{1} << lines.count) - 1;
}

template<class Words>
bool allZero(const Words& words) {
    return std::all_of(std::begin(words), std::end(words), [](auto word) { return word == 0; });
}

bool validFlags(std::uint64_t flags) {
    const std::uint64_t bias = flags & kBiases;
    return (flags & ~kKnownFlags) == 0 && (flags & kDirections) != kDirections &&
           (bias == 0 || ((flags & kDirections) != 0 && std::has_single_bit(bias)));
}

bool validConfig(const gpio_v2_line_config& config, std::uint32_t count) {
    if (config.num_attrs > GPIO_V2_LINE_NUM_ATTRS_MAX || !allZero(config.padding)) {
        return false;
    }
    for (std::uint32_t at = 0; at < config.num_attrs; ++at) {
        if (config.attrs[at].attr.padding != 0) {
            return false;
        }
    }
    for (std::uint32_t index = 0; index < count; ++index) {
        if (!validFlags(flagsOf(config, index))) {
            return false;
        }
    }
    return true;
}

// Somebody who has a line cannot get it again, not even in the same request.
bool namedBefore(const gpio_v2_line_request& wanted, std::uint32_t index) {
    const auto* const end = std::begin(wanted.offsets) + index;
    return std::find(std::begin(wanted.offsets), end, wanted.offsets[index]) != end;
}

} // namespace

tcGpioChip::tcGpioChip(tcWiring& wiring, tcJournal& journal, const tsConditions& now)
    : m_wiring(wiring), m_journal(journal), m_now(now) {
    for (unsigned offset = 0; offset < kLines; ++offset) {
        m_lines[offset].label = "line " + std::to_string(offset);
    }
    for (const tsNamedLine& named : kNamedLines) {
        m_lines[named.offset].name = named.name;
    }
}

std::optional<unsigned> tcGpioChip::lineNamed(std::string_view name) {
    for (const tsNamedLine& named : kNamedLines) {
        if (name == named.name) {
            return named.offset;
        }
    }
    return std::nullopt;
}

std::string_view tcGpioChip::nameOf(std::size_t offset) const {
    return (m_now.missingLines >> offset & 1) != 0 ? std::string_view{}
                                                   : std::string_view(m_lines[offset].name);
}

std::string_view tcGpioChip::labelOf(std::size_t offset) const {
    return nameOf(offset).empty() ? std::string_view(m_lines[offset].label) : nameOf(offset);
}

bool tcGpioChip::used(std::size_t offset) const {
    return m_lines[offset].used || (m_now.busyLines >> offset & 1) != 0;
}

std::optional<int> tcGpioChip::level(std::string_view name) const {
    for (std::size_t offset = 0; offset < kLines; ++offset) {
        if (nameOf(offset) == name) {
            return m_lines[offset].level;
        }
    }
    return std::nullopt;
}

int tcGpioChip::chipIoctl(std::uint32_t request, void* argument, int refusal,
                          std::optional<tsLineRequest>& granted) {
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
        return refusal != 0 ? -refusal : describeChip(argument);
    case GPIO_V2_GET_LINEINFO_IOCTL:
        return refusal != 0 ? -refusal : describeLine(argument);
    case GPIO_V2_GET_LINE_IOCTL:
        return this->request(*static_cast<gpio_v2_line_request*>(argument), refusal, granted);
    default:
        return -ENOTTY;
    }
}

int tcGpioChip::describeChip(void* argument) const {
    gpiochip_info info{};
    copyName(info.name, "gpiochip0");
    copyName(info.label, "head-gpio");
    info.lines = kLines;
    std::memcpy(argument, &info, sizeof info);
    return 0;
}

int tcGpioChip::describeLine(void* argument) const {
    gpio_v2_line_info info{};
    std::memcpy(&info, argument, sizeof info);
    if (info.offset >= kLines || !allZero(info.padding)) {
        return -EINVAL;
    }
    const tsLine& line = m_lines[info.offset];
    copyName(info.name, nameOf(info.offset));
    copyName(info.consumer, line.used || !used(info.offset) ? line.consumer : "somebody-else");
    info.num_attrs = 0;
    info.flags = line.output ? GPIO_V2_LINE_FLAG_OUTPUT : GPIO_V2_LINE_FLAG_INPUT;
    if (line.activeLow) {
        info.flags |= GPIO_V2_LINE_FLAG_ACTIVE_LOW;
    }
    if (used(info.offset)) {
        info.flags |= GPIO_V2_LINE_FLAG_USED;
    }
    std::memcpy(argument, &info, sizeof info);
    return 0;
}

int tcGpioChip::refuseRequest(const gpio_v2_line_request& wanted) const {
    if (wanted.num_lines == 0 || wanted.num_lines > GPIO_V2_LINES_MAX || !allZero(wanted.padding) ||
        !validConfig(wanted.config, wanted.num_lines)) {
        return EINVAL;
    }
    for (std::uint32_t index = 0; index < wanted.num_lines; ++index) {
        if (wanted.offsets[index] >= kLines) {
            return EINVAL;
        }
        if (used(wanted.offsets[index]) || namedBefore(wanted, index)) {
            return EBUSY;
        }
    }
    return 0;
}

int tcGpioChip::request(gpio_v2_line_request& wanted, int refusal,
                        std::optional<tsLineRequest>& granted) {
    const int error = refusal != 0 ? refusal : refuseRequest(wanted);
    tsLineRequest lines;
    lines.count = std::min<std::uint32_t>(wanted.num_lines, GPIO_V2_LINES_MAX);
    for (std::uint32_t index = 0; index < lines.count; ++index) {
        if (wanted.offsets[index] >= kLines) {
            return -EINVAL;
        }
        lines.offsets[index] = static_cast<std::uint8_t>(wanted.offsets[index]);
    }
    configure(lines, wanted.config, error);
    if (error != 0) {
        return -error;
    }
    for (std::uint32_t index = 0; index < lines.count; ++index) {
        tsLine& line = m_lines[lines.offsets[index]];
        line.used = true;
        line.consumer.assign(wanted.consumer, strnlen(wanted.consumer, GPIO_MAX_NAME_SIZE));
    }
    granted = lines;
    return 0;
}

void tcGpioChip::configure(const tsLineRequest& lines, const gpio_v2_line_config& config,
                           int error) {
    for (std::uint32_t index = 0; index < lines.count; ++index) {
        tsLine& line = m_lines[lines.offsets[index]];
        const std::uint64_t flags = flagsOf(config, index);
        const bool activeLow = (flags & GPIO_V2_LINE_FLAG_ACTIVE_LOW) != 0;
        if (error == 0) {
            line.activeLow = activeLow;
        }
        if ((flags & GPIO_V2_LINE_FLAG_OUTPUT) != 0) {
            const int level = outputValueOf(config, index) ^ (activeLow ? 1 : 0);
            m_journal.event(teLine::gpioOutput, lines.offsets[index],
                            static_cast<std::uint64_t>(level), error,
                            labelOf(lines.offsets[index]));
            if (error == 0) {
                line.output = true;
                drive(line, level, true);
            }
        } else if ((flags & GPIO_V2_LINE_FLAG_INPUT) != 0) {
            m_journal.event(teLine::gpioInput, lines.offsets[index], 0, error,
                            labelOf(lines.offsets[index]));
            if (error == 0) {
                line.output = false;
            }
        }
    }
}

int tcGpioChip::lineIoctl(const tsLineRequest& lines, std::uint32_t request, void* argument,
                          int refusal) {
    switch (request) {
    case GPIO_V2_LINE_SET_VALUES_IOCTL:
        return setValues(lines, *static_cast<gpio_v2_line_values*>(argument), refusal);
    case GPIO_V2_LINE_GET_VALUES_IOCTL:
        return refusal != 0 ? -refusal
                            : getValues(lines, *static_cast<gpio_v2_line_values*>(argument));
    case GPIO_V2_LINE_SET_CONFIG_IOCTL: {
        const auto& config = *static_cast<gpio_v2_line_config*>(argument);
        const int error = refusal != 0 ? refusal : (validConfig(config, lines.count) ? 0 : EINVAL);
        if (config.num_attrs <= GPIO_V2_LINE_NUM_ATTRS_MAX) {
            configure(lines, config, error);
        }
        return -error;
    }
    default:
        return -ENOTTY;
    }
}

int tcGpioChip::setValues(const tsLineRequest& lines, const gpio_v2_line_values& values,
                          int refusal) {
    int error = refusal;
    for (std::uint32_t index = 0; index < lines.count; ++index) {
        if ((values.mask >> index & 1) != 0 && !m_lines[lines.offsets[index]].output) {
            error = error != 0 ? error : EPERM;
        }
    }
    if (error == 0 && (values.mask & maskOf(lines)) == 0) {
        error = EINVAL;
    }
    for (std::uint32_t index = 0; index < lines.count; ++index) {
        if ((values.mask >> index & 1) == 0) {
            continue;
        }
        tsLine& line = m_lines[lines.offsets[index]];
        const int level = static_cast<int>(values.bits >> index & 1) ^ (line.activeLow ? 1 : 0);
        m_journal.event(teLine::gpioValue, lines.offsets[index], static_cast<std::uint64_t>(level),
                        error, labelOf(lines.offsets[index]));
        if (error == 0) {
            drive(line, level, false);
        }
    }
    return -error;
}

int tcGpioChip::getValues(const tsLineRequest& lines, gpio_v2_line_values& values) const {
    if ((values.mask & maskOf(lines)) == 0) {
        return -EINVAL; // nothing is asked for
    }
    values.bits = 0;
    for (std::uint32_t index = 0; index < lines.count; ++index) {
        const tsLine& line = m_lines[lines.offsets[index]];
        if ((values.mask >> index & 1) != 0 && (line.level != 0) != line.activeLow) {
            values.bits |= 1ULL << index;
        }
    }
    return 0;
}

void tcGpioChip::drive(tsLine& line, int level, bool requested) {
    line.level = level;
    m_wiring.lineDriven(line.name, level, requested);
}

// The chip keeps direction and level when nobody holds the line any more; the kernel forgets that
// it was active low.
void tcGpioChip::release(const tsLineRequest& lines) {
    for (std::uint32_t index = 0; index < lines.count; ++index) {
        tsLine& line = m_lines[lines.offsets[index]];
        line.used = false;
        line.activeLow = false;
        line.consumer.clear();
        m_journal.event(teLine::gpioReleased, lines.offsets[index], 0, 0,
                        labelOf(lines.offsets[index]));
    }
}

} // namespace sim

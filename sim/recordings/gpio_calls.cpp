// The ioctls of a GPIO chip: its lines, requests of them, and their values.

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <linux/gpio.h>
#include <span>

#include "sim/recordings/device_calls.h"

namespace sim::calls {

namespace {

/// The entries of a list of fixed size that are used.
template<class Type, std::size_t Size>
std::span<const Type> used(const Type (&entries)[Size], std::uint32_t count) {
    return {entries, std::min<std::size_t>(count, Size)};
}

std::string attributeText(const gpio_v2_line_attribute& attribute) {
    const std::uint64_t value =
        attribute.id == GPIO_V2_LINE_ATTR_ID_FLAGS ? attribute.flags : attribute.values;
    return std::to_string(attribute.id) + " " + hex(value);
}

std::string configText(const gpio_v2_line_config& config) {
    std::string text = "flags " + hex(config.flags);
    for (const gpio_v2_line_config_attribute& entry : used(config.attrs, config.num_attrs)) {
        text += " attribute " + attributeText(entry.attr) + " for " + hex(entry.mask);
    }
    return text;
}

std::string lineRequestText(const gpio_v2_line_request& request) {
    std::string text = "GPIO_V2_GET_LINE";
    for (const std::uint32_t offset : used(request.offsets, request.num_lines)) {
        text += " " + std::to_string(offset);
    }
    return text + " as " + quoted(request.consumer, sizeof request.consumer) + " " +
           configText(request.config);
}

std::string lineInfoAnswer(const gpio_v2_line_info& info) {
    std::string text = quoted(info.name, sizeof info.name) + " " +
                       quoted(info.consumer, sizeof info.consumer) + " " + hex(info.flags);
    for (const gpio_v2_line_attribute& attribute : used(info.attrs, info.num_attrs)) {
        text += " " + attributeText(attribute);
    }
    return text;
}

void playLineInfo(tcWords& words, void* argument) {
    auto info = copied<gpio_v2_line_info>(argument);
    words.name(info.name, sizeof info.name);
    words.name(info.consumer, sizeof info.consumer);
    info.flags = words.number();
    info.num_attrs = 0;
    while (!words.empty() && info.num_attrs < std::size(info.attrs)) {
        gpio_v2_line_attribute& attribute = info.attrs[info.num_attrs++];
        attribute.id = words.number<std::uint32_t>();
        attribute.values = words.number();
    }
    give(argument, info);
}

std::string chipAnswer(const gpiochip_info& info) {
    return quoted(info.name, sizeof info.name) + " " + quoted(info.label, sizeof info.label) + " " +
           std::to_string(info.lines);
}

void playChip(tcWords& words, void* argument) {
    gpiochip_info info{};
    words.name(info.name, sizeof info.name);
    words.name(info.label, sizeof info.label);
    info.lines = words.number<std::uint32_t>();
    give(argument, info);
}

bool has(std::uint32_t request) {
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
    case GPIO_V2_GET_LINEINFO_IOCTL:
    case GPIO_V2_GET_LINE_IOCTL:
    case GPIO_V2_LINE_SET_VALUES_IOCTL:
    case GPIO_V2_LINE_GET_VALUES_IOCTL:
    case GPIO_V2_LINE_SET_CONFIG_IOCTL:
        return true;
    default:
        return false;
    }
}

std::string asked(std::uint32_t request, const void* argument) {
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
        return "GPIO_GET_CHIPINFO";
    case GPIO_V2_GET_LINEINFO_IOCTL:
        return "GPIO_V2_GET_LINEINFO " + std::to_string(copied<gpio_v2_line_info>(argument).offset);
    case GPIO_V2_GET_LINE_IOCTL:
        return lineRequestText(copied<gpio_v2_line_request>(argument));
    case GPIO_V2_LINE_SET_VALUES_IOCTL: {
        const auto values = copied<gpio_v2_line_values>(argument);
        return "GPIO_V2_LINE_SET_VALUES " + hex(values.bits) + " of " + hex(values.mask);
    }
    case GPIO_V2_LINE_GET_VALUES_IOCTL:
        return "GPIO_V2_LINE_GET_VALUES of " + hex(copied<gpio_v2_line_values>(argument).mask);
    default: // GPIO_V2_LINE_SET_CONFIG_IOCTL
        return "GPIO_V2_LINE_SET_CONFIG " + configText(copied<gpio_v2_line_config>(argument));
    }
}

std::string got(std::uint32_t request, const void* argument) {
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
        return chipAnswer(copied<gpiochip_info>(argument));
    case GPIO_V2_GET_LINEINFO_IOCTL:
        return lineInfoAnswer(copied<gpio_v2_line_info>(argument));
    case GPIO_V2_LINE_GET_VALUES_IOCTL:
        return hex(copied<gpio_v2_line_values>(argument).bits);
    default:
        return "";
    }
}

void play(tcWords& words, std::uint32_t request, void* argument) {
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
        return playChip(words, argument);
    case GPIO_V2_GET_LINEINFO_IOCTL:
        return playLineInfo(words, argument);
    case GPIO_V2_LINE_GET_VALUES_IOCTL: {
        auto values = copied<gpio_v2_line_values>(argument);
        values.bits = words.number();
        return give(argument, values);
    }
    default:
        return;
    }
}

} // namespace

constinit const tsDeviceCalls kGpioCalls{has, asked, got, play};

} // namespace sim::calls

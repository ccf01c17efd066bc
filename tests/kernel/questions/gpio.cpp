#include <array>
#include <cstring>
#include <fcntl.h>
#include <linux/gpio.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/kernel/questions/ask.h"

namespace {

constexpr const char* kPath = "/dev/gpiochip0";
constexpr std::uint32_t kReset = 11;   // RESET_B
constexpr std::uint32_t kTrigger = 12; // EXT_TRIG_EN

gpio_v2_line_request oneLine(std::uint32_t offset, std::uint64_t flags) {
    gpio_v2_line_request wanted{};
    wanted.offsets[0] = offset;
    wanted.num_lines = 1;
    wanted.config.flags = flags;
    std::strcpy(wanted.consumer, "questions");
    return wanted;
}

int request(int chip, gpio_v2_line_request& wanted) {
    return ioctl(chip, GPIO_V2_GET_LINE_IOCTL, &wanted) == 0 ? wanted.fd : -1;
}

/// A request that should be refused; its line is given back if it is not.
void ask(int chip, const std::string& name, gpio_v2_line_request wanted) {
    const tsGiven given(request(chip, wanted));
    tellOpened("gpio GET_LINE " + name, given);
    if (given.result >= 0) {
        close(static_cast<int>(given.result));
    }
}

void info(int chip, const std::string& name, std::uint32_t offset) {
    gpio_v2_line_info line{};
    line.offset = offset;
    const tsGiven given(ioctl(chip, GPIO_V2_GET_LINEINFO_IOCTL, &line));
    tell("gpio GET_LINEINFO " + name, given,
         std::string(line.name) + ", used by \"" + line.consumer + "\", flags " + hex(line.flags) +
             ", " + std::to_string(line.num_attrs) + " attributes");
}

void set(int line, const std::string& name, std::uint64_t bits, std::uint64_t mask) {
    gpio_v2_line_values values{.bits = bits, .mask = mask};
    tell("gpio SET_VALUES " + name, tsGiven(ioctl(line, GPIO_V2_LINE_SET_VALUES_IOCTL, &values)));
}

void get(int line, const std::string& name, std::uint64_t mask) {
    gpio_v2_line_values values{.bits = 0, .mask = mask};
    const tsGiven given(ioctl(line, GPIO_V2_LINE_GET_VALUES_IOCTL, &values));
    tell("gpio GET_VALUES " + name, given, hex(values.bits));
}

void configure(int line, const std::string& name, std::uint64_t flags) {
    gpio_v2_line_config config{};
    config.flags = flags;
    tell("gpio SET_CONFIG " + name, tsGiven(ioctl(line, GPIO_V2_LINE_SET_CONFIG_IOCTL, &config)));
}

void askRefusals(int chip) {
    gpio_v2_line_request wanted = oneLine(kReset, GPIO_V2_LINE_FLAG_OUTPUT);
    wanted.num_lines = 0;
    ask(chip, "of no line", wanted);
    wanted.num_lines = GPIO_V2_LINES_MAX + 1;
    ask(chip, "of 65 lines", wanted);
    ask(chip, "of a line that is not there", oneLine(1000, GPIO_V2_LINE_FLAG_OUTPUT));
    wanted = oneLine(kReset, GPIO_V2_LINE_FLAG_OUTPUT);
    wanted.offsets[1] = kReset;
    wanted.num_lines = 2;
    ask(chip, "of a line twice", wanted);
    wanted = oneLine(kReset, GPIO_V2_LINE_FLAG_OUTPUT);
    wanted.padding[0] = 1;
    ask(chip, "with padding", wanted);
    wanted = oneLine(kReset, GPIO_V2_LINE_FLAG_OUTPUT);
    wanted.config.padding[0] = 1;
    ask(chip, "with padding in its configuration", wanted);
    ask(chip, "in and out", oneLine(kReset, GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_OUTPUT));
    ask(chip, "with a flag nobody knows", oneLine(kReset, std::uint64_t{1} << 40));
    ask(chip, "with the flag of use", oneLine(kReset, GPIO_V2_LINE_FLAG_USED));
    ask(chip, "open drain, no direction", oneLine(kReset, GPIO_V2_LINE_FLAG_OPEN_DRAIN));
    ask(chip, "open drain and open source",
        oneLine(kReset, GPIO_V2_LINE_FLAG_OUTPUT | GPIO_V2_LINE_FLAG_OPEN_DRAIN |
                            GPIO_V2_LINE_FLAG_OPEN_SOURCE));
    ask(chip, "pulled up, no direction", oneLine(kReset, GPIO_V2_LINE_FLAG_BIAS_PULL_UP));
    ask(chip, "pulled up and down",
        oneLine(kReset, GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_BIAS_PULL_UP |
                            GPIO_V2_LINE_FLAG_BIAS_PULL_DOWN));
    ask(chip, "edges of an output",
        oneLine(kReset, GPIO_V2_LINE_FLAG_OUTPUT | GPIO_V2_LINE_FLAG_EDGE_RISING));
    wanted = oneLine(kReset, GPIO_V2_LINE_FLAG_OUTPUT);
    wanted.config.num_attrs = GPIO_V2_LINE_NUM_ATTRS_MAX + 1;
    ask(chip, "with 11 attributes", wanted);
    wanted.config.num_attrs = 1;
    wanted.config.attrs[0].mask = 1;
    wanted.config.attrs[0].attr.padding = 1;
    wanted.config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
    ask(chip, "with padding in an attribute", wanted);
}

void askOutput(int chip) {
    gpio_v2_line_request wanted = oneLine(kTrigger, GPIO_V2_LINE_FLAG_OUTPUT);
    const tcDevice line(request(chip, wanted));
    tellOpened("gpio GET_LINE EXT_TRIG_EN as output", tsGiven(line.get()));
    info(chip, "of an output", kTrigger);
    ask(chip, "of a line in use", oneLine(kTrigger, GPIO_V2_LINE_FLAG_OUTPUT));
    ask(chip, "of a line in use, as it is", oneLine(kTrigger, 0));
    get(line.get(), "of an output", 1);
    set(line.get(), "1", 1, 1);
    get(line.get(), "after 1", 1);
    set(line.get(), "of no line", 1, 0);
    get(line.get(), "of no line", 0);
    set(line.get(), "of a line too many", 0, 3);
    get(line.get(), "of a line too many", 3);
    set(line.get(), "of another line only", 0, 2);
    get(line.get(), "of another line only", 2);
    configure(line.get(), "active low", GPIO_V2_LINE_FLAG_OUTPUT | GPIO_V2_LINE_FLAG_ACTIVE_LOW);
    info(chip, "of an output that is active low", kTrigger);
    get(line.get(), "active low", 1);
    configure(line.get(), "with a flag nobody knows", std::uint64_t{1} << 40);
    configure(line.get(), "in and out", GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_OUTPUT);
    configure(line.get(), "input", GPIO_V2_LINE_FLAG_INPUT);
    set(line.get(), "of an input", 1, 1);
    info(chip, "of an output that is an input now", kTrigger);
    configure(line.get(), "output", GPIO_V2_LINE_FLAG_OUTPUT);
    int word = 0;
    tell("gpio ioctl on a line nobody knows",
         tsGiven(ioctl(line.get(), _IOR(0xB4, 99, int), &word)));
    tell("gpio chip's ioctl on a line", tsGiven(ioctl(line.get(), GPIO_GET_CHIPINFO_IOCTL, &word)));
    tell("gpio write to a line", tsGiven(write(line.get(), &word, sizeof word)));
    void* const mapped = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, line.get(), 0);
    tell("gpio mmap of a line", tsGiven(mapped == MAP_FAILED ? -1 : 0));
    tell("gpio SET_VALUES from nowhere",
         tsGiven(ioctl(line.get(), GPIO_V2_LINE_SET_VALUES_IOCTL, nowhere())));
    tell("gpio GET_VALUES to nowhere",
         tsGiven(ioctl(line.get(), GPIO_V2_LINE_GET_VALUES_IOCTL, nowhere())));
    tell("gpio SET_CONFIG from nowhere",
         tsGiven(ioctl(line.get(), GPIO_V2_LINE_SET_CONFIG_IOCTL, nowhere())));
}

// Values at once with the request, and lines together.
void askTwoLines(int chip) {
    gpio_v2_line_request wanted = oneLine(kReset, GPIO_V2_LINE_FLAG_OUTPUT);
    wanted.offsets[1] = kTrigger;
    wanted.num_lines = 2;
    wanted.config.num_attrs = 1;
    wanted.config.attrs[0].mask = 3;
    wanted.config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
    wanted.config.attrs[0].attr.values = 2;
    const tcDevice both(request(chip, wanted));
    tellOpened("gpio GET_LINE of two, with values", tsGiven(both.get()));
    get(both.get(), "of two", 3);
    get(both.get(), "of the second of two", 2);
    set(both.get(), "of the second of two", 0, 2);
    get(both.get(), "of two afterwards", 3);
}

} // namespace

void askGpio() {
    tellOpened("gpio open of a chip that is not there",
               tsGiven(tcDevice("/dev/gpiochip99", O_RDWR).get()));
    const tcDevice chip(kPath, O_RDWR);
    tellOpened("gpio open", tsGiven(chip.get()));
    gpiochip_info about{};
    const tsGiven told(ioctl(chip.get(), GPIO_GET_CHIPINFO_IOCTL, &about));
    tell("gpio GET_CHIPINFO", told, about.name);
    tell("gpio GET_CHIPINFO to nowhere",
         tsGiven(ioctl(chip.get(), GPIO_GET_CHIPINFO_IOCTL, nowhere())));
    info(chip.get(), "5", 5);
    info(chip.get(), "6", 6);
    info(chip.get(), "7", 7);
    info(chip.get(), "11", kReset);
    info(chip.get(), "12", kTrigger);
    info(chip.get(), "of a line that is not there", 1000);
    gpio_v2_line_info padded{};
    padded.offset = kReset;
    padded.padding[0] = 1;
    tell("gpio GET_LINEINFO with padding",
         tsGiven(ioctl(chip.get(), GPIO_V2_GET_LINEINFO_IOCTL, &padded)));
    tell("gpio GET_LINEINFO to nowhere",
         tsGiven(ioctl(chip.get(), GPIO_V2_GET_LINEINFO_IOCTL, nowhere())));
    tell("gpio GET_LINE from nowhere",
         tsGiven(ioctl(chip.get(), GPIO_V2_GET_LINE_IOCTL, nowhere())));
    int word = 0;
    tell("gpio ioctl nobody knows", tsGiven(ioctl(chip.get(), _IOR(0xB4, 99, int), &word)));
    tell("gpio write to the chip", tsGiven(write(chip.get(), &word, sizeof word)));
    void* const mapped = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, chip.get(), 0);
    tell("gpio mmap of the chip", tsGiven(mapped == MAP_FAILED ? -1 : 0));
    askRefusals(chip.get());
    askOutput(chip.get());
    info(chip.get(), "of a line that was given back", kTrigger);
    askTwoLines(chip.get());
    gpio_v2_line_request wanted =
        oneLine(kReset, GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_ACTIVE_LOW);
    const tcDevice input(request(chip.get(), wanted));
    tellOpened("gpio GET_LINE RESET_B as input, active low", tsGiven(input.get()));
    info(chip.get(), "of an input that is active low", kReset);
    set(input.get(), "of an input that was requested", 1, 1);
}

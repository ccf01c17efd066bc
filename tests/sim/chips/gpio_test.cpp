// The GPIO chip.

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/gpio.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teEventKind;
using testing::ElementsAre;

int offsetOf(int chip, const char* name) {
    gpiochip_info info{};
    if (ioctl(chip, GPIO_GET_CHIPINFO_IOCTL, &info) != 0) {
        return -1;
    }
    for (unsigned offset = 0; offset < info.lines; ++offset) {
        gpio_v2_line_info line{};
        line.offset = offset;
        if (ioctl(chip, GPIO_V2_GET_LINEINFO_IOCTL, &line) == 0 &&
            std::strcmp(line.name, name) == 0) {
            return static_cast<int>(offset);
        }
    }
    return -1;
}

TEST(Gpio, TheHeadsLinesAreFoundByName) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    EXPECT_EQ(offsetOf(chip.get(), "PS_1.2V_EN"), 5);
    EXPECT_EQ(offsetOf(chip.get(), "PS_3.3SVDD_EN"), 6);
    EXPECT_EQ(offsetOf(chip.get(), "PS_3.3AVDDH_EN"), 7);
    EXPECT_EQ(offsetOf(chip.get(), "RESET_B"), 11);
    EXPECT_EQ(offsetOf(chip.get(), "EXT_TRIG_EN"), 12);
    EXPECT_EQ(offsetOf(chip.get(), "NO_SUCH_LINE"), -1);
}

TEST(Gpio, RequestSetAndReleaseAreLinesInOrder) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    {
        const tcDescriptor line = requestOutput(chip.get(), lines::kTrigger, 1);
        ASSERT_TRUE(line.valid());
        EXPECT_EQ(head.line("EXT_TRIG_EN"), 1);
        EXPECT_EQ(getLevel(line), 1);
        EXPECT_EQ(setLevel(line, 0), 0);
        EXPECT_EQ(getLevel(line), 0);
    }
    EXPECT_THAT(
        head.lines(teEventKind::gpio),
        ElementsAre("GPIO EXT_TRIG_EN out 1", "GPIO EXT_TRIG_EN = 0", "GPIO EXT_TRIG_EN released"));
    EXPECT_EQ(head.line("EXT_TRIG_EN"), 0);
    EXPECT_EQ(head.line("NO_SUCH_LINE"), std::nullopt);
}

TEST(Gpio, AHeldLineIsBusyUntilItsLastCopyIsClosed) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    tcDescriptor line = requestOutput(chip.get(), lines::kReset, 0);
    tcDescriptor copy(dup(line.get()));
    EXPECT_FALSE(requestOutput(chip.get(), lines::kReset, 1).valid());
    EXPECT_EQ(errno, EBUSY);
    line = tcDescriptor();
    EXPECT_FALSE(requestOutput(chip.get(), lines::kReset, 1).valid());
    EXPECT_EQ(setLevel(copy, 1), 0); // the copy drives it as well
    copy = tcDescriptor();
    EXPECT_TRUE(requestOutput(chip.get(), lines::kReset, 0).valid());
    EXPECT_THAT(head.lines(teEventKind::gpio),
                ElementsAre("GPIO RESET_B out 0", "GPIO RESET_B out 1 failed EBUSY",
                            "GPIO RESET_B out 1 failed EBUSY", "GPIO RESET_B = 1",
                            "GPIO RESET_B released", "GPIO RESET_B out 0",
                            "GPIO RESET_B released"));
}

TEST(Gpio, AReleasedLineKeepsItsLevel) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    requestOutput(chip.get(), lines::kTrigger, 1);
    EXPECT_EQ(head.line("EXT_TRIG_EN"), 1);
}

TEST(Gpio, ReconfiguringALineDrivesItAgain) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor line = requestOutput(chip.get(), lines::kTrigger, 0);
    gpio_v2_line_config config{};
    config.flags = GPIO_V2_LINE_FLAG_OUTPUT;
    config.num_attrs = 1;
    config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
    config.attrs[0].attr.values = 1;
    config.attrs[0].mask = 1;
    ASSERT_EQ(ioctl(line.get(), GPIO_V2_LINE_SET_CONFIG_IOCTL, &config), 0);
    config.flags = GPIO_V2_LINE_FLAG_INPUT;
    ASSERT_EQ(ioctl(line.get(), GPIO_V2_LINE_SET_CONFIG_IOCTL, &config), 0);
    EXPECT_EQ(setLevel(line, 0), EPERM); // an input is not driven
    EXPECT_THAT(head.lines(teEventKind::gpio),
                ElementsAre("GPIO EXT_TRIG_EN out 0", "GPIO EXT_TRIG_EN out 1",
                            "GPIO EXT_TRIG_EN in", "GPIO EXT_TRIG_EN = 0 failed EPERM"));
}

TEST(Gpio, SeveralLinesOfOneRequestAreDrivenTogether) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    gpio_v2_line_request request{};
    request.offsets[0] = 3;
    request.offsets[1] = lines::kTrigger;
    request.num_lines = 2;
    request.config.flags = GPIO_V2_LINE_FLAG_OUTPUT;
    request.config.num_attrs = 1;
    request.config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_FLAGS;
    request.config.attrs[0].attr.flags = GPIO_V2_LINE_FLAG_OUTPUT | GPIO_V2_LINE_FLAG_ACTIVE_LOW;
    request.config.attrs[0].mask = 2;
    ASSERT_EQ(ioctl(chip.get(), GPIO_V2_GET_LINE_IOCTL, &request), 0);
    const tcDescriptor both(request.fd);
    gpio_v2_line_values values{};
    values.mask = 3;
    values.bits = 3;
    ASSERT_EQ(ioctl(both.get(), GPIO_V2_LINE_SET_VALUES_IOCTL, &values), 0);
    // The second line is active low: inactive is a high pin, active a low one.
    EXPECT_THAT(head.lines(teEventKind::gpio),
                ElementsAre("GPIO line 3 out 0", "GPIO EXT_TRIG_EN out 1", "GPIO line 3 = 1",
                            "GPIO EXT_TRIG_EN = 0"));
    values.bits = 0;
    ASSERT_EQ(ioctl(both.get(), GPIO_V2_LINE_GET_VALUES_IOCTL, &values), 0);
    EXPECT_EQ(values.bits, 3U);
}

TEST(Gpio, RequestsThatTheKernelRefusesAreRefused) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    EXPECT_FALSE(requestOutput(chip.get(), 29, 0).valid());
    EXPECT_EQ(errno, EINVAL);
    gpio_v2_line_info info{};
    info.offset = 29;
    EXPECT_EQ(ioctl(chip.get(), GPIO_V2_GET_LINEINFO_IOCTL, &info), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Gpio, MissingAndBusyLinesAreWhatTheBuilderSays) {
    const auto head =
        sim::aVirtualHead().withoutGpioLine("RESET_B").withBusyGpioLine("EXT_TRIG_EN").build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    EXPECT_EQ(offsetOf(chip.get(), "RESET_B"), -1);
    gpio_v2_line_info info{};
    info.offset = lines::kTrigger;
    ASSERT_EQ(ioctl(chip.get(), GPIO_V2_GET_LINEINFO_IOCTL, &info), 0);
    EXPECT_NE(info.flags & GPIO_V2_LINE_FLAG_USED, 0U);
    EXPECT_FALSE(requestOutput(chip.get(), lines::kTrigger, 0).valid());
    EXPECT_EQ(errno, EBUSY);
}

TEST(Gpio, OtherChipsAreAbsent) {
    const auto head = sim::aVirtualHead().build();
    EXPECT_FALSE(openDevice("/dev/gpiochip1").valid());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(head.lines(teEventKind::device), ElementsAre("OPEN /dev/gpiochip1 failed ENOENT"));
}

TEST(Gpio, TheChipCanHaveAnotherPathOrBeAbsent) {
    {
        const auto head = sim::aVirtualHead().withGpioChip("/dev/gpiochip3").build();
        EXPECT_TRUE(openDevice("/dev/gpiochip3").valid());
    }
    const auto head = sim::aVirtualHead().withoutGpioChip().build();
    EXPECT_FALSE(openDevice("/dev/gpiochip0").valid());
}

TEST(Gpio, PollingALineWaits) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor line = requestOutput(chip.get(), lines::kTrigger, 0);
    pollfd waiting{line.get(), POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 1), 0);
}

// Flags of a line as its LINEINFO has them.
std::uint64_t flagsOf(const tcDescriptor& chip, unsigned offset) {
    gpio_v2_line_info info{};
    info.offset = offset;
    EXPECT_EQ(ioctl(chip.get(), GPIO_V2_GET_LINEINFO_IOCTL, &info), 0);
    return info.flags;
}

TEST(Gpio, ActiveLowIsShownAndForgottenWithTheRequest) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    EXPECT_EQ(flagsOf(chip, lines::kTrigger), GPIO_V2_LINE_FLAG_INPUT);
    {
        gpio_v2_line_request request{};
        request.offsets[0] = lines::kTrigger;
        request.num_lines = 1;
        request.config.flags = GPIO_V2_LINE_FLAG_OUTPUT | GPIO_V2_LINE_FLAG_ACTIVE_LOW;
        ASSERT_EQ(ioctl(chip.get(), GPIO_V2_GET_LINE_IOCTL, &request), 0);
        const tcDescriptor line(request.fd);
        EXPECT_EQ(flagsOf(chip, lines::kTrigger),
                  GPIO_V2_LINE_FLAG_OUTPUT | GPIO_V2_LINE_FLAG_ACTIVE_LOW | GPIO_V2_LINE_FLAG_USED);
        EXPECT_EQ(getLevel(line), 0); // inactive, which is a high pin
    }
    EXPECT_EQ(head.line("EXT_TRIG_EN"), 1);
    EXPECT_EQ(flagsOf(chip, lines::kTrigger), GPIO_V2_LINE_FLAG_OUTPUT);
    gpio_v2_line_request again{}; // as it is: neither input nor output
    again.offsets[0] = lines::kTrigger;
    again.num_lines = 1;
    ASSERT_EQ(ioctl(chip.get(), GPIO_V2_GET_LINE_IOCTL, &again), 0);
    EXPECT_EQ(getLevel(tcDescriptor(again.fd)), 1);
}

TEST(Gpio, AnInputCanBeActiveLow) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    gpio_v2_line_request request{};
    request.offsets[0] = 2;
    request.num_lines = 1;
    request.config.flags = GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_ACTIVE_LOW;
    ASSERT_EQ(ioctl(chip.get(), GPIO_V2_GET_LINE_IOCTL, &request), 0);
    const tcDescriptor line(request.fd);
    EXPECT_EQ(head.line("HEAD_PRESENT_B"), 0);
    EXPECT_EQ(getLevel(line), 1);
}

TEST(Gpio, ValuesOfNoLineAreRefused) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor line = requestOutput(chip.get(), lines::kTrigger, 1);
    for (const std::uint64_t mask : {0ULL, 2ULL}) { // none, and one that the request does not have
        gpio_v2_line_values values{};
        values.mask = mask;
        errno = 0;
        EXPECT_EQ(ioctl(line.get(), GPIO_V2_LINE_GET_VALUES_IOCTL, &values), -1) << mask;
        EXPECT_EQ(errno, EINVAL) << mask;
    }
    EXPECT_TRUE(head.violations().empty());
}

TEST(Gpio, AnUnknownRequestOnALineIsInvalid) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor line = requestOutput(chip.get(), lines::kTrigger, 1);
    EXPECT_EQ(ioctl(line.get(), _IO('X', 1), nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    ASSERT_EQ(head.violations().size(), 1U);
    EXPECT_EQ(head.violations()[0].rule, "device-call");
    winsize size{}; // "is this a terminal?" is a fair question, answered in the same way
    EXPECT_EQ(ioctl(line.get(), TIOCGWINSZ, &size), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(head.violations().size(), 1U);
}

TEST(Gpio, TheOldInterfaceIsAViolation) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    gpiohandle_request request{};
    EXPECT_EQ(ioctl(chip.get(), GPIO_GET_LINEHANDLE_IOCTL, &request), -1);
    ASSERT_EQ(head.violations().size(), 1U);
    EXPECT_EQ(head.violations()[0].rule, "device-call");
}

} // namespace

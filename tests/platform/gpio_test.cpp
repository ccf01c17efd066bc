#include <pellum/gpio.h>

#include <cerrno>
#include <optional>
#include <thread>

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/platform/captured.h"

using Pellum::tcGpio;
using Pellum::tcGpioSingle;
using sim::aVirtualHead;
using sim::teCall;
using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kChip = "/dev/gpiochip0";

unsigned int pinOf(const char* name) {
    return static_cast<unsigned int>(tcGpio::GetPinFromDTName(name));
}

/// The line's place in texts: "/dev/gpiochip0 line 3".
std::string lineText(unsigned int pin) {
    return "/dev/gpiochip" + std::to_string(pin / 1024) + " line " + std::to_string(pin % 1024);
}

} // namespace

TEST(Gpio, FindsLinesByTheirNames) {
    const auto head = aVirtualHead().build();
    EXPECT_EQ(stderrOf([] {
                  for (const char* name : {"PS_1.2V_EN", "PS_3.3SVDD_EN", "PS_3.3AVDDH_EN",
                                           "RESET_B", "EXT_TRIG_EN"}) {
                      const int pin = tcGpio::GetPinFromDTName(name);
                      EXPECT_GE(pin, 0) << name;
                      EXPECT_LT(pin, 1024) << name; // all are on the first chip
                  }
              }),
              "");
    EXPECT_NE(pinOf("RESET_B"), pinOf("EXT_TRIG_EN"));
}

TEST(Gpio, TellsTheChipInThePin) {
    const auto head = aVirtualHead().withGpioChip("/dev/gpiochip3").build();
    const int pin = tcGpio::GetPinFromDTName("RESET_B");
    EXPECT_EQ(pin / 1024, 3);
}

TEST(Gpio, FindsNoLineOfAnotherName) {
    const auto head = aVirtualHead().withoutGpioLine("EXT_TRIG_EN").build();
    EXPECT_EQ(stderrOf([] {
                  EXPECT_LT(tcGpio::GetPinFromDTName("EXT_TRIG_EN"), 0);
                  EXPECT_LT(tcGpio::GetPinFromDTName("RESET"), 0);
                  EXPECT_LT(tcGpio::GetPinFromDTName("RESET_B2"), 0);
                  EXPECT_LT(tcGpio::GetPinFromDTName("reset_b"), 0);
                  EXPECT_LT(tcGpio::GetPinFromDTName(""), 0);
                  EXPECT_LT(tcGpio::GetPinFromDTName(nullptr), 0);
              }),
              "");
}

TEST(Gpio, LooksWithoutHoldingAnything) {
    const auto head = aVirtualHead().build();
    EXPECT_GE(tcGpio::GetPinFromDTName("RESET_B"), 0);
    EXPECT_THAT(head.lines(sim::kHardwareEvents), IsEmpty());
    EXPECT_THAT(head.lines(teEventKind::device),
                ElementsAre("OPEN /dev/gpiochip0", "CLOSE /dev/gpiochip0"));
}

TEST(Gpio, TellsThatThereIsNoChipAndWhatAChipRefuses) {
    EXPECT_EQ(stderrOf([] {
                  const auto head = aVirtualHead().withoutGpioChip().build();
                  EXPECT_LT(tcGpio::GetPinFromDTName("RESET_B"), 0);
                  EXPECT_LT(tcGpio::GetPinFromDTName("RESET_B"), 0);
              }),
              "tcGpio: /dev/gpiochip0: open: No such file or directory (errno 2)\n"
              "tcGpio: /dev/gpiochip0: open: No such file or directory (errno 2)\n");
    EXPECT_EQ(stderrOf([] {
                  const auto head =
                      aVirtualHead().withFailingCall(teCall::open, kChip, 1, EACCES).build();
                  EXPECT_LT(tcGpio::GetPinFromDTName("RESET_B"), 0);
              }),
              "tcGpio: /dev/gpiochip0: open: Permission denied (errno 13)\n");
    EXPECT_EQ(stderrOf([] {
                  const auto head =
                      aVirtualHead().withFailingCall(teCall::ioctl, kChip, 1, EIO).build();
                  EXPECT_LT(tcGpio::GetPinFromDTName("RESET_B"), 0);
              }),
              "tcGpio: /dev/gpiochip0: GPIO_GET_CHIPINFO: Input/output error (errno 5)\n");
    EXPECT_EQ(stderrOf([] {
                  const auto head =
                      aVirtualHead().withFailingCall(teCall::ioctl, kChip, 2, EIO).build();
                  EXPECT_LT(tcGpio::GetPinFromDTName("RESET_B"), 0);
              }),
              "tcGpio: /dev/gpiochip0: GPIO_V2_GET_LINEINFO: Input/output error (errno 5)\n");
}

TEST(GpioSingle, TouchesNoHardwareWhenItIsMade) {
    auto head = aVirtualHead().build();
    const unsigned int pin = pinOf("RESET_B");
    head.clearLog();
    { const tcGpioSingle line(pin); }
    EXPECT_THAT(head.lines(), IsEmpty());
}

TEST(GpioSingle, IsAnOutputAtTheGivenLevelFromTheFirstMomentOn) {
    auto head = aVirtualHead().withQuietViolations().build();
    tcGpioSingle low(pinOf("EXT_TRIG_EN"));
    tcGpioSingle high(pinOf("RESET_B"));
    head.clearLog();
    EXPECT_EQ(low.SetDirection(1, 0), 0);
    EXPECT_EQ(high.SetDirection(1, 1), 0);
    EXPECT_THAT(head.lines(teEventKind::gpio | teEventKind::device),
                ElementsAre("OPEN /dev/gpiochip0", "GPIO EXT_TRIG_EN out 0", "CLOSE /dev/gpiochip0",
                            "OPEN /dev/gpiochip0", "GPIO RESET_B out 1", "CLOSE /dev/gpiochip0"));
    EXPECT_EQ(head.line("EXT_TRIG_EN"), 0);
    EXPECT_EQ(head.line("RESET_B"), 1);
}

TEST(GpioSingle, ChangesItsLevelAndIsReleasedInTheEnd) {
    auto head = aVirtualHead().build();
    {
        tcGpioSingle line(pinOf("EXT_TRIG_EN"));
        EXPECT_EQ(line.SetDirection(1, 0), 0);
        head.clearLog();
        EXPECT_EQ(line.SetValue(1), 0);
        EXPECT_EQ(line.SetValue(0), 0);
        EXPECT_EQ(line.SetDirection(1, 1), 0); // held already: only the level changes
    }
    EXPECT_THAT(head.lines(teEventKind::gpio),
                ElementsAre("GPIO EXT_TRIG_EN = 1", "GPIO EXT_TRIG_EN = 0", "GPIO EXT_TRIG_EN = 1",
                            "GPIO EXT_TRIG_EN released"));
}

TEST(GpioSingle, ChangesItsDirectionWithoutLettingTheLineGo) {
    auto head = aVirtualHead().build();
    tcGpioSingle line(pinOf("EXT_TRIG_EN"));
    EXPECT_EQ(line.SetDirection(0, 0), 0);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(line.SetValue(1), -1); }),
              "tcGpioSingle: " + lineText(pinOf("EXT_TRIG_EN")) +
                  ": SetValue: Operation not permitted (errno 1)\n");
    head.clearLog();
    EXPECT_EQ(line.SetDirection(0, 0), 0); // an input already
    EXPECT_EQ(line.SetDirection(1, 1), 0);
    EXPECT_EQ(line.SetValue(0), 0);
    EXPECT_EQ(line.SetDirection(0, 0), 0);
    EXPECT_THAT(
        head.lines(teEventKind::gpio | teEventKind::device),
        ElementsAre("GPIO EXT_TRIG_EN out 1", "GPIO EXT_TRIG_EN = 0", "GPIO EXT_TRIG_EN in"));
}

TEST(GpioSingle, SharesItsLineWithItsCopies) {
    auto head = aVirtualHead().build();
    std::optional<tcGpioSingle> first(std::in_place, pinOf("EXT_TRIG_EN"));
    ASSERT_EQ(first->SetDirection(1, 0), 0);
    std::optional<tcGpioSingle> copy(*first);
    tcGpioSingle assigned(0);
    assigned = *first;
    head.clearLog();
    first.reset();
    EXPECT_EQ(copy->SetValue(1), 0);
    copy.reset();
    EXPECT_EQ(assigned.SetValue(0), 0);
    EXPECT_THAT(head.lines(teEventKind::gpio),
                ElementsAre("GPIO EXT_TRIG_EN = 1", "GPIO EXT_TRIG_EN = 0"));
}

TEST(GpioSingle, LetsItsLineGoWhenAnotherIsAssigned) {
    auto head = aVirtualHead().build();
    tcGpioSingle line(pinOf("EXT_TRIG_EN"));
    ASSERT_EQ(line.SetDirection(1, 0), 0);
    head.clearLog();
    line = tcGpioSingle(pinOf("RESET_B"));
    EXPECT_THAT(head.lines(teEventKind::gpio), ElementsAre("GPIO EXT_TRIG_EN released"));
}

TEST(GpioSingle, RefusesWhatIsNoDirectionAndNoLevel) {
    auto head = aVirtualHead().build();
    const unsigned int pin = pinOf("EXT_TRIG_EN");
    tcGpioSingle line(pin);
    head.clearLog();
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(line.SetDirection(2, 0), -1);
                  EXPECT_EQ(line.SetDirection(-1, 0), -1);
                  EXPECT_EQ(line.SetDirection(1, 2), -1);
                  EXPECT_EQ(line.SetDirection(1, -1), -1);
              }),
              "tcGpioSingle: " + lineText(pin) + ": SetDirection: Invalid argument (errno 22)\n");
    EXPECT_THAT(head.lines(), IsEmpty());
    ASSERT_EQ(line.SetDirection(1, 0), 0);
    head.clearLog();
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(line.SetValue(2), -1);
                  EXPECT_EQ(line.SetValue(-1), -1);
              }),
              "tcGpioSingle: " + lineText(pin) + ": SetValue: Invalid argument (errno 22)\n");
    EXPECT_THAT(head.lines(), IsEmpty());
}

TEST(GpioSingle, HasNoLevelBeforeItHasADirection) {
    auto head = aVirtualHead().build();
    const unsigned int pin = pinOf("EXT_TRIG_EN");
    tcGpioSingle line(pin);
    head.clearLog();
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(line.SetValue(1), -1); }),
              "tcGpioSingle: " + lineText(pin) + ": SetValue: Operation not permitted (errno 1)\n");
    EXPECT_THAT(head.lines(), IsEmpty());
}

TEST(GpioSingle, TellsThatSomebodyElseHoldsTheLine) {
    const auto head = aVirtualHead().withBusyGpioLine("EXT_TRIG_EN").build();
    const unsigned int pin = pinOf("EXT_TRIG_EN");
    tcGpioSingle line(pin);
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(line.SetDirection(1, 0), -1);
                  EXPECT_EQ(line.SetDirection(1, 0), -1);
              }),
              "tcGpioSingle: " + lineText(pin) +
                  ": GPIO_V2_GET_LINE: Device or resource busy (errno 16)\n");
}

TEST(GpioSingle, IsHeldOnceUnlessItIsShared) {
    const auto head = aVirtualHead().build();
    const unsigned int pin = pinOf("EXT_TRIG_EN");
    tcGpioSingle one(pin);
    tcGpioSingle two(pin);
    EXPECT_EQ(one.SetDirection(1, 0), 0);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(two.SetDirection(1, 0), -1); }),
              "tcGpioSingle: " + lineText(pin) +
                  ": GPIO_V2_GET_LINE: Device or resource busy (errno 16)\n");
}

TEST(GpioSingle, OfANameThatWasNotFoundTouchesNothing) {
    const auto head = aVirtualHead().build();
    tcGpioSingle line(static_cast<unsigned int>(-1));
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(line.SetDirection(1, 0), -1);
                  EXPECT_EQ(line.SetValue(1), -1);
              }),
              "tcGpioSingle: pin -1: SetDirection: No such device (errno 19)\n"
              "tcGpioSingle: pin -1: SetValue: Operation not permitted (errno 1)\n");
    EXPECT_THAT(head.lines(), IsEmpty());
}

TEST(GpioSingle, TellsThatItsChipIsMissing) {
    const auto head = aVirtualHead().build();
    tcGpioSingle line(5 * 1024 + 7);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(line.SetDirection(1, 0), -1); }),
              "tcGpioSingle: /dev/gpiochip5 line 7: open: No such file or directory (errno 2)\n");
}

TEST(GpioSingle, TellsWhatTheKernelRefuses) {
    auto head = aVirtualHead().build();
    const unsigned int pin = pinOf("EXT_TRIG_EN");
    tcGpioSingle line(pin);
    ASSERT_EQ(line.SetDirection(1, 0), 0);
    const std::uint64_t calls = head.calls(teCall::ioctl, kChip);
    head.failCall(teCall::ioctl, kChip, calls + 1, EIO);
    head.failCall(teCall::ioctl, kChip, calls + 2, EIO);
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(line.SetValue(1), -1);
                  EXPECT_EQ(line.SetDirection(0, 0), -1);
              }),
              "tcGpioSingle: " + lineText(pin) +
                  ": GPIO_V2_LINE_SET_VALUES: Input/output error (errno 5)\n"
                  "tcGpioSingle: " +
                  lineText(pin) + ": GPIO_V2_LINE_SET_CONFIG: Input/output error (errno 5)\n");
    EXPECT_EQ(line.SetValue(1), 0); // still the output that it was
}

TEST(GpioSingle, ServesSeveralThreads) {
    const auto head = aVirtualHead().build();
    tcGpioSingle line(pinOf("EXT_TRIG_EN"));
    ASSERT_EQ(line.SetDirection(1, 0), 0);
    const auto toggling = [](tcGpioSingle shared) {
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(shared.SetValue(i & 1), 0);
    };
    std::thread other(toggling, line);
    toggling(line);
    other.join();
    EXPECT_EQ(head.calls(teCall::ioctl, kChip) >= 200, true);
}

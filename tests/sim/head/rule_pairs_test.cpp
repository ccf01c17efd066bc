// Every rule of the head at its limit: what is just allowed, and one step further.

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <linux/gpio.h>
#include <linux/i2c-dev.h>
#include <linux/spi/spidev.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using testing::Each;
using testing::IsEmpty;
using namespace std::chrono_literals;
using std::this_thread::sleep_for;

using tcAct = std::function<void(sim::tcVirtualHead&, tcUser&)>;

// Software that just keeps a rule, and its nearest neighbour that does not.
struct tsPair {
    const char* rule;
    const char* name;
    tcAct within;
    tcAct beyond;
};

void PrintTo(const tsPair& pair, std::ostream* stream) {
    *stream << pair.rule << " by " << pair.name;
}

// The same doing with two values.
template<class Value, class Act>
tsPair limit(const char* rule, const char* name, Value within, Value beyond, Act act) {
    return {rule, name,
            [act, within](sim::tcVirtualHead& head, tcUser& user) { act(head, user, within); },
            [act, beyond](sim::tcVirtualHead& head, tcUser& user) { act(head, user, beyond); }};
}

// The same doing with a step, and without it or too late.
template<class Act>
tsPair step(const char* rule, const char* name, Act act) {
    return limit(rule, name, true, false, act);
}

void coreOn(tcUser& user) {
    setLevel(user.core, 1);
    sleep_for(1ms);
}

void suppliesOn(tcUser& user) {
    coreOn(user);
    setLevel(user.svdd, 1);
    setLevel(user.avddh, 1);
}

// Switches the ADC's reference on, and waits until it has settled.
void referenceOn(tcUser& user) {
    user.monitor.measure(0);
    sleep_for(5ms);
}

void ready(tcUser& user) {
    user.powerUp();
    user.configure();
}

void stream(tcUser& user) {
    user.port.writeRegister(0x10, 3);
}

void clockTo(tcUser& user, std::uint32_t counter) {
    user.clock.write(0xC0, counter);
    user.clock.write(0, 1);
}

// From here on nothing but time is missing to the PLL flags.
void receive(tcUser& user) {
    ready(user);
    user.port.writeRegister(0x10, 4);
    user.pulses.write(0, 0x80000000);
    user.frameControl.write(0, 0x80000000);
}

void resetLanes(tcUser& user) {
    user.frameControl.write(11, 0);
    user.frameControl.write(10, 0xFFF);
    user.frameControl.write(10, 0xFFF000);
    user.frameControl.write(10, 0);
}

void takeOver(const std::vector<std::uint32_t>& entries, std::uint32_t count) {
    tcRegisters control(0xFF215000, 4096);
    tcRegisters table(0xFF213000, 4096);
    tcRegisters commit(0xFF212000, 4096);
    for (std::size_t at = 0; at < entries.size(); ++at) {
        table.write(at, entries[at]);
    }
    control.write(4, count);
    commit.write(0, 1);
}

void mapRegisters(int openFlags, int mapFlags) {
    const int memory = open("/dev/mem", O_RDWR | openFlags);
    void* const page =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, mapFlags, memory, fileOffset(0xFF200000));
    EXPECT_NE(page, MAP_FAILED);
    munmap(page, 4096);
    close(memory);
}

using tcHead = sim::tcVirtualHead;

tsPair offWhileRunning(const char* name, tcDescriptor tcUser::*supply) {
    return step("supply-off-running", name, [supply](tcHead&, tcUser& user, bool inOrder) {
        user.powerUp();
        setLevel(user.reset, inOrder ? 0 : 1);
        setLevel(user.*supply, 0);
    });
}

// The commands go before the pauses: they take time on their bus.
tsPair threeVoltsMeasured(const char* name, std::uint8_t command) {
    return limit("adc-early", name, 300'000'000ns, 299'999'999ns,
                 [command](tcHead&, tcUser& user, std::chrono::nanoseconds pause) {
                     referenceOn(user);
                     user.monitor.command(command);
                     suppliesOn(user);
                     sleep_for(pause);
                     user.monitor.convert();
                 });
}

tsPair modeOtherThan0(const char* name, unsigned other) {
    return limit("spi-mode", name, 0U, other, [](tcHead&, tcUser& user, unsigned mode) {
        user.powerUp();
        EXPECT_EQ(user.port.setMode(mode), 0);
        user.port.writeRegister(0x20, 1);
    });
}

std::vector<tsPair> supplyPairs() {
    return {
        step("supply-order", "CoreBeforeSvdd",
             [](tcHead&, tcUser& user, bool inOrder) {
                 if (inOrder) {
                     coreOn(user);
                 }
                 setLevel(user.svdd, 1);
             }),
        step("supply-order", "SvddBeforeAvddh",
             [](tcHead&, tcUser& user, bool inOrder) {
                 coreOn(user);
                 if (inOrder) {
                     setLevel(user.svdd, 1);
                 }
                 setLevel(user.avddh, 1);
             }),
        step("supply-order", "TheOthersOffBeforeCoreOnAgain",
             [](tcHead&, tcUser& user, bool inOrder) {
                 coreOn(user);
                 setLevel(user.svdd, 1);
                 setLevel(user.core, 0);
                 if (inOrder) {
                     setLevel(user.svdd, 0);
                 }
                 setLevel(user.core, 1);
             }),
        limit("supply-delay", "OneMillisecond", 1'000'000ns, 999'999ns,
              [](tcHead&, tcUser& user, std::chrono::nanoseconds pause) {
                  setLevel(user.core, 1);
                  sleep_for(pause);
                  setLevel(user.svdd, 1);
              }),
        step("reset-early", "CoreOn",
             [](tcHead&, tcUser& user, bool on) {
                 suppliesOn(user);
                 sleep_for(300ms);
                 setLevel(user.core, on ? 1 : 0);
                 setLevel(user.reset, 1);
             }),
        step("reset-early", "SvddOn",
             [](tcHead&, tcUser& user, bool on) {
                 suppliesOn(user);
                 sleep_for(300ms);
                 setLevel(user.svdd, on ? 1 : 0);
                 setLevel(user.reset, 1);
             }),
        step("reset-early", "AvddhOn",
             [](tcHead&, tcUser& user, bool on) {
                 suppliesOn(user);
                 sleep_for(300ms);
                 setLevel(user.avddh, on ? 1 : 0);
                 setLevel(user.reset, 1);
             }),
        limit("reset-early", "AvddhFor300Milliseconds", 300'000'000ns, 299'999'999ns,
              [](tcHead&, tcUser& user, std::chrono::nanoseconds pause) {
                  coreOn(user);
                  setLevel(user.svdd, 1);
                  sleep_for(1s);
                  setLevel(user.avddh, 1);
                  sleep_for(pause);
                  setLevel(user.reset, 1);
              }),
        limit("reset-early", "SvddFor300Milliseconds", 300'000'000ns, 299'999'999ns,
              [](tcHead&, tcUser& user, std::chrono::nanoseconds pause) {
                  suppliesOn(user);
                  sleep_for(1s);
                  setLevel(user.svdd, 0);
                  setLevel(user.svdd, 1);
                  sleep_for(pause);
                  setLevel(user.reset, 1);
              }),
        offWhileRunning("ResetBeforeCore", &tcUser::core),
        offWhileRunning("ResetBeforeSvdd", &tcUser::svdd),
        offWhileRunning("ResetBeforeAvddh", &tcUser::avddh),
    };
}

std::vector<tsPair> measurementPairs() {
    using std::chrono::nanoseconds;
    return {
        limit("adc-early", "CoreForOneMillisecond", 1'000'000ns, 999'999ns,
              [](tcHead&, tcUser& user, nanoseconds pause) {
                  referenceOn(user);
                  user.monitor.command(0x8C);
                  setLevel(user.core, 1);
                  sleep_for(pause);
                  user.monitor.convert();
              }),
        threeVoltsMeasured("AvddhFor300Milliseconds", 0xCC),
        threeVoltsMeasured("SvddFor300Milliseconds", 0xAC),
        limit("adc-early", "TenMillisecondsAfterReset", 10'000'000ns, 9'999'999ns,
              [](tcHead&, tcUser& user, nanoseconds pause) {
                  referenceOn(user);
                  user.monitor.command(0x8C);
                  suppliesOn(user);
                  sleep_for(300ms);
                  setLevel(user.reset, 1);
                  sleep_for(pause);
                  user.monitor.convert();
              }),
        limit("adc-reference", "FiveMillisecondsOfRest", 5'000'000ns, 4'999'999ns,
              [](tcHead&, tcUser& user, nanoseconds pause) {
                  user.monitor.measure(0);
                  sleep_for(pause);
                  user.monitor.measure(0);
              }),
        limit("adc-reference", "ReferenceBit", 0x88, 0x80,
              [](tcHead&, tcUser& user, int command) {
                  user.monitor.command(static_cast<std::uint8_t>(command));
                  user.monitor.convert();
              }),
    };
}

std::vector<tsPair> wirePairs() {
    return {
        limit("sensor-asleep", "TenMillisecondsAfterReset", 10'000'000ns, 9'999'999ns,
              [](tcHead&, tcUser& user, std::chrono::nanoseconds pause) {
                  user.powerUp();
                  setLevel(user.reset, 0);
                  setLevel(user.reset, 1);
                  sleep_for(pause);
                  user.port.writeRegister(0x20, 1);
              }),
        step("sensor-asleep", "BeforePowerDown",
             [](tcHead&, tcUser& user, bool inOrder) {
                 user.powerUp();
                 if (inOrder) {
                     user.port.writeRegister(0x20, 1);
                 }
                 user.powerDown();
                 if (!inOrder) {
                     user.port.writeRegister(0x20, 1);
                 }
             }),
        modeOtherThan0("ClockPhase", 1),
        modeOtherThan0("ClockPolarity", 2),
        modeOtherThan0("ChipSelect", 0x40),
        limit("spi-word", "ThirtyTwoBits", 32, 31,
              [](tcHead&, tcUser& user, int bits) {
                  user.powerUp();
                  EXPECT_EQ(user.port.setBits(static_cast<std::uint8_t>(bits)), 0);
                  EXPECT_EQ(user.port.writeRegister(0x20, 1), 4);
              }),
        limit("spi-word", "MostSignificantBitFirst", 0, 1,
              [](tcHead&, tcUser& user, int lsbFirst) {
                  user.powerUp();
                  EXPECT_EQ(user.port.setLsbFirst(static_cast<std::uint8_t>(lsbFirst)), 0);
                  EXPECT_EQ(user.port.writeRegister(0x20, 1), 4);
              }),
        limit("spi-clock", "TenMegahertz", 10'000'000U, 10'000'001U,
              [](tcHead&, tcUser& user, unsigned hertz) {
                  user.powerUp();
                  EXPECT_EQ(user.port.setSpeed(hertz), 0);
                  EXPECT_EQ(user.port.writeRegister(0x20, 1), 4);
              }),
    };
}

std::vector<tsPair> registerPairs() {
    const auto writes = [](const char* rule, const char* name, std::uint32_t address,
                           std::uint32_t within, std::uint32_t beyond) {
        return limit(rule, name, within, beyond,
                     [address](tcHead&, tcUser& user, std::uint32_t value) {
                         user.powerUp();
                         user.port.writeRegister(address, value);
                     });
    };
    return {
        writes("register-limits", "FrameStateStopped", 0x10, 0, 1),
        writes("register-limits", "FrameStateLanesOn", 0x10, 4, 5),
        writes("register-limits", "Binning", 0x90, 0x40000, 0x80000),
        writes("register-limits", "CoarseGain", 0x40, 2, 3),
        writes("register-limits", "SecondCoarseGain", 0x41, 3, 4),
        writes("register-limits", "HighClockRange", 0xD8, 0x2D90F, 0x2D910),
        writes("register-limits", "LowClockRange", 0xD8, 0x4B90F, 0x4B90E),
        writes("area-limits", "LastRowPair", 0x94, 1027U << 11, 1028U << 11),
        writes("area-limits", "LastColumnUnit", 0x95, 431U << 12, 432U << 12),
        writes("area-limits", "RowsForwards", 0x96, 30U << 11 | 30, 30U << 11 | 31),
        writes("area-limits", "ColumnsForwards", 0xA3, 4U << 12 | 4, 4U << 12 | 5),
        writes("area-limits", "RowsOff", 0x94, 0x3FFFFF, 0x3FFFFE),
        writes("area-limits", "ColumnsOff", 0x95, 0x1FF1FF, 0x1FF1FE),
    };
}

// A frame of 4000 lines of 900 clocks: gs_pos1 3998, gres_pos 3996, acc_fpos 2798.
std::vector<tsPair> exposurePairs() {
    const auto streams = [](const char* name, std::uint32_t address, std::uint32_t within,
                            std::uint32_t beyond) {
        return limit("exposure-positions", name, within, beyond,
                     [address](tcHead&, tcUser& user, std::uint32_t value) {
                         ready(user);
                         user.port.writeRegister(address, value);
                         stream(user);
                     });
    };
    return {
        streams("StartBeforeTheShutter", 0x19, 3997, 3998),
        streams("ShutterInsideTheFrame", 0x1B, 3999, 4000),
        streams("ResetInsideTheFrame", 0x16, 3999, 4000),
        streams("SecondShutterAfterTheFirst", 0x1C, 3999, 3998),
        streams("SecondShutterInsideTheFrame", 0x1C, 3999, 4000),
        streams("SecondShutterUnused", 0x1C, 16383, 16382),
        // The word that is wrong ends 3.2 us after its change; the frame takes 100 ms.
        limit("exposure-positions", "MendedWithinAFrame", 99'996'799ns, 99'996'800ns,
              [](tcHead&, tcUser& user, std::chrono::nanoseconds pause) {
                  ready(user);
                  user.start();
                  user.port.writeRegister(0x19, 3998);
                  sleep_for(pause);
                  user.port.writeRegister(0x19, 2798);
              }),
    };
}

std::vector<tsPair> frameLengthPairs() {
    return {
        // 2056 rows in pairs, and 20 lines.
        limit("frame-length", "Readout", 1048U, 1047U,
              [](tcHead&, tcUser& user, std::uint32_t lines) {
                  ready(user);
                  user.port.writeRegister(0x12, lines);
                  user.port.writeRegister(0x1B, lines - 2);
                  user.port.writeRegister(0x16, lines - 4);
                  user.port.writeRegister(0x19, 10);
                  stream(user);
              }),
        limit("frame-length", "TwoReadouts", 2096U, 2095U,
              [](tcHead&, tcUser& user, std::uint32_t lines) {
                  ready(user);
                  user.port.writeRegister(0x12, lines);
                  user.port.writeRegister(0x1C, lines - 2);
                  user.port.writeRegister(0x1B, 1000);
                  user.port.writeRegister(0x16, 998);
                  user.port.writeRegister(0x19, 10);
                  stream(user);
              }),
        // 3999 whole lines; the last may be cut short.
        limit("frame-length", "Pulses", 3'599'100U, 3'599'099U,
              [](tcHead&, tcUser& user, std::uint32_t clocks) {
                  ready(user);
                  user.pulses.write(1, clocks);
                  user.pulses.write(0, 0x80000000);
                  stream(user);
              }),
    };
}

std::vector<tsPair> streamingPairs() {
    return {
        limit("scan-direction", "Vertical", 8U, 0U,
              [](tcHead&, tcUser& user, std::uint32_t second) {
                  ready(user);
                  user.frameControl.write(0, 2);
                  user.port.writeRegister(0x90, 0x20000);
                  user.port.writeRegister(0x6C, second);
                  stream(user);
              }),
        limit("scan-direction", "Horizontal", 1U, 0U,
              [](tcHead&, tcUser& user, std::uint32_t second) {
                  ready(user);
                  user.port.writeRegister(0x90, 0x10000);
                  user.port.writeRegister(0x6D, second);
                  stream(user);
              }),
        limit("pairs-flip", "FromTheBottom", 2U, 0U,
              [](tcHead&, tcUser& user, std::uint32_t control) {
                  ready(user);
                  user.port.writeRegister(0x90, 0x20000);
                  user.port.writeRegister(0x6C, 8);
                  user.frameControl.write(0, control);
                  stream(user);
              }),
        limit("pairs-flip", "FromTheTop", 0U, 2U,
              [](tcHead&, tcUser& user, std::uint32_t control) {
                  ready(user);
                  user.frameControl.write(0, control);
                  stream(user);
              }),
        limit("resolution", "Lines", 2056U, 2055U,
              [](tcHead&, tcUser& user, std::uint32_t lines) {
                  ready(user);
                  user.frameControl.write(8, lines << 16 | 2592);
                  stream(user);
              }),
        limit("resolution", "Pixels", 2592U, 2591U,
              [](tcHead&, tcUser& user, std::uint32_t pixels) {
                  ready(user);
                  user.frameControl.write(8, 2056U << 16 | pixels);
                  stream(user);
              }),
        limit("resolution", "AreasOfOneWidth", 431U, 430U,
              [](tcHead&, tcUser& user, std::uint32_t lastUnit) {
                  ready(user);
                  user.port.writeRegister(0x96, 29U << 11 | 20); // 20 rows more
                  user.port.writeRegister(0x97, lastUnit << 12);
                  user.frameControl.write(8, 2076U << 16 | 2592);
                  stream(user);
              }),
        step("resolution", "BinningBeforeTheAreas",
             [](tcHead&, tcUser& user, bool inOrder) {
                 ready(user);
                 user.frameControl.write(8, 1028U << 16 | 2592);
                 if (inOrder) {
                     user.port.writeRegister(0x90, 0x40000);
                 }
                 user.port.writeRegister(0x94, 0x201800);
                 user.port.writeRegister(0x90, 0x40000);
                 stream(user);
             }),
        limit("clock-range", "At36Megahertz", 0x2D90FU, 0x4B90FU,
              [](tcHead&, tcUser& user, std::uint32_t range) {
                  ready(user);
                  user.port.writeRegister(0xD8, range);
                  stream(user);
              }),
        limit("clock-range", "At24Megahertz", 0x4B90FU, 0x2D90FU,
              [](tcHead&, tcUser& user, std::uint32_t range) {
                  ready(user);
                  clockTo(user, 0x1617);
                  user.port.writeRegister(0xD8, range);
                  stream(user);
              }),
    };
}

std::vector<tsPair> clockPairs() {
    return {
        step("clock-update", "CounterBeforeTheUpdate",
             [](tcHead&, tcUser& user, bool inOrder) {
                 if (inOrder) {
                     user.clock.write(0xC0, 0x1617);
                 }
                 user.clock.write(0, 1);
             }),
        step("clock-update", "CounterBeforeEveryUpdate",
             [](tcHead&, tcUser& user, bool inOrder) {
                 clockTo(user, 0x1617);
                 if (inOrder) {
                     user.clock.write(0xC0, 0x1617);
                 }
                 user.clock.write(0, 1);
             }),
        limit("clock-update", "CounterOf24Megahertz", 0x1617U, 0x1616U,
              [](tcHead&, tcUser& user, std::uint32_t counter) { clockTo(user, counter); }),
        limit("clock-update", "CounterOf36Megahertz", 0x0F0FU, 0x0F10U,
              [](tcHead&, tcUser& user, std::uint32_t counter) { clockTo(user, counter); }),
        limit("clock-update", "One", 1U, 0U,
              [](tcHead&, tcUser& user, std::uint32_t update) {
                  user.clock.write(0xC0, 0x1617);
                  user.clock.write(0, update);
              }),
        limit("clock-while-sending", "LanesOff", 0U, 4U,
              [](tcHead&, tcUser& user, std::uint32_t frameState) {
                  ready(user);
                  user.port.writeRegister(0x10, frameState);
                  clockTo(user, 0x1617);
              }),
        step("clock-while-sending", "StopBeforeTheChange",
             [](tcHead&, tcUser& user, bool inOrder) {
                 ready(user);
                 user.start();
                 if (inOrder) {
                     user.stop();
                 }
                 clockTo(user, 0x0F0F);
                 user.stop();
             }),
    };
}

std::vector<tsPair> lanePairs() {
    using std::chrono::nanoseconds;
    return {
        limit("dpa-sequence", "AllPllFlagsSet", 3'000'000ns, 2'999'999ns,
              [](tcHead&, tcUser& user, nanoseconds pause) {
                  receive(user);
                  sleep_for(pause);
                  user.frameControl.write(10, 0xFFF);
              }),
        limit("dpa-sequence", "NoLaneHeld", 0U, 0x800U,
              [](tcHead&, tcUser& user, std::uint32_t held) {
                  receive(user);
                  sleep_for(3ms);
                  resetLanes(user);
                  sleep_for(4ms);
                  user.frameControl.write(11, 0xFFF);
                  user.frameControl.write(11, held);
                  user.frameControl.write(10, 0xFFF);
              }),
        limit("dpa-sequence", "DpaResetBeforeFifoReset", 0xFFFU, 0x7FFU,
              [](tcHead&, tcUser& user, std::uint32_t lanes) {
                  receive(user);
                  sleep_for(3ms);
                  user.frameControl.write(10, lanes);
                  user.frameControl.write(10, 0xFFF000);
              }),
        step("dpa-sequence", "FifoResetBeforeTheEnd",
             [](tcHead&, tcUser& user, bool inOrder) {
                 receive(user);
                 sleep_for(3ms);
                 user.frameControl.write(10, 0xFFF);
                 if (inOrder) {
                     user.frameControl.write(10, 0xFFF000);
                 }
                 user.frameControl.write(10, 0);
             }),
        limit("dpa-hold", "LockedFourMillisecondsAfterReset", 4'000'000ns, 3'999'999ns,
              [](tcHead&, tcUser& user, nanoseconds pause) {
                  receive(user);
                  sleep_for(3ms);
                  resetLanes(user);
                  sleep_for(pause);
                  user.frameControl.write(11, 0xFFF);
              }),
        limit("pulse-period", "TwoClocks", 2U, 1U,
              [](tcHead&, tcUser& user, std::uint32_t period) {
                  user.pulses.write(1, period);
                  user.pulses.write(0, 0x80000000);
              }),
        limit("pulse-period", "LongerThanThePulse", 99U, 100U,
              [](tcHead&, tcUser& user, std::uint32_t pulse) {
                  user.pulses.write(1, 100);
                  user.pulses.write(2, pulse);
                  user.pulses.write(0, 0x80000000);
              }),
    };
}

std::vector<tsPair> tablePairs() {
    const auto tables = [](const char* name, std::vector<std::uint32_t> within,
                           std::vector<std::uint32_t> beyond) {
        return limit("bad-pixel-table", name, std::move(within), std::move(beyond),
                     [](tcHead&, tcUser&, const std::vector<std::uint32_t>& entries) {
                         takeOver(entries, static_cast<std::uint32_t>(entries.size()));
                     });
    };
    return {
        // Line in 31..16, column in 15..0.
        tables("LastColumn", {0x0000'0A1F}, {0x0000'0A20}),
        tables("LastLine", {0x0807'0000}, {0x0808'0000}),
        tables("ColumnsInOrder", {0x0002'0001, 0x0002'0002}, {0x0002'0002, 0x0002'0002}),
        tables("LinesInOrder", {0x0001'0A1F, 0x0002'0000}, {0x0002'0000, 0x0001'0A1F}),
        limit("bad-pixel-table", "Entries", 1024U, 1025U,
              [](tcHead&, tcUser&, std::uint32_t count) {
                  std::vector<std::uint32_t> line;
                  for (std::uint32_t column = 0; column < 1024; ++column) {
                      line.push_back(column);
                  }
                  takeOver(line, count);
              }),
    };
}

std::vector<tsPair> accessPairs() {
    const auto loads = [](const char* rule, const char* name, std::size_t within,
                          std::size_t beyond) {
        return limit(rule, name, within, beyond, [](tcHead&, tcUser& user, std::size_t word) {
            static_cast<void>(user.frameControl.read(word));
        });
    };
    return {
        loads("fpga-unmodelled", "LoadBetweenRegisters", 2, 3),
        loads("fpga-unmodelled", "LoadBehindTheLastRegister", 130, 131),
        limit("fpga-unmodelled", "Store", 2U, 3U,
              [](tcHead&, tcUser& user, std::size_t word) { user.frameControl.write(word, 0); }),
        step("fpga-width", "Store",
             [](tcHead&, tcUser& user, bool wide) {
                 volatile void* const word = user.pulses.words() + 1;
                 if (wide) {
                     *static_cast<volatile std::uint32_t*>(word) = 1;
                 } else {
                     *static_cast<volatile std::uint16_t*>(word) = 1;
                 }
             }),
        step("fpga-width", "Load",
             [](tcHead&, tcUser& user, bool wide) {
                 volatile void* const word = user.pulses.words() + 1;
                 EXPECT_EQ(wide ? *static_cast<volatile std::uint32_t*>(word) : 0U, 0U);
                 if (!wide) {
                     static_cast<void>(*static_cast<volatile std::uint16_t*>(word));
                 }
             }),
        limit("fpga-read-only", "HoldAndLock", 11U, 12U,
              [](tcHead&, tcUser& user, std::size_t word) { user.frameControl.write(word, 0); }),
        loads("fpga-write-only", "LockAndIndexSync", 12, 13),
        step("fpga-write-only", "ClockUpdate",
             [](tcHead&, tcUser& user, bool store) {
                 user.clock.write(0xC0, 0x1617);
                 if (store) {
                     user.clock.write(0, 1);
                 } else {
                     static_cast<void>(user.clock.read(0));
                 }
             }),
        limit(
            "fpga-reserved", "Control", 3U, 4U,
            [](tcHead&, tcUser& user, std::uint32_t value) { user.frameControl.write(0, value); }),
        limit(
            "fpga-reserved", "LaneInversion", 0xFFFU, 0x1000U,
            [](tcHead&, tcUser& user, std::uint32_t value) { user.frameControl.write(2, value); }),
        limit("memory-range", "FirstPage", 0xFF200000U, 0xFF1FF000U,
              [](tcHead&, tcUser&, std::uint32_t address) { tcRegisters(address, 4096); }),
        limit("memory-range", "LastPage", 0xFF217000U, 0xFF218000U,
              [](tcHead&, tcUser&, std::uint32_t address) { tcRegisters(address, 4096); }),
        limit("memory-range", "LastByte", std::size_t{4096}, std::size_t{4097},
              [](tcHead&, tcUser&, std::size_t bytes) { tcRegisters(0xFF217000, bytes); }),
        limit("memory-cached", "Synchronous", O_SYNC, 0,
              [](tcHead&, tcUser&, int flags) { mapRegisters(flags, MAP_SHARED); }),
        limit("memory-cached", "SynchronousNotForDataOnly", O_SYNC, O_DSYNC,
              [](tcHead&, tcUser&, int flags) { mapRegisters(flags, MAP_SHARED); }),
        limit("memory-cached", "Shared", MAP_SHARED, MAP_PRIVATE,
              [](tcHead&, tcUser&, int flags) { mapRegisters(O_SYNC, flags); }),
    };
}

std::vector<tsPair> callPairs() {
    return {
        limit("device-call", "I2c", static_cast<unsigned long>(I2C_FUNCS),
              static_cast<unsigned long>(I2C_TENBIT),
              [](tcHead&, tcUser& user, unsigned long request) {
                  unsigned long functions = 0;
                  ioctl(user.monitor.descriptor(), request, &functions);
              }),
        limit("device-call", "Spi", static_cast<unsigned long>(SPI_IOC_RD_MODE32),
              static_cast<unsigned long>(SPI_IOC_RD_MODE32 + 1),
              [](tcHead&, tcUser& user, unsigned long request) {
                  std::uint32_t mode = 0;
                  ioctl(user.port.descriptor(), request, &mode);
              }),
        step("device-call", "Chip",
             [](tcHead&, tcUser& user, bool known) {
                 gpiochip_info info{};
                 if (known) {
                     EXPECT_EQ(ioctl(user.chip.get(), GPIO_GET_CHIPINFO_IOCTL, &info), 0);
                 } else {
                     EXPECT_EQ(read(user.chip.get(), &info, 1), -1);
                 }
             }),
        limit("log-full", "Capacity", 10'000, 10'001,
              [](tcHead& head, tcUser&, int notes) {
                  head.clearLog();
                  for (int note = 0; note < notes; ++note) {
                      head.note("x");
                  }
                  head.clearLog();
              }),
    };
}

const std::vector<tsPair>& pairs() {
    static const std::vector<tsPair> all = [] {
        std::vector<tsPair> result;
        for (const auto& topic :
             {supplyPairs(), measurementPairs(), wirePairs(), registerPairs(), exposurePairs(),
              frameLengthPairs(), streamingPairs(), clockPairs(), lanePairs(), tablePairs(),
              accessPairs(), callPairs()}) {
            result.insert(result.end(), topic.begin(), topic.end());
        }
        return result;
    }();
    return all;
}

std::vector<std::string> rulesBrokenBy(const tcAct& act) {
    auto head = sim::aVirtualHead().withQuietViolations().withLogCapacity(10'000).build();
    {
        tcUser user;
        act(head, user);
    }
    std::vector<std::string> names;
    for (const sim::tsViolation& violation : head.violations()) {
        names.push_back(violation.rule);
    }
    return names;
}

class RulePair : public testing::TestWithParam<tsPair> {};

TEST_P(RulePair, IsKeptAtItsLimit) {
    EXPECT_THAT(rulesBrokenBy(GetParam().within), IsEmpty());
}

TEST_P(RulePair, IsBrokenOneStepBeyondAndNoOther) {
    const std::vector<std::string> broken = rulesBrokenBy(GetParam().beyond);
    EXPECT_FALSE(broken.empty());
    EXPECT_THAT(broken, Each(std::string(GetParam().rule)));
}

INSTANTIATE_TEST_SUITE_P(Each, RulePair, testing::ValuesIn(pairs()), [](const auto& tested) {
    std::string name = std::string(tested.param.rule) + "_" + tested.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

// A rule that is new in the table needs a pair here.
TEST(RulePairs, CoverEveryRuleThatIsPrinted) {
    std::set<std::string> covered;
    for (const tsPair& pair : pairs()) {
        covered.insert(pair.rule);
    }
    std::set<std::string> printed;
    for (const sim::tsRule& rule : sim::rules()) {
        printed.insert(rule.name);
    }
    EXPECT_EQ(covered, printed);
    EXPECT_EQ(printed.size(), 33U);
}

} // namespace

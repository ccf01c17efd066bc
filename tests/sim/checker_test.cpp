// Every rule of the head, broken once, and the flows that break none.

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <linux/spi/spidev.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using testing::Each;
using testing::IsEmpty;
using namespace std::chrono_literals;

std::vector<std::string> brokenRules(const sim::tcVirtualHead& head) {
    std::vector<std::string> names;
    for (const sim::tsViolation& violation : head.violations()) {
        names.push_back(violation.rule);
    }
    return names;
}

TEST(NormalUse, BreaksNoRule) {
    auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    user.configure();
    EXPECT_EQ(user.bringUp(), 0);
    user.start();
    head.advance(2s);
    user.stop();
    user.powerDown();
    EXPECT_THAT(brokenRules(head), IsEmpty());
}

TEST(NormalUse, PoweringUpAgainWithoutPoweringDownBreaksNoRule) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    user.powerUp();
    EXPECT_THAT(brokenRules(head), IsEmpty());
}

TEST(NormalUse, TakingOverAHeadThatIsPoweredBreaksNoRule) {
    const auto head = sim::aVirtualHead().build();
    {
        tcUser user;
        user.powerUp();
    }
    tcUser second; // requests every line at level 0, supplies first
    second.powerUp();
    EXPECT_THAT(brokenRules(head), IsEmpty());
}

TEST(NormalUse, ChangingTheClockBreaksNoRule) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    user.configure();
    ASSERT_EQ(user.bringUp(), 0);
    user.frameControl.write(0, 0);
    user.clock.write(0xC0, 0x1617);
    user.clock.write(0, 1);
    EXPECT_EQ(user.bringUp(), 0);
    user.port.writeRegister(0xD8, 0x4B90F);
    user.start();
    user.stop();
    EXPECT_THAT(brokenRules(head), IsEmpty());
}

TEST(NormalUse, ChangingFrameAndExposureWhileStreamingBreaksNoRule) {
    auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    user.configure();
    user.start();
    head.advance(1s);
    // The frame becomes shorter first, the positions follow.
    user.port.writeRegister(0x12, 2000);
    user.port.writeRegister(0x1B, 1998);
    user.port.writeRegister(0x16, 1996);
    user.port.writeRegister(0x19, 1000);
    user.pulses.write(1, 1800000);
    head.advance(1s);
    user.stop();
    EXPECT_THAT(brokenRules(head), IsEmpty());
}

// Software that is about to do something wrong.
struct tsBreaking {
    const char* rule;
    const char* name;
    std::function<void(sim::tcVirtualHead&, tcUser&)> act;
};

void PrintTo(const tsBreaking& breaking, std::ostream* stream) {
    *stream << breaking.rule << " by " << breaking.name;
}

void streamAfter(tcUser& user, const std::function<void()>& change) {
    user.powerUp();
    user.configure();
    change();
    user.port.writeRegister(0x10, 3);
}

const std::vector<tsBreaking>& breakings() {
    static const std::vector<tsBreaking> all{
        {"supply-order", "SvddBeforeCore", [](auto&, tcUser& user) { setLevel(user.svdd, 1); }},
        {"supply-order", "AvddhBeforeSvdd",
         [](auto&, tcUser& user) {
             setLevel(user.core, 1);
             usleep(1000);
             setLevel(user.avddh, 1);
         }},
        {"supply-delay", "OneMicrosecondTooSoon",
         [](auto&, tcUser& user) {
             setLevel(user.core, 1);
             usleep(999);
             setLevel(user.svdd, 1);
         }},
        {"reset-early", "OneMicrosecondTooSoon",
         [](auto&, tcUser& user) {
             setLevel(user.core, 1);
             usleep(1000);
             setLevel(user.svdd, 1);
             setLevel(user.avddh, 1);
             usleep(299999);
             setLevel(user.reset, 1);
         }},
        {"reset-early", "WithoutSupplies", [](auto&, tcUser& user) { setLevel(user.reset, 1); }},
        {"supply-off-running", "CoreOffFirst",
         [](auto&, tcUser& user) {
             user.powerUp();
             setLevel(user.core, 0);
         }},
        {"adc-early", "AfterReset",
         [](auto&, tcUser& user) {
             user.monitor.command(0x8C);
             usleep(5000);
             setLevel(user.core, 1);
             usleep(1000);
             setLevel(user.svdd, 1);
             setLevel(user.avddh, 1);
             usleep(300000);
             setLevel(user.reset, 1);
             usleep(9000);
             user.monitor.measure(0);
         }},
        {"adc-early", "WhileTheSupplyRises",
         [](auto&, tcUser& user) {
             user.monitor.measure(0);
             usleep(5000);
             setLevel(user.core, 1);
             user.monitor.measure(0);
         }},
        {"adc-reference", "TwoReadingsInARow",
         [](auto&, tcUser& user) {
             user.monitor.measure(0);
             usleep(4999);
             user.monitor.measure(0);
         }},
        {"adc-reference", "ReferenceOff",
         [](auto&, tcUser& user) {
             user.monitor.command(0x84);
             user.monitor.convert();
         }},
        {"sensor-asleep", "BeforePowerUp",
         [](auto&, tcUser& user) { user.port.writeRegister(0x20, 1); }},
        {"sensor-asleep", "TooSoonAfterReset",
         [](auto&, tcUser& user) {
             user.powerUp();
             setLevel(user.reset, 0);
             setLevel(user.reset, 1);
             usleep(9999);
             user.port.writeRegister(0x20, 1);
         }},
        {"spi-mode", "Mode3",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.setMode(3);
             user.port.writeRegister(0x20, 1);
         }},
        {"spi-word", "SixteenBits",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.setBits(16);
             user.port.writeRegister(0x20, 1);
         }},
        {"spi-clock", "TwelveMegahertz",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.setSpeed(12'000'000);
             user.port.writeRegister(0x20, 1);
         }},
        {"register-limits", "FrameState",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.writeRegister(0x10, 1);
         }},
        {"register-limits", "Binning",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.writeRegister(0x90, 0x80000);
         }},
        {"register-limits", "ClockRange",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.writeRegister(0xD8, 0x12345);
         }},
        {"area-limits", "RowsOutside",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.writeRegister(0x94, 1028U << 11);
         }},
        {"area-limits", "ColumnsBackwards",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.writeRegister(0xA3, 3U << 12 | 4);
         }},
        {"exposure-positions", "ShutterBehindTheFrame",
         [](auto&, tcUser& user) {
             streamAfter(user, [&] { user.port.writeRegister(0x1B, 4000); });
         }},
        {"exposure-positions", "WhileStreaming",
         [](auto& head, tcUser& user) {
             user.powerUp();
             user.configure();
             user.start();
             user.port.writeRegister(0x19, 3999); // behind gs_pos1
             head.advance(99ms);
             EXPECT_THAT(brokenRules(head), IsEmpty()); // the frame is not over
             head.advance(1ms);
         }},
        {"frame-length", "ShorterThanItsReadout",
         [](auto&, tcUser& user) {
             streamAfter(user, [&] {
                 user.port.writeRegister(0x12, 1047); // 1028 + 20 are needed
                 user.port.writeRegister(0x1B, 1045);
                 user.port.writeRegister(0x16, 1043);
                 user.port.writeRegister(0x19, 10);
             });
         }},
        {"frame-length", "PulsesFasterThanFrames",
         [](auto&, tcUser& user) {
             streamAfter(user, [&] {
                 user.pulses.write(1, 3599000);
                 user.pulses.write(0, 0x80000000);
             });
         }},
        {"scan-direction", "OnePlaceOnly",
         [](auto&, tcUser& user) {
             streamAfter(user, [&] { user.port.writeRegister(0x90, 0x10000); });
         }},
        {"pairs-flip", "NotSwapped",
         [](auto&, tcUser& user) {
             streamAfter(user, [&] {
                 user.port.writeRegister(0x90, 0x20000);
                 user.port.writeRegister(0x6C, 8);
             });
         }},
        {"resolution", "OtherHeight",
         [](auto&, tcUser& user) {
             streamAfter(user, [&] { user.frameControl.write(8, 2054U << 16 | 2592); });
         }},
        {"resolution", "AreasOfDifferentWidths",
         [](auto&, tcUser& user) {
             streamAfter(user, [&] {
                 user.port.writeRegister(0x96, 29U << 11 | 20);
                 user.port.writeRegister(0x97, 43U << 12 | 4);
             });
         }},
        {"clock-range", "Stale",
         [](auto&, tcUser& user) {
             streamAfter(user, [&] { user.port.writeRegister(0xD8, 0x4B90F); });
         }},
        {"clock-update", "WithoutCounter", [](auto&, tcUser& user) { user.clock.write(0, 1); }},
        {"clock-update", "Twice",
         [](auto&, tcUser& user) {
             user.clock.write(0xC0, 0x1617);
             user.clock.write(0, 1);
             user.clock.write(0, 1);
         }},
        {"clock-update", "UnknownCounter",
         [](auto&, tcUser& user) {
             user.clock.write(0xC0, 0x1111);
             user.clock.write(0, 1);
         }},
        {"clock-update", "OtherThanOne", [](auto&, tcUser& user) { user.clock.write(0, 2); }},
        {"clock-while-sending", "LanesOn",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.port.writeRegister(0x10, 4);
             user.clock.write(0xC0, 0x1617);
             user.clock.write(0, 1);
         }},
        {"dpa-sequence", "FifoResetFirst",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.configure();
             EXPECT_EQ(user.bringUp(), 0);
             user.frameControl.write(10, 0xFFF000);
         }},
        {"dpa-sequence", "HeldLanes",
         [](auto&, tcUser& user) {
             user.powerUp();
             user.configure();
             EXPECT_EQ(user.bringUp(), 0);
             user.frameControl.write(10, 0xFFF);
         }},
        {"dpa-sequence", "WithoutPll",
         [](auto&, tcUser& user) {
             user.frameControl.write(0, 0x80000000);
             user.frameControl.write(10, 0xFFF);
         }},
        {"dpa-hold", "NotLocked",
         [](auto&, tcUser& user) {
             user.frameControl.write(0, 0x80000000);
             user.frameControl.write(11, 0xFFF);
         }},
        {"pulse-period", "NoPeriod", [](auto&, tcUser& user) { user.pulses.write(0, 0x80000000); }},
        {"pulse-period", "PulseAsLongAsThePeriod",
         [](auto&, tcUser& user) {
             user.pulses.write(1, 100);
             user.pulses.write(2, 100);
             user.pulses.write(0, 0x80000000);
         }},
        {"bad-pixel-table", "OutOfOrder",
         [](auto&, tcUser&) {
             tcRegisters control(0xFF215000, 4096);
             tcRegisters table(0xFF213000, 4096);
             tcRegisters takeOver(0xFF212000, 4096);
             table.write(0, 0x00020000);
             table.write(1, 0x00010000);
             control.write(4, 2);
             takeOver.write(0, 1);
         }},
        {"bad-pixel-table", "OutsideTheFrame",
         [](auto&, tcUser&) {
             tcRegisters control(0xFF215000, 4096);
             tcRegisters table(0xFF213000, 4096);
             tcRegisters takeOver(0xFF212000, 4096);
             table.write(0, 2592);
             control.write(4, 1);
             takeOver.write(0, 1);
         }},
        {"fpga-unmodelled", "Load",
         [](auto&, tcUser& user) { static_cast<void>(user.frameControl.read(3)); }},
        {"fpga-width", "Byte",
         [](auto&, tcUser& user) {
             volatile void* word = user.pulses.words();
             *static_cast<volatile std::uint8_t*>(word) = 1;
         }},
        {"fpga-read-only", "Status", [](auto&, tcUser& user) { user.frameControl.write(1, 0); }},
        {"fpga-write-only", "IndexSync",
         [](auto&, tcUser& user) { static_cast<void>(user.frameControl.read(13)); }},
        {"fpga-reserved", "Control", [](auto&, tcUser& user) { user.frameControl.write(0, 4); }},
        {"memory-range", "Outside", [](auto&, tcUser&) { tcRegisters(0xFF218000, 4096); }},
        {"memory-cached", "WithoutSync",
         [](auto&, tcUser&) {
             const int memory = open("/dev/mem", O_RDWR);
             munmap(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, memory, fileOffset(0xFF200000)),
                    4096);
             close(memory);
         }},
        {"device-call", "ReadFromTheChip",
         [](auto&, tcUser& user) {
             char byte = 0;
             EXPECT_EQ(read(user.chip.get(), &byte, 1), -1);
         }},
        {"log-full", "TooManyEvents",
         [](auto& head, tcUser&) {
             for (int note = 0; note < 20000; ++note) {
                 head.note("x");
             }
         }},
    };
    return all;
}

class Rule : public testing::TestWithParam<tsBreaking> {};

TEST_P(Rule, BrokenIsReportedAndNoOther) {
    auto head = sim::aVirtualHead().withQuietViolations().withLogCapacity(10000).build();
    {
        tcUser user;
        ASSERT_THAT(brokenRules(head), IsEmpty());
        GetParam().act(head, user);
    }
    EXPECT_FALSE(brokenRules(head).empty());
    EXPECT_THAT(brokenRules(head), Each(std::string(GetParam().rule)));
}

INSTANTIATE_TEST_SUITE_P(Each, Rule, testing::ValuesIn(breakings()), [](const auto& tested) {
    std::string name = std::string(tested.param.rule) + "_" + tested.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

TEST(Rules, EveryOneIsBrokenByATest) {
    std::set<std::string> tested;
    for (const tsBreaking& breaking : breakings()) {
        tested.insert(breaking.rule);
    }
    for (const sim::tsRule& rule : sim::rules()) {
        EXPECT_EQ(tested.count(rule.name), 1U) << rule.name;
    }
    EXPECT_EQ(tested.size(), sim::rules().size());
}

TEST(Rules, AViolationSaysWhenAndWhat) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcUser user;
    setLevel(user.core, 1);
    usleep(500);
    setLevel(user.svdd, 1);
    ASSERT_EQ(head.violations().size(), 1U);
    EXPECT_EQ(head.violations()[0].time, 500us);
    EXPECT_EQ(head.violations()[0].text,
              "PS_3.3SVDD_EN went high 500.000 us after PS_1.2V_EN; 1000 us are needed");
}

// --- Near misses ---

TEST(Rules, AFrameJustAsLongAsItsReadoutIsLongEnough) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    tcUser user;
    streamAfter(user, [&] {
        user.port.writeRegister(0x12, 1048);
        user.port.writeRegister(0x1B, 1046);
        user.port.writeRegister(0x16, 1044);
        user.port.writeRegister(0x19, 10);
    });
    EXPECT_THAT(brokenRules(head), IsEmpty());
}

TEST(Rules, TwoShutterPositionsNeedTwiceTheLines) {
    for (const auto& [lines, rules] : {std::pair{2096U, 0U}, std::pair{2095U, 1U}}) {
        const auto head = sim::aVirtualHead().withQuietViolations().build();
        tcUser user;
        streamAfter(user, [&user, lines = lines] {
            user.port.writeRegister(0x12, lines);
            user.port.writeRegister(0x1C, lines - 2);
            user.port.writeRegister(0x1B, 1000);
            user.port.writeRegister(0x16, 998);
            user.port.writeRegister(0x19, 10);
        });
        EXPECT_EQ(head.violations().size(), rules) << lines;
    }
}

TEST(Rules, ExternalTriggersSetTheirOwnPositions) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    tcUser user;
    user.powerUp();
    user.configure();
    user.port.writeRegister(0x12, 1086);
    user.port.writeRegister(0x16, 16381);
    user.port.writeRegister(0x10, 0x303);
    EXPECT_THAT(brokenRules(head), IsEmpty());
}

TEST(Rules, LinesThatAreTakenOverMayDropTheSupplies) {
    const auto head = sim::aVirtualHead().build();
    { tcUser().powerUp(); }
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 0);
    EXPECT_THAT(brokenRules(head), IsEmpty());
    EXPECT_FALSE(head.sensorAlive());
}

} // namespace

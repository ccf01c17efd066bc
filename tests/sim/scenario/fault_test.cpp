// Faults that come and go while the head runs.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <gmock/gmock.h>
#include <linux/i2c-dev.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teEventKind;
using sim::tsEvent;
using sim::tsFault;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::chrono_literals;
using std::chrono::nanoseconds;

// Milliseconds as a fault has them.
std::string ms(nanoseconds time) {
    const auto ns = time.count();
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%lld.%06lld", static_cast<long long>(ns / 1'000'000),
                  static_cast<long long>(ns % 1'000'000));
    return text.data();
}

void sleepTo(const sim::tcVirtualHead& head, nanoseconds time) {
    const nanoseconds duration = time - head.now();
    ASSERT_GE(duration, 0ns);
    const timespec request{static_cast<time_t>(duration / 1s),
                           static_cast<decltype(timespec::tv_nsec)>((duration % 1s).count())};
    ASSERT_EQ(nanosleep(&request, nullptr), 0);
}

bool triggerLineIsFree() {
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    return requestOutput(chip.get(), lines::kTrigger, 0).valid();
}

// --- When ---

TEST(Fault, BeginsAndEndsAtItsTimesToTheNanosecond) {
    const auto head =
        sim::aVirtualHead()
            .withFault(
                {.name = "held", .what = "line EXT_TRIG_EN busy", .at = "450", .lasts = "20"})
            .build();
    sleepTo(head, 449'999'999ns);
    EXPECT_TRUE(triggerLineIsFree());
    sleepTo(head, 450ms);
    EXPECT_FALSE(triggerLineIsFree());
    EXPECT_EQ(errno, EBUSY);
    sleepTo(head, 469'999'999ns);
    EXPECT_FALSE(triggerLineIsFree());
    sleepTo(head, 470ms);
    EXPECT_TRUE(triggerLineIsFree());
    EXPECT_THAT(head.timedLines(teEventKind::note),
                ElementsAre("[    0.450000000] NOTE fault held begins",
                            "[    0.470000000] NOTE fault held ends"));
}

TEST(Fault, ThatComesAndGoesInOneSleepIsLoggedAtItsTimes) {
    const auto head =
        sim::aVirtualHead()
            .withFault({.name = "a", .what = "ADC floats", .at = "2.5", .until = "7.000001"})
            .withFault({.name = "b", .what = "ADC floats", .at = "1"})
            .build();
    usleep(10000);
    EXPECT_THAT(head.timedLines(), ElementsAre("[    0.000000000] SLEEP 10000000 ns",
                                               "[    0.001000000] NOTE fault b begins",
                                               "[    0.002500000] NOTE fault a begins",
                                               "[    0.007000001] NOTE fault a ends"));
}

TEST(Fault, WithoutTimesIsThereFromTheStartForEver) {
    const auto head =
        sim::aVirtualHead().withFault({.name = "held", .what = "line EXT_TRIG_EN busy"}).build();
    EXPECT_FALSE(triggerLineIsFree());
    usleep(1'000'000);
    EXPECT_FALSE(triggerLineIsFree());
    EXPECT_THAT(head.timedLines(teEventKind::note),
                ElementsAre("[    0.000000000] NOTE fault held begins"));
}

TEST(Fault, BeginsWithTheNthEventAndEndsWithTheNthSinceThen) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "held",
                                      .what = "line EXT_TRIG_EN busy",
                                      .after = "2 SLEEP 1000 ns",
                                      .until = "3 SLEEP 1000 ns"})
                          .build();
    std::string seen;
    for (int sleeps = 0; sleeps < 6; ++sleeps) {
        seen += triggerLineIsFree() ? "free " : "busy ";
        usleep(1);
        usleep(10); // another event: "SLEEP 10000 ns"
    }
    EXPECT_EQ(seen, "free free busy busy busy free ");
    EXPECT_THAT(head.timedLines(teEventKind::note),
                ElementsAre("[    0.000011000] NOTE fault held begins",
                            "[    0.000044000] NOTE fault held ends"));
}

TEST(Fault, CountsTheEventsWhoseLinesBeginWithWholeWords) {
    const auto head =
        sim::aVirtualHead()
            .withFault({.name = "part", .what = "ADC floats", .after = "SLEEP 100"})
            .withFault({.name = "words", .what = "ADC floats", .after = "2   SLEEP   1000"})
            .withFault({.name = "word", .what = "ADC floats", .after = "SLEEP"})
            .withFault({.name = "line", .what = "ADC floats", .after = "SLEEP 1000 ns"})
            .withFault({.name = "more", .what = "ADC floats", .after = "SLEEP 1000 ns more"})
            .withFault({.name = "other", .what = "ADC floats", .after = "SPI"})
            .build();
    tcPort port;
    port.setSpeed(1); // "SPI-HZ 1"
    usleep(1);
    usleep(1);
    std::vector<std::string> struck;
    for (const auto& fault : head.faults()) {
        if (fault.began) {
            struck.push_back(fault.name);
        }
    }
    EXPECT_THAT(struck, ElementsAre("words", "word", "line"));
}

TEST(Fault, RefusedCallsAreEventsToo) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "third",
                                      .what = "memory fails EMFILE",
                                      .after = "2 OPEN /dev/mem",
                                      .until = "OPEN /dev/mem"})
                          .build();
    EXPECT_TRUE(openDevice("/dev/mem").valid());
    EXPECT_TRUE(openDevice("/dev/mem").valid());
    EXPECT_FALSE(openDevice("/dev/mem").valid());
    EXPECT_EQ(errno, EMFILE);
    EXPECT_TRUE(openDevice("/dev/mem").valid());
}

TEST(Fault, CanBeginWithAnotherOne) {
    const auto head =
        sim::aVirtualHead()
            .withFault({.name = "second", .what = "ADC floats", .after = "NOTE fault first ends"})
            .withFault({.name = "first", .what = "ADC floats", .at = "1", .lasts = "2"})
            .build();
    usleep(5000);
    EXPECT_THAT(head.timedLines(teEventKind::note),
                ElementsAre("[    0.001000000] NOTE fault first begins",
                            "[    0.003000000] NOTE fault first ends",
                            "[    0.003000000] NOTE fault second begins"));
}

TEST(Fault, WhoseEndCameBeforeItsBeginEndsAtOnce) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "late",
                                      .what = "line EXT_TRIG_EN busy",
                                      .after = "SLEEP 2000000 ns",
                                      .until = "1"})
                          .build();
    usleep(1500);
    usleep(2000);
    EXPECT_TRUE(triggerLineIsFree());
    EXPECT_THAT(head.timedLines(teEventKind::note),
                ElementsAre("[    0.001500000] NOTE fault late begins",
                            "[    0.001500000] NOTE fault late ends"));
}

TEST(Fault, MeetsACallInItsMiddle) {
    // The supply goes while the first of two transfers takes its time.
    sim::tcVirtualHeadBuilder builder = sim::aVirtualHead();
    nanoseconds ready{};
    {
        const auto head = builder.build();
        tcUser user;
        user.powerUp();
        ready = head.now();
    }
    const auto head = builder
                          .withFault({.name = "gone",
                                      .what = "rail VDD1.2 0.5",
                                      .at = ms(ready + 500us),
                                      .lasts = "100"})
                          .withQuietViolations()
                          .build();
    tcUser user;
    user.powerUp();
    const std::array<std::uint8_t, 4> first{1, 0, 0, 8};   // register 0x20
    const std::array<std::uint8_t, 4> second{2, 0, 64, 8}; // register 0x21
    std::array<spi_ioc_transfer, 2> transfers{};
    for (std::size_t at = 0; at < 2; ++at) {
        const void* bytes = at == 0 ? first.data() : second.data();
        std::memcpy(&transfers[at].tx_buf, &bytes, sizeof bytes);
        transfers[at].len = 4;
        transfers[at].cs_change = 1;
        transfers[at].delay_usecs = 1000;
    }
    ASSERT_EQ(ioctl(user.port.descriptor(), SPI_IOC_MESSAGE(2), transfers.data()), 8);
    EXPECT_THAT(head.sensorRegisters(), IsEmpty());
    const auto differences = head.compareShadow({{0x20, 1}, {0x21, 2}});
    ASSERT_EQ(differences.size(), 2U);
    EXPECT_EQ(differences[0].why, "cleared by power loss");
    EXPECT_EQ(differences[1].why, "lost: the sensor was asleep");
}

TEST(Fault, KeepsItsTimeInRealTime) {
    const auto head = sim::aVirtualHead()
                          .withRealTime()
                          .withFault({.name = "a", .what = "ADC floats", .at = "5", .lasts = "3"})
                          .build();
    usleep(20000);
    EXPECT_THAT(head.timedLines(teEventKind::note),
                ElementsAre("[    0.005000000] NOTE fault a begins",
                            "[    0.008000000] NOTE fault a ends"));
}

TEST(Fault, DoesNotGoBackInRealTimeBehindWhatItsEventDid) {
    const auto head =
        sim::aVirtualHead()
            .withRealTime()
            .withStateEvents()
            .withFault({.name = "a", .what = "ADC floats", .after = "GPIO PS_1.2V_EN out 1"})
            .build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 1);
    const auto events = head.log(teEventKind::gpio | teEventKind::state | teEventKind::note);
    ASSERT_GE(events.size(), 3U);
    EXPECT_EQ(events[0].text, "GPIO PS_1.2V_EN out 1");
    EXPECT_THAT(events, Contains(Field(&tsEvent::text, "NOTE fault a begins")));
    // The level starts a ramp, and what the ramp leads to lies ahead of the level. On a slow
    // machine the fault begins later still.
    EXPECT_TRUE(
        std::is_sorted(events.begin(), events.end(), [](const tsEvent& one, const tsEvent& other) {
            return one.time < other.time;
        }));
}

// --- Several at a time ---

std::vector<double> voltsEvery10ms(const sim::tcVirtualHead& head) {
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 1);
    std::vector<double> volts;
    usleep(5000);
    for (int at = 0; at < 5; ++at) {
        volts.push_back(head.rail("VDD1.2"));
        usleep(10000);
    }
    return volts;
}

TEST(Fault, NamedLaterWinsWhileBothLast) {
    const tsFault low{.name = "low", .what = "rail VDD1.2 0.9", .at = "10", .lasts = "20"};
    const tsFault high{.name = "high", .what = "rail VDD1.2 +0.3", .at = "20", .lasts = "20"};
    {
        const auto head = sim::aVirtualHead().withFault(low).withFault(high).build();
        EXPECT_THAT(voltsEvery10ms(head), ElementsAre(1.2, 0.9, 1.5, 1.5, 1.2));
    }
    const auto head = sim::aVirtualHead().withFault(high).withFault(low).build();
    EXPECT_THAT(voltsEvery10ms(head), ElementsAre(1.2, 0.9, 0.9, 1.5, 1.2));
}

TEST(Fault, LeavesWhatTheScenarioSaysBehind) {
    const auto head =
        sim::aVirtualHead()
            .withRail("VDD1.2", 1.0)
            .withFault({.name = "low", .what = "rail VDD1.2 0.9", .at = "10", .lasts = "20"})
            .build();
    EXPECT_THAT(voltsEvery10ms(head), ElementsAre(1.0, 0.9, 0.9, 1.0, 1.0));
}

TEST(Fault, OfDifferentThingsAddUp) {
    const auto head =
        sim::aVirtualHead()
            .withFault({.name = "trigger", .what = "line EXT_TRIG_EN busy"})
            .withFault({.name = "reset", .what = "line RESET_B busy", .at = "1", .lasts = "1"})
            .build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    usleep(1000);
    EXPECT_FALSE(requestOutput(chip.get(), lines::kTrigger, 0).valid());
    EXPECT_FALSE(requestOutput(chip.get(), lines::kReset, 0).valid());
    usleep(1000);
    EXPECT_FALSE(requestOutput(chip.get(), lines::kTrigger, 0).valid());
    EXPECT_TRUE(requestOutput(chip.get(), lines::kReset, 0).valid());
}

// --- Supplies ---

// Supplies on and reset released, by hand: at 0, 1, 301 ms; the sensor wakes at 311 ms.
class tcPoweredHead {
public:
    explicit tcPoweredHead(const tsFault& fault)
        : head(
              sim::aVirtualHead().withStateEvents().withQuietViolations().withFault(fault).build()),
          m_chip(openDevice("/dev/gpiochip0")),
          m_core(requestOutput(m_chip.get(), lines::kCore, 1)) {
        usleep(1000);
        m_svdd = requestOutput(m_chip.get(), lines::kSvdd, 1);
        m_avddh = requestOutput(m_chip.get(), lines::kAvddh, 1);
        usleep(300000);
        m_reset = requestOutput(m_chip.get(), lines::kReset, 1);
        usleep(10000);
    }
    sim::tcVirtualHead head;

private:
    tcDescriptor m_chip;
    tcDescriptor m_core;
    tcDescriptor m_svdd;
    tcDescriptor m_avddh;
    tcDescriptor m_reset;
};

TEST(SupplyFault, DroopsInAStraightLineUntilTheSensorDies) {
    tcPoweredHead powered(
        {.name = "droop", .what = "rail VDD1.2 droops 0.3 over 20", .at = "400", .until = "500"});
    sim::tcVirtualHead& head = powered.head;
    tcPort port;
    port.configure();
    ASSERT_EQ(port.writeRegister(0x20, 1), 4);
    head.clearLog();
    sleepTo(head, 410ms);
    EXPECT_DOUBLE_EQ(head.rail("VDD1.2"), 1.05);
    sleepTo(head, 412ms); // 1.02 V, 85 %
    EXPECT_TRUE(head.sensorAlive());
    EXPECT_EQ(head.sensorRegister(0x20), 1U);
    sleepTo(head, 412'000'001ns);
    EXPECT_FALSE(head.sensorAlive());
    EXPECT_EQ(head.sensorRegister(0x20), std::nullopt);
    EXPECT_EQ(head.compareShadow({{0x20, 1}})[0].why, "cleared by power loss");
    sleepTo(head, 450ms);
    EXPECT_DOUBLE_EQ(head.rail("VDD1.2"), 0.9);
    sleepTo(head, 600ms);
    EXPECT_DOUBLE_EQ(head.rail("VDD1.2"), 1.2);
    EXPECT_TRUE(head.sensorAlive());
    EXPECT_THAT(
        head.timedLines(teEventKind::state | teEventKind::note),
        ElementsAre(
            "[    0.400000000] NOTE fault droop begins",
            "[    0.400000000] STATE VDD1.2 900000 20000000",
            "[    0.412000001] STATE VDD1.2-GOOD 0", "[    0.412000001] STATE SENSOR-AWAKE 0",
            "[    0.500000000] NOTE fault droop ends", "[    0.500000000] STATE VDD1.2 1200000 0",
            "[    0.500000000] STATE VDD1.2-GOOD 1", "[    0.500000000] STATE SENSOR-AWAKE 1"));
}

TEST(SupplyFault, DroopInOneSleepKillsTheSensorOnItsWay) {
    tcPoweredHead powered({.name = "droop",
                           .what = "rail VDD3.3SVDD droops 3.3 over 1000",
                           .at = "400",
                           .lasts = "900"});
    powered.head.clearLog();
    sleepTo(powered.head, 2s);
    // 15 % of it are 150 ms.
    EXPECT_THAT(powered.head.timedLines(teEventKind::state),
                ElementsAre("[    0.400000000] STATE VDD3.3SVDD 0 1000000000",
                            "[    0.550000001] STATE VDD3.3SVDD-GOOD 0",
                            "[    0.550000001] STATE SENSOR-AWAKE 0",
                            "[    1.300000000] STATE VDD3.3SVDD 3300000 0",
                            "[    1.300000000] STATE VDD3.3SVDD-GOOD 1",
                            "[    1.300000000] STATE SENSOR-AWAKE 1"));
}

TEST(SupplyFault, DipAboveTheLimitLeavesTheSensorAlone) {
    tcPoweredHead powered(
        {.name = "dip", .what = "rail VDD3.3AVDDH -0.4", .at = "400", .lasts = "100"});
    tcPort port;
    port.configure();
    ASSERT_EQ(port.writeRegister(0x20, 1), 4);
    powered.head.clearLog();
    sleepTo(powered.head, 450ms);
    EXPECT_DOUBLE_EQ(powered.head.rail("VDD3.3AVDDH"), 2.9); // 2.805 V is the limit
    sleepTo(powered.head, 550ms);
    EXPECT_EQ(powered.head.sensorRegister(0x20), 1U);
    EXPECT_THAT(powered.head.timedLines(teEventKind::state),
                ElementsAre("[    0.400000000] STATE VDD3.3AVDDH 2900000 0",
                            "[    0.500000000] STATE VDD3.3AVDDH 3300000 0"));
}

TEST(SupplyFault, RailThatIsLowWhenItIsSwitchedOnRisesToWhatItIs) {
    const auto head = sim::aVirtualHead()
                          .withStateEvents()
                          .withFault({.name = "low", .what = "rail VDD1.2 0.6", .until = "1"})
                          .build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 1);
    sleepTo(head, 250us);
    EXPECT_DOUBLE_EQ(head.rail("VDD1.2"), 0.3);
    sleepTo(head, 2ms);
    EXPECT_THAT(head.timedLines(teEventKind::state),
                ElementsAre("[    0.000000000] STATE VDD1.2 600000 500000",
                            "[    0.001000000] STATE VDD1.2 1200000 0",
                            "[    0.001000000] STATE VDD1.2-GOOD 1"));
}

TEST(SupplyFault, UnreadableRailGivesNoCodeOfTwelveBits) {
    const auto head =
        sim::aVirtualHead().withFault({.name = "a", .what = "rail VDD3.3AVDDH unreadable"}).build();
    tcUser user;
    user.powerUp();
    EXPECT_EQ(user.monitor.measure(0), 0x7AE);
    EXPECT_EQ(user.monitor.measure(1), 0xFFFF);
    EXPECT_EQ(user.monitor.measure(4), 0xA8F);
    EXPECT_DOUBLE_EQ(head.rail("VDD3.3AVDDH"), 3.3);
    EXPECT_THAT(head.lines(teEventKind::adc), testing::Contains("ADC 1 0xFFFF"));
}

// --- Supply monitor ---

TEST(MonitorFault, FailsWithItsErrno) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "absent", .what = "ADC fails ENXIO", .until = "1"})
                          .withFault({.name = "held", .what = "ADC fails ETIMEDOUT", .at = "2"})
                          .build();
    tcMonitor monitor;
    EXPECT_EQ(monitor.command(0x8C), -ENXIO);
    sleepTo(head, 1ms);
    EXPECT_EQ(monitor.command(0x8C), 1);
    sleepTo(head, 2ms);
    EXPECT_EQ(monitor.command(0x8C), -ETIMEDOUT);
    EXPECT_EQ(monitor.convert(), -ETIMEDOUT);
}

TEST(MonitorFault, FloatsOrIsShort) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "floats", .what = "ADC floats", .until = "10"})
                          .withFault({.name = "short", .what = "ADC short", .at = "10"})
                          .build();
    tcMonitor monitor;
    EXPECT_EQ(monitor.command(0x8C), 1);
    EXPECT_EQ(monitor.convert(), 0xFFFF);
    sleepTo(head, 10ms);
    EXPECT_EQ(monitor.command(0x8C), 0);
}

TEST(MonitorFault, BusIsThereAgain) {
    const auto head =
        sim::aVirtualHead().withFault({.name = "bus", .what = "I2C missing", .until = "1"}).build();
    EXPECT_FALSE(openDevice("/dev/i2c-1").valid());
    EXPECT_EQ(errno, ENOENT);
    sleepTo(head, 1ms);
    EXPECT_TRUE(openDevice("/dev/i2c-1").valid());
}

// --- Lines ---

TEST(LineFault, HolderKeepsItsBusyLine) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "busy", .what = "line EXT_TRIG_EN busy", .at = "1"})
                          .build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    tcDescriptor line = requestOutput(chip.get(), lines::kTrigger, 0);
    sleepTo(head, 1ms);
    EXPECT_EQ(setLevel(line, 1), 0);
    EXPECT_EQ(head.line("EXT_TRIG_EN"), 1);
    line = tcDescriptor();
    EXPECT_FALSE(requestOutput(chip.get(), lines::kTrigger, 0).valid());
}

TEST(LineFault, MissingLineHasNoName) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "gone", .what = "line RESET_B missing", .until = "1"})
                          .build();
    EXPECT_EQ(head.line("RESET_B"), std::nullopt);
    sleepTo(head, 1ms);
    EXPECT_EQ(head.line("RESET_B"), 0);
}

TEST(LineFault, ChipIsThereAgain) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "chip", .what = "GPIO missing", .until = "1"})
                          .build();
    EXPECT_FALSE(openDevice("/dev/gpiochip0").valid());
    sleepTo(head, 1ms);
    EXPECT_TRUE(openDevice("/dev/gpiochip0").valid());
}

// --- SPI ---

TEST(PortFault, MissingRefusingFailingAndShort) {
    const auto head =
        sim::aVirtualHead()
            .withFault({.name = "a", .what = "SPI missing", .until = "1"})
            .withFault(
                {.name = "b", .what = "SPI settings refused", .at = "2", .until = "SPI-HZ 5000000"})
            .withFault({.name = "c", .what = "SPI fails EIO", .at = "3", .lasts = "1"})
            .withFault({.name = "d", .what = "SPI short", .at = "4", .lasts = "1"})
            .withQuietViolations()
            .build();
    EXPECT_FALSE(openDevice("/dev/spidev1.0").valid());
    sleepTo(head, 1ms);
    tcPort port;
    EXPECT_EQ(port.setBits(32), 0);
    sleepTo(head, 2ms);
    EXPECT_EQ(port.setSpeed(5'000'000), EINVAL);
    EXPECT_EQ(port.setSpeed(5'000'000), 0);
    sleepTo(head, 3ms);
    EXPECT_EQ(port.send({1, 2, 3, 4}), -EIO);
    sleepTo(head, 4ms);
    EXPECT_EQ(port.send({1, 2, 3, 4}), 2);
    sleepTo(head, 5ms);
    EXPECT_EQ(port.send({1, 2, 3, 4}), 4);
    EXPECT_THAT(head.lines(teEventKind::spi),
                ElementsAre("SPI 01 02 03 04 failed EIO", "SPI 01 02 03 04 failed short",
                            "SPI 01 02 03 04"));
}

// --- FPGA ---

TEST(RegisterFault, BlockCannotBeMapped) {
    struct tsBlock {
        const char* name;
        std::uint32_t address;
    };
    for (const tsBlock& block :
         {tsBlock{"base", 0xFF200000}, tsBlock{"clock", 0xFF204000},
          tsBlock{"frame-control", 0xFF210000}, tsBlock{"pwm", 0xFF211000},
          tsBlock{"bad-pixel-take-over", 0xFF212000}, tsBlock{"bad-pixel-table", 0xFF213000},
          tsBlock{"bad-pixel", 0xFF215000}, tsBlock{"pixel-shift", 0xFF217000}}) {
        const auto head =
            sim::aVirtualHead()
                .withFault({.name = "a",
                            .what = "block " + std::string(block.name) + " unmappable",
                            .until = "1"})
                .build();
        EXPECT_FALSE(tcRegisters(block.address, 4096).mapped()) << block.name;
        const std::uint32_t other = block.address == 0xFF217000 ? 0xFF215000 : 0xFF217000;
        EXPECT_TRUE(tcRegisters(other, 4096).mapped()) << block.name;
        usleep(1000);
        EXPECT_TRUE(tcRegisters(block.address, 4096).mapped()) << block.name;
    }
}

TEST(RegisterFault, SilentCoreIsSilentForATime) {
    const auto head =
        sim::aVirtualHead()
            .withFault({.name = "pwm", .what = "block pwm silent", .until = "1"})
            .withFault(
                {.name = "shift", .what = "block pixel-shift silent", .after = "READ 0xFF217200"})
            .build();
    const tcRegisters pulses(0xFF211000, 4096);
    const tcRegisters shift(0xFF217000, 4096);
    EXPECT_EQ(pulses.read(128), 0U);
    EXPECT_EQ(shift.read(128), 0x50534831U);
    EXPECT_EQ(shift.read(128), 0U);
    usleep(1000);
    EXPECT_EQ(pulses.read(128), 0x50574D31U);
}

TEST(RegisterFault, StuckClockGeneratorGoesOnAsItWas) {
    const auto head = sim::aVirtualHead()
                          .withFault({.name = "stuck", .what = "block clock stuck", .until = "1"})
                          .build();
    tcRegisters clock(0xFF204000);
    clock.write(0xC0, 0x1617);
    clock.write(0, 1);
    EXPECT_EQ(clock.read(0xC0), 0x0F0FU);
    EXPECT_EQ(head.sensorState().clockMhz, 36.0);
    usleep(1000);
    clock.write(0xC0, 0x1617);
    clock.write(0, 1);
    EXPECT_EQ(clock.read(0xC0), 0x1617U);
    EXPECT_EQ(head.sensorState().clockMhz, 24.0);
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(RegisterFault, StuckWordKeepsItsValueAndItsNeighboursDoNot) {
    const auto head =
        sim::aVirtualHead()
            .withFault(
                {.name = "stuck", .what = "word 0xFF210014 stuck", .after = "2 WRITE 0xFF210014"})
            .build();
    tcRegisters frameControl(0xFF210000);
    frameControl.write(5, 1);
    frameControl.write(5, 2); // the event itself still acts
    frameControl.write(5, 3);
    frameControl.write(9, 4);
    EXPECT_EQ(frameControl.read(5), 2U);
    EXPECT_EQ(frameControl.read(9), 4U);
}

// --- Link ---

// A head that is up. The link receives from `m_from` on, which is the same in every head.
class LinkFault : public testing::Test {
protected:
    LinkFault() {
        const auto head = sim::aVirtualHead().build();
        tcUser user;
        powerUp(user);
        m_from = head.now() + 3200ns; // one register write
    }
    void make(std::initializer_list<tsFault> faults) {
        sim::tcVirtualHeadBuilder builder = sim::aVirtualHead().withStateEvents();
        for (const tsFault& fault : faults) {
            builder.withFault(fault);
        }
        m_head.emplace(builder.build());
        m_user.emplace();
        powerUp(*m_user);
        m_user->port.writeRegister(0x10, 4);
        m_user->pulses.write(0, 0x80000000);
        m_user->frameControl.write(0, 0x80000000);
        ASSERT_EQ(m_head->now(), m_from);
    }
    static void powerUp(tcUser& user) {
        user.powerUp();
        user.configure();
    }
    // Lanes train from 3 ms on and lock at 7 ms.
    void train() {
        sleepTo(3ms);
        m_user->frameControl.write(10, 0xFFF);
        m_user->frameControl.write(10, 0xFFF000);
        m_user->frameControl.write(10, 0);
    }
    // Aligned at 35 ms.
    void align() {
        train();
        sleepTo(10ms);
        m_user->frameControl.write(11, 0xFFF);
        sleepTo(40ms);
        ASSERT_EQ(status(), 0xFU);
    }
    [[nodiscard]] std::string at(nanoseconds time) const { return ms(m_from + time); }
    void sleepTo(nanoseconds time) { ::sleepTo(*m_head, m_from + time); }
    std::uint32_t status() { return m_user->frameControl.read(1); }
    std::uint32_t lanes() { return m_user->frameControl.read(12); }
    // The lanes that are locked change at this very time: not 1 ns before.
    void lanesTurn(nanoseconds time, std::uint32_t before, std::uint32_t after) {
        sleepTo(time - 1ns);
        EXPECT_EQ(lanes(), before) << "1 ns before " << time.count() << " ns";
        sleepTo(time);
        EXPECT_EQ(lanes(), after) << "at " << time.count() << " ns";
    }
    // The same of the flags.
    void statusTurns(nanoseconds time, std::uint32_t before, std::uint32_t after) {
        sleepTo(time - 1ns);
        EXPECT_EQ(status(), before) << "1 ns before " << time.count() << " ns";
        sleepTo(time);
        EXPECT_EQ(status(), after) << "at " << time.count() << " ns";
    }
    // What the head did, with its time since `m_from`.
    [[nodiscard]] std::vector<std::string> states(std::string_view prefix) const {
        std::vector<std::string> result;
        for (const sim::tsEvent& event : m_head->log(teEventKind::state)) {
            if (event.subject.starts_with(prefix)) {
                result.push_back(ms(event.time - m_from) + event.text.substr(5));
            }
        }
        return result;
    }

    nanoseconds m_from{};
    std::optional<sim::tcVirtualHead> m_head;
    std::optional<tcUser> m_user;
};

TEST_F(LinkFault, LanesThatTrainLockAgainAfterTheirLoss) {
    make({{.name = "lost", .what = "lanes 3 7 lost", .at = at(13ms), .lasts = "20"}});
    train();
    lanesTurn(13ms, 0xFFFU, 0xF77U);
    lanesTurn(37ms, 0xF77U, 0xFFFU); // 4 ms after the fault
}

TEST_F(LinkFault, LossInTheMiddleOfASleepIsSeenAtItsTime) {
    make({{.name = "lost", .what = "lanes 3 7 lost", .at = at(13ms), .lasts = "20"}});
    train();
    sleepTo(100ms);
    EXPECT_EQ(lanes(), 0xFFFU);
    EXPECT_THAT(states("LANE3"), ElementsAre("7.000000 LANE3-LOCK 1", "13.000000 LANE3-LOCK 0",
                                             "37.000000 LANE3-LOCK 1"));
    EXPECT_THAT(states("LANE4"), ElementsAre("7.000000 LANE4-LOCK 1"));
}

TEST_F(LinkFault, LanesThatAreHeldStayLostUntilTheirNextReset) {
    make({{.name = "lost", .what = "lanes 3 7 lost", .at = at(50ms), .lasts = "20"}});
    align();
    sleepTo(200ms);
    EXPECT_EQ(lanes(), 0xF77U);
    EXPECT_EQ(status(), 7U);
    EXPECT_THAT(states("ALIGNED"), ElementsAre("35.000000 ALIGNED 1", "50.000000 ALIGNED 0"));
    EXPECT_EQ(m_user->bringUp(), 0);
    EXPECT_EQ(m_head->link().dpaLock, 0xFFFU);
}

TEST_F(LinkFault, AllLanesCanBeLostWhileTheyTrain) {
    make({{.name = "lost", .what = "lanes all lost", .at = at(5ms), .until = at(6ms)}});
    train();
    lanesTurn(10ms, 0U, 0xFFFU);
}

TEST_F(LinkFault, LateLanesTakeTheirTimeFromTheFaultOn) {
    make({{.name = "late", .what = "lanes 0 11 late 30", .at = at(5ms)}});
    train();
    sleepTo(20ms);
    EXPECT_EQ(lanes(), 0x7FEU);
    lanesTurn(35ms, 0x7FEU, 0xFFFU);
}

TEST_F(LinkFault, LanesThatNeverLockMayLockAfterIt) {
    make({{.name = "never", .what = "lanes 5 never", .until = at(50ms)}});
    train();
    lanesTurn(54ms, 0xFDFU, 0xFFFU);
}

TEST_F(LinkFault, WhatIsLockedStaysSoWhenNothingLocksAnyMore) {
    make({{.name = "lanes", .what = "lanes all never", .at = at(50ms)},
          {.name = "pll", .what = "PLL never", .at = at(51ms)},
          {.name = "alignment", .what = "alignment never", .at = at(52ms)}});
    align();
    sleepTo(200ms);
    EXPECT_EQ(status(), 0xFU);
    EXPECT_EQ(lanes(), 0xFFFU);
}

TEST_F(LinkFault, LaterOfTwoFaultsOfOneLaneWins) {
    make({{.name = "lanes", .what = "lanes 3 4 lost"},
          {.name = "lane", .what = "lanes 3 late 10"},
          {.name = "pll", .what = "PLL lost"},
          {.name = "late", .what = "PLL late 1"},
          {.name = "alignment", .what = "alignment never"},
          {.name = "found", .what = "alignment late 2", .at = at(50ms)},
          {.name = "healthy", .what = "lanes 4 late 0", .at = at(20ms)}});
    train();
    EXPECT_EQ(status(), 7U);
    lanesTurn(13ms, 0xFE7U, 0xFEFU);
    sleepTo(20ms);
    EXPECT_EQ(lanes(), 0xFFFU);
    m_user->frameControl.write(11, 0xFFF);
    statusTurns(52ms, 7U, 0xFU);
}

TEST_F(LinkFault, PolarityOfALaneTurnsRound) {
    make({{.name = "turned", .what = "polarity 0x5D8", .at = at(50ms), .lasts = "10"}});
    train();
    sleepTo(50ms);
    EXPECT_EQ(lanes(), 0xFFEU);
    lanesTurn(64ms, 0xFFEU, 0xFFFU);
}

TEST_F(LinkFault, LostPllFlagsComeAgainAndAlignmentAfterThem) {
    make({{.name = "pll", .what = "gbLocked lost", .at = at(50ms), .lasts = "10"}});
    align();
    statusTurns(50ms, 0xFU, 6U);
    EXPECT_EQ(lanes(), 0xFFFU); // held
    sleepTo(200ms);
    EXPECT_EQ(status(), 0xFU);
    EXPECT_THAT(states("PLL-GB"),
                ElementsAre("3.000000 PLL-GB-LOCKED 1", "50.000000 PLL-GB-LOCKED 0",
                            "63.000000 PLL-GB-LOCKED 1"));
    EXPECT_THAT(states("PLL-RG"), ElementsAre("3.000000 PLL-RG-LOCKED 1"));
    EXPECT_THAT(states("ALIGNED"), ElementsAre("35.000000 ALIGNED 1", "50.000000 ALIGNED 0",
                                               "88.000000 ALIGNED 1")); // 63 + 25
}

TEST_F(LinkFault, LanesThatAreNotHeldGoWithThePll) {
    make({{.name = "pll", .what = "PLL lost", .at = at(50ms), .lasts = "10"}});
    train();
    sleepTo(50ms);
    EXPECT_EQ(status(), 0U);
    EXPECT_EQ(lanes(), 0U);
    lanesTurn(67ms, 0U, 0xFFFU); // 10 + 3 + 4
}

TEST_F(LinkFault, LateAndAbsentPllFlags) {
    make({{.name = "late", .what = "locked late 20"},
          {.name = "never", .what = "rgLocked never", .until = at(40ms)}});
    statusTurns(20ms, 1U, 5U);
    statusTurns(43ms, 5U, 7U);
}

TEST_F(LinkFault, LostAlignmentIsFoundAgain) {
    make({{.name = "lost", .what = "alignment lost", .at = at(50ms), .lasts = "10"}});
    align();
    sleepTo(50ms);
    EXPECT_EQ(status(), 7U);
    statusTurns(85ms, 7U, 0xFU);
}

TEST_F(LinkFault, LateAlignment) {
    make({{.name = "late", .what = "alignment late 60"}});
    train();
    sleepTo(10ms);
    m_user->frameControl.write(11, 0xFFF);
    statusTurns(70ms, 7U, 0xFU);
}

TEST_F(LinkFault, FramesThatWereNotWholeBeforeTheLossDoNotCount) {
    make({{.name = "lost", .what = "alignment lost", .at = at(1120ms), .lasts = "200"}});
    align();
    m_user->port.writeRegister(0x10, 3); // a frame begins at 100 ms and every 100 ms from then on
    sleepTo(1525ms);
    // Ten until the loss, of the next one not all rows came; aligned again at 1345 ms, then one.
    EXPECT_EQ(m_head->frames(), 11U);
    sleepTo(1526ms);
    EXPECT_EQ(m_head->frames(), 12U);
}

TEST_F(LinkFault, SupplyThatGoesTakesTheLinkWithIt) {
    make({{.name = "gone", .what = "rail VDD1.2 0.9", .at = at(50ms), .lasts = "1"}});
    align();
    sleepTo(100ms);
    EXPECT_EQ(status(), 0U);
    EXPECT_THAT(states("PLL-LOCKED"),
                ElementsAre("3.000000 PLL-LOCKED 1", "50.000000 PLL-LOCKED 0"));
}

// --- What is said about faults ---

TEST(FaultSummary, NamesWhatStruckAndWhatNeverDid) {
    const auto head =
        sim::aVirtualHead()
            .withFault({.name = "a", .what = "ADC floats", .at = "1", .lasts = "2"})
            .withFault({.name = "b", .what = "ADC floats", .at = "2"})
            .withFault({.name = "typo", .what = "ADC floats", .after = "GPIO RESTE_B"})
            .build();
    usleep(10000);
    EXPECT_THAT(head.summary(), HasSubstr("  faults:\n"
                                          "    a: from 0.001000000 to 0.003000000\n"
                                          "    b: from 0.002000000 on\n"
                                          "    typo: never struck\n"
                                          "  violations: none\n"));
    using tsRecord = sim::tsFaultRecord;
    EXPECT_THAT(head.faults(),
                ElementsAre(tsRecord{"a", 1ms, 3ms}, tsRecord{"b", 2ms, std::nullopt},
                            tsRecord{"typo", std::nullopt, std::nullopt}));
}

TEST(FaultRecord, DiffersInEveryField) {
    using tsRecord = sim::tsFaultRecord;
    const tsRecord record{"a", 1ms, 3ms};
    EXPECT_EQ(record, (tsRecord{"a", 1ms, 3ms}));
    EXPECT_FALSE(record != record);
    EXPECT_NE(record, (tsRecord{"b", 1ms, 3ms}));
    EXPECT_NE(record, (tsRecord{"a", 2ms, 3ms}));
    EXPECT_NE(record, (tsRecord{"a", 1ms, std::nullopt}));
}

TEST(FaultSummary, OfAHeadWithoutFaultsSaysNothing) {
    const auto head = sim::aVirtualHead().build();
    EXPECT_THAT(head.summary(), Not(HasSubstr("faults")));
    EXPECT_THAT(head.faults(), IsEmpty());
}

std::string refusalOf(const tsFault& fault) {
    try {
        sim::aVirtualHead().withFault(fault);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

TEST(FaultBuilder, RefusesWhatIsNoFault) {
    EXPECT_THAT(refusalOf({.name = "x"}),
                HasSubstr("virtual head: fault x: what: is missing; allowed is `PLL never`"));
    EXPECT_THAT(refusalOf({.name = "x", .what = "lanes 12 lost"}),
                HasSubstr("fault x: what = lanes 12 lost: allowed is `PLL never`"));
    EXPECT_EQ(refusalOf({.name = "x", .what = "ADC floats", .at = "soon"}),
              "virtual head: fault x: at = soon: allowed is milliseconds since the head was built, "
              "for example `450`");
    EXPECT_EQ(refusalOf({.name = "x", .what = "ADC floats", .at = "1", .after = "SLEEP"}),
              "virtual head: fault x: after = SLEEP: allowed is at or after, not both");
    EXPECT_EQ(refusalOf({.name = "x", .what = "ADC floats", .lasts = "1", .until = "2"}),
              "virtual head: fault x: until = 2: allowed is for or until, not both");
    EXPECT_EQ(refusalOf({.name = "x", .what = "ADC floats", .at = "5", .until = "5"}),
              "virtual head: fault x: until = 5: allowed is a time after the fault's begin");
    auto builder = sim::aVirtualHead().withFault({.name = "x", .what = "ADC floats"});
    EXPECT_THROW(builder.withFault({.name = "x", .what = "ADC floats"}), std::invalid_argument);
}

TEST(FaultBuilder, RefusesEveryValueThatIsNone) {
    for (const char* what : {"PLL",
                             "PLL sometimes",
                             "PLL late",
                             "PLL late x",
                             "PLL late -1",
                             "PLL late 1 2",
                             "PLL never more",
                             "blueLocked never",
                             "lanes never",
                             "lanes 3",
                             "lanes 3 soon",
                             "lanes 12 lost",
                             "lanes all 3 lost",
                             "lanes -1 lost",
                             "alignment",
                             "alignment 5",
                             "polarity",
                             "polarity 0x1000",
                             "polarity 1 2",
                             "rail",
                             "rail VDD5 1",
                             "rail VDD1.2",
                             "rail VDD1.2 much",
                             "rail VDD1.2 -2",
                             "rail VDD1.2 1 2",
                             "rail VDD1.2 droops",
                             "rail VDD1.2 droops 0 over 1",
                             "rail VDD1.2 droops -1 over 1",
                             "rail VDD1.2 droops 1 in 1",
                             "rail VDD1.2 droops 1 over",
                             "rail VDD1.2 droops 1 over x",
                             "rail VDD5 unreadable",
                             "ADC",
                             "ADC fails",
                             "ADC fails EWHAT",
                             "ADC fails EIO EIO",
                             "ADC floats high",
                             "I2C",
                             "I2C missing 1",
                             "line RESET_B",
                             "line RESET_C busy",
                             "line RESET_B lost",
                             "GPIO",
                             "GPIO missing 1",
                             "SPI",
                             "SPI settings",
                             "SPI fails",
                             "SPI missing 1",
                             "memory",
                             "memory fails",
                             "memory fails EWHAT",
                             "memory short",
                             "block",
                             "block pwm",
                             "block lens unmappable",
                             "block clock silent",
                             "block pwm broken",
                             "word",
                             "word x stuck",
                             "word 0xFF200001 stuck",
                             "word 0xFF218000 stuck",
                             "word 0xFF1FFFFC stuck",
                             "word 0xFF200000"}) {
        EXPECT_THAT(refusalOf({.name = "x", .what = what}), HasSubstr("allowed is")) << what;
    }
    for (const char* event : {"0 SLEEP", "5", "STATE ALIGNED", "sleep", "-1 SLEEP", "SLEEPS"}) {
        EXPECT_THAT(refusalOf({.name = "x", .what = "ADC floats", .after = event}),
                    HasSubstr("after = " + std::string(event) + ": allowed is"));
    }
    for (const char* time : {"-1", "x", "1e10", "nan", "1 2"}) {
        EXPECT_THAT(refusalOf({.name = "x", .what = "ADC floats", .at = time}),
                    HasSubstr("allowed is"));
        EXPECT_THAT(refusalOf({.name = "x", .what = "ADC floats", .until = time}),
                    HasSubstr("allowed is"));
    }
    EXPECT_THAT(refusalOf({.name = "x", .what = "ADC floats", .lasts = "0"}),
                HasSubstr("for = 0: allowed is milliseconds, more than 0"));
}

} // namespace

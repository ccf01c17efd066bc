// What the head does by itself, as events of its log.

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(StateEvents, AreKeptOnlyOnDemand) {
    auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    EXPECT_THAT(head.lines(teEventKind::state), IsEmpty());
}

TEST(StateEvents, TellWhenSuppliesCameUpAndTheSensorWoke) {
    auto head = sim::aVirtualHead().withStateEvents().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 1);
    head.advance(std::chrono::milliseconds(1));
    const tcDescriptor svdd = requestOutput(chip.get(), lines::kSvdd, 1);
    const tcDescriptor avddh = requestOutput(chip.get(), lines::kAvddh, 1);
    head.advance(std::chrono::milliseconds(300));
    const tcDescriptor reset = requestOutput(chip.get(), lines::kReset, 1);
    head.advance(std::chrono::milliseconds(50));
    EXPECT_EQ(setLevel(reset, 0), 0);
    EXPECT_THAT(head.timedLines(teEventKind::state),
                ElementsAre("[    0.000000000] STATE VDD1.2 1200000 500000",
                            "[    0.000425000] STATE VDD1.2-GOOD 1",
                            "[    0.001000000] STATE VDD3.3SVDD 3300000 20000000",
                            "[    0.001000000] STATE VDD3.3AVDDH 3300000 20000000",
                            "[    0.018000000] STATE VDD3.3SVDD-GOOD 1",
                            "[    0.018000000] STATE VDD3.3AVDDH-GOOD 1",
                            "[    0.311000000] STATE SENSOR-AWAKE 1",
                            "[    0.351000000] STATE SENSOR-AWAKE 0"));
}

TEST(StateEvents, ShowTheWiresOfAMonitorReading) {
    auto head = sim::aVirtualHead().withStateEvents().build();
    tcMonitor monitor;
    monitor.command(0x8C);
    monitor.convert();
    EXPECT_THAT(head.timedLines(teEventKind::state),
                ElementsAre("[    0.000000000] STATE I2C 0x49 W ack 8C",
                            "[    0.000180000] STATE I2C-STOP",
                            "[    0.000180000] STATE I2C 0x49 R ack 0F FF",
                            "[    0.000450000] STATE I2C-STOP"));
}

TEST(StateEvents, ShowChipSelectAndSettingsOfATransfer) {
    auto head = sim::aVirtualHead().withStateEvents().withQuietViolations().build();
    tcPort port;
    port.configure();
    port.send({0x0F, 0xB9, 0x04, 0x36});
    EXPECT_THAT(head.timedLines(teEventKind::state | teEventKind::spi),
                ElementsAre("[    0.000000000] STATE SPI-WIRE 0 32 10000000",
                            "[    0.000000000] STATE SPI-SELECT 1",
                            "[    0.000000000] SPI 0F B9 04 36",
                            "[    0.000000000] STATE SENSOR-WORD 0x0D8 - 0x04B90F asleep",
                            "[    0.000003200] STATE SPI-SELECT 0"));
}

TEST(StateEvents, TellWhenEachPartOfTheLinkLocked) {
    auto head = sim::aVirtualHead()
                    .withStateEvents()
                    .withLaneAfter(5, std::chrono::milliseconds(7))
                    .build();
    tcUser user;
    user.powerUp();
    user.configure();
    head.clearLog();
    ASSERT_EQ(user.bringUp(), 0);
    std::vector<std::string> names;
    std::vector<std::int64_t> times; // [us] since the core was enabled
    std::int64_t enabled = 0;
    for (const sim::tsEvent& event : head.log(teEventKind::state)) {
        const auto us = event.time.count() / 1000;
        enabled = event.text == "STATE CORE-ENABLED 1" ? us : enabled;
        if (event.text == "STATE PLL-LOCKED 1" || event.text == "STATE LANE4-LOCK 1" ||
            event.text == "STATE LANE5-LOCK 1" || event.text == "STATE ALIGNED 1") {
            names.push_back(event.subject);
            times.push_back(us - enabled);
        }
    }
    EXPECT_THAT(names, ElementsAre("PLL-LOCKED", "LANE4-LOCK", "LANE5-LOCK", "ALIGNED"));
    ASSERT_EQ(times.size(), 4U);
    EXPECT_EQ(times[0], 3000);
    EXPECT_EQ(times[2] - times[1], 3000);
}

} // namespace

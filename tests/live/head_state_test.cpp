// What a head is at one moment of its run, put together from events.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/after/head_state.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HeadState : public testing::Test {
protected:
    void take(const std::string& text, std::uint64_t timeNs = 0) {
        m_state.take(m_number++, timeNs, text);
    }
    sim::tcHeadState m_state;
    std::uint64_t m_number = 100;
};

TEST_F(HeadState, KnowsNothingAtFirst) {
    EXPECT_FALSE(m_state.event());
    EXPECT_EQ(m_state.timeNs(), 0U);
    EXPECT_FALSE(m_state.flag("ALIGNED"));
    EXPECT_EQ(m_state.numbers("ALIGNED"), nullptr);
    EXPECT_THAT(m_state.lines(), IsEmpty());
    EXPECT_THAT(m_state.sensor(), IsEmpty());
    EXPECT_THAT(m_state.fpga(), IsEmpty());
    EXPECT_EQ(m_state.clockMhz(), 36.0);
}

TEST_F(HeadState, KeepsFlagsAndNumbersWithTheirEvent) {
    take("STATE LANE3-LOCK 1", 7);
    take("STATE VDD1.2 1200000 500000", 9);
    take("STATE LANE3-LOCK 0", 8); // told late
    EXPECT_FALSE(m_state.flag("LANE3-LOCK"));
    EXPECT_EQ(m_state.numbers("LANE3-LOCK")->event, 102U);
    EXPECT_THAT(m_state.numbers("VDD1.2")->numbers, ElementsAre(1200000U, 500000U));
    EXPECT_EQ(m_state.event(), 102U);
    EXPECT_EQ(m_state.timeNs(), 9U);
}

TEST_F(HeadState, FollowsGpioLines) {
    take("GPIO RESET_B out 0");
    take("GPIO RESET_B = 1");
    take("GPIO TRIGGER in");
    take("GPIO BUSY out 1 failed EBUSY");
    const sim::tsLineNow& reset = m_state.lines().at("RESET_B");
    EXPECT_TRUE(reset.output);
    EXPECT_EQ(reset.level, 1U);
    EXPECT_EQ(reset.event, 101U);
    EXPECT_FALSE(m_state.lines().at("TRIGGER").output);
    EXPECT_FALSE(m_state.lines().at("TRIGGER").level);
    EXPECT_FALSE(m_state.lines().contains("BUSY"));
    EXPECT_EQ(m_state.failedCalls(), 1U);
    take("GPIO RESET_B released");
    EXPECT_EQ(m_state.lines().at("RESET_B").level, 1U); // it keeps its level
}

TEST_F(HeadState, FollowsRegisters) {
    take("STATE SENSOR-AWAKE 1");
    take("STATE SENSOR-WORD 0x012 - 0x0007BC taken", 5);
    take("STATE SENSOR-WORD 0x014 - 0x000003 asleep", 6);
    take("STATE SENSOR-WORD 0x012 0x0007BC 0x0007BD reserved", 7);
    EXPECT_EQ(m_state.sensor().at(0x12).value, 0x7BDU);
    EXPECT_EQ(m_state.sensor().at(0x12).event, 103U);
    EXPECT_EQ(m_state.sensor().at(0x12).timeNs, 7U);
    EXPECT_FALSE(m_state.sensor().contains(0x14));
    EXPECT_EQ(m_state.sent().at(0x14).value, 3U);
    take("STATE FPGA-WORD 0xFF210008 0x00000000 0x000005D9 stuck");
    EXPECT_FALSE(m_state.fpga().contains(0xFF210008));
    take("STATE FPGA-WORD 0xFF210008 0x00000000 0x000005D8 taken");
    EXPECT_EQ(m_state.fpga().at(0xFF210008).value, 0x5D8U);
    take("READ 0xFF210004 0x0000000F");
    EXPECT_EQ(m_state.fpga().at(0xFF210004).value, 0xFU);
    take("STATE SENSOR-AWAKE 0"); // it forgets everything
    EXPECT_THAT(m_state.sensor(), IsEmpty());
    EXPECT_EQ(m_state.sent().size(), 2U);
}

TEST_F(HeadState, KnowsTheClockFromTheGeneratorsCounter) {
    take("STATE FPGA-WORD 0xFF204300 0x00000F0F 0x00001617 taken");
    EXPECT_EQ(m_state.clockMhz(), 24.0);
    take("STATE FPGA-WORD 0xFF204300 0x00001617 0x00000F0F taken");
    EXPECT_EQ(m_state.clockMhz(), 36.0);
}

TEST_F(HeadState, FollowsConversionsAndThePort) {
    take("ADC 0 0x7AE", 11);
    take("ADC 4 failed EIO", 12);
    EXPECT_EQ(m_state.conversions().at(0).steps, 0x7AEU);
    EXPECT_EQ(m_state.conversions().at(0).timeNs, 11U);
    EXPECT_FALSE(m_state.conversions().at(4).steps);
    take("SPI-HZ 10000000");
    take("SPI-MODE 0 failed EINVAL");
    EXPECT_EQ(m_state.spiSettings().at("HZ"), 10000000U);
    EXPECT_FALSE(m_state.spiSettings().contains("MODE"));
    EXPECT_EQ(m_state.failedCalls(), 2U);
}

TEST_F(HeadState, CountsViolationsAndFaults) {
    take("VIOLATION sensor-asleep: register 0x04 <- 0x000008 failed on the way");
    EXPECT_EQ(m_state.violations(), 1U);
    EXPECT_EQ(m_state.failedCalls(), 0U);
    take("NOTE fault lane 3 begins");
    take("NOTE fault rail begins");
    take("NOTE what a fault begins");
    EXPECT_THAT(m_state.faults(), ElementsAre("lane 3", "rail"));
    take("NOTE fault lane 3 ends");
    take("NOTE fault other ends");
    EXPECT_THAT(m_state.faults(), ElementsAre("rail"));
}

TEST_F(HeadState, ForgetsWhatLostEventsMayHaveChanged) {
    take("STATE ALIGNED 1", 5);
    take("VIOLATION sensor-asleep: x", 6);
    m_state.lost(120);
    EXPECT_FALSE(m_state.flag("ALIGNED"));
    EXPECT_EQ(m_state.violations(), 1U);
    EXPECT_EQ(m_state.lostEvents(), 120U);
    EXPECT_EQ(m_state.event(), 101U);
    EXPECT_EQ(m_state.timeNs(), 6U);
}

TEST_F(HeadState, PassesOverWhatNoHeadWrites) {
    for (const char* text :
         {"", " ", "STATE", "STATE SENSOR-WORD", "STATE SENSOR-WORD 1 2 x y z", "STATE PULSES one",
          "READ", "READ x y", "ADC 0 none", "GPIO", "GPIO RESET_B", "GPIO RESET_B out high",
          "SPI-HZ fast", "LOST 1 events"}) {
        take(text);
    }
    EXPECT_FALSE(m_state.ended());
    take("STATE END");
    EXPECT_TRUE(m_state.ended());
}

} // namespace

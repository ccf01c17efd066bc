// The sensor's register file and what its registers mean.

#include <cerrno>
#include <gmock/gmock.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using namespace std::chrono_literals;

class Sensor : public testing::Test {
protected:
    sim::tcVirtualHead m_head = sim::aVirtualHead().withQuietViolations().build();
    tcUser m_user;
};

TEST_F(Sensor, LivesTenMillisecondsAfterReset) {
    setLevel(m_user.core, 1);
    usleep(1000);
    setLevel(m_user.svdd, 1);
    setLevel(m_user.avddh, 1);
    usleep(300000);
    EXPECT_FALSE(m_head.sensorAlive());
    setLevel(m_user.reset, 1);
    usleep(9999);
    EXPECT_FALSE(m_head.sensorAlive());
    usleep(1);
    EXPECT_TRUE(m_head.sensorAlive());
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(Sensor, LosesWhatComesWhileItIsAsleep) {
    m_user.port.writeRegister(0x20, 1);
    EXPECT_EQ(m_head.sensorRegister(0x20), std::nullopt);
    ASSERT_THAT(m_head.violations(), SizeIs(1));
    EXPECT_EQ(m_head.violations()[0].rule, "sensor-asleep");
    EXPECT_EQ(m_head.violations()[0].text, "register 0x20 <- 0x000001 while the sensor is asleep");
}

TEST_F(Sensor, ForgetsItsRegistersInReset) {
    m_user.powerUp();
    m_user.port.writeRegister(0x20, 1);
    EXPECT_THAT(m_head.sensorRegisters(), ElementsAre(Pair(0x20, 1U)));
    setLevel(m_user.reset, 0);
    EXPECT_THAT(m_head.sensorRegisters(), IsEmpty());
    EXPECT_FALSE(m_head.sensorAlive());
}

TEST_F(Sensor, NeedsEverySupply) {
    m_user.powerUp();
    m_user.port.writeRegister(0x20, 1);
    setLevel(m_user.avddh, 0);
    EXPECT_FALSE(m_head.sensorAlive());
    EXPECT_THAT(m_head.sensorRegisters(), IsEmpty());
    ASSERT_THAT(m_head.violations(), SizeIs(1));
    EXPECT_EQ(m_head.violations()[0].rule, "supply-off-running");
}

TEST(SensorSupply, IsDeadAtTooLowAVoltage) {
    const auto head = sim::aVirtualHead().withRail("VDD1.2", 0.9).withQuietViolations().build();
    tcUser user;
    user.powerUp();
    EXPECT_FALSE(head.sensorAlive());
}

TEST_F(Sensor, DecodesItsRegisters) {
    m_user.powerUp();
    m_user.port.writeRegister(0x10, 0x304);
    m_user.port.writeRegister(0x90, 0x30000); // both directions
    m_user.port.writeRegister(0x40, 2);
    m_user.port.writeRegister(0x41, 0x2A3); // second stage 3, fine 42
    m_user.port.writeRegister(0x42, 0x91);  // coarse 1, fine 9
    m_user.port.writeRegister(0x300, 0x40000);
    m_user.port.writeRegister(0x201, 0x203);
    m_user.port.writeRegister(0x12, 4000);
    m_user.port.writeRegister(0xB0, 899);
    const sim::tsSensorState state = m_head.sensorState();
    EXPECT_TRUE(state.alive);
    EXPECT_EQ(state.frameState, 4U);
    EXPECT_EQ(state.frameControlMode, 3U);
    EXPECT_TRUE(state.verticalInvert);
    EXPECT_TRUE(state.horizontalInvert);
    EXPECT_FALSE(state.binned);
    EXPECT_EQ(state.analogueCoarse, 5U);
    EXPECT_EQ(state.analogueFine, 42U);
    EXPECT_EQ(state.digitalCoarse, 1U);
    EXPECT_EQ(state.digitalFine, 9U);
    EXPECT_EQ(state.testPattern, 4U);
    EXPECT_TRUE(state.testSignal);
    EXPECT_EQ(state.frameLines, 4000U);
    EXPECT_EQ(state.lineClocks, 900U);
    EXPECT_EQ(state.clockMhz, 36.0);
    EXPECT_EQ(state.rows, 2056U);
    EXPECT_EQ(state.width, 2592U);
    EXPECT_EQ(state.height, 2056U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(Sensor, AddsUpItsReadoutAreas) {
    m_user.powerUp();
    m_user.port.writeRegister(0x94, 9U << 11 | 5);   // rows 10 to 19
    m_user.port.writeRegister(0x95, 43U << 12 | 4);  // columns 24 to 263
    m_user.port.writeRegister(0x96, 29U << 11 | 20); // rows 40 to 59
    m_user.port.writeRegister(0x97, 43U << 12 | 4);
    m_user.port.writeRegister(0x98, 0x3FFFFF);
    m_user.port.writeRegister(0x99, 0x1FF1FF);
    const sim::tsSensorState state = m_head.sensorState();
    EXPECT_EQ(state.rows, 30U);
    EXPECT_EQ(state.height, 30U);
    EXPECT_EQ(state.width, 240U);
}

TEST_F(Sensor, TakesBinningOverWithItsAreas) {
    m_user.powerUp();
    m_user.port.writeRegister(0x90, 0x40000);
    EXPECT_TRUE(m_head.sensorState().binned);
    EXPECT_EQ(m_head.sensorState().height, 2056U); // areas of before
    m_user.port.writeRegister(0x94, 0x201800);
    EXPECT_EQ(m_head.sensorState().rows, 2056U);
    EXPECT_EQ(m_head.sensorState().height, 1028U);
}

TEST_F(Sensor, AgreesWithARightShadow) {
    m_user.powerUp();
    m_user.port.writeRegister(0x20, 1);
    m_user.port.writeRegister(0x3FF, 0x3FFFFF);
    EXPECT_THAT(m_head.compareShadow({{0x20, 1}, {0x3FF, 0x3FFFFF}}), IsEmpty());
}

TEST_F(Sensor, SaysWhereAShadowIsWrongAndWhy) {
    m_user.port.writeRegister(0x20, 1); // asleep
    m_user.powerUp();
    m_user.port.writeRegister(0x21, 1);
    m_user.port.writeRegister(0x22, 0x400001);
    m_user.port.writeRegister(0x23, 5);
    m_user.port.setSpeed(20'000'000);
    m_user.port.writeRegister(0x24, 1);
    m_user.port.setSpeed(10'000'000);
    m_head.failCallsFrom(sim::teCall::ioctl, "/dev/spidev1.0",
                         m_head.calls(sim::teCall::ioctl, "/dev/spidev1.0") + 1, EIO);
    m_user.port.writeRegister(0x25, 1);
    const auto differences = m_head.compareShadow(
        {{0x20, 1}, {0x21, 2}, {0x22, 0x400001}, {0x24, 1}, {0x25, 1}, {0x26, 0}, {0x400, 0}});
    std::map<std::uint16_t, std::string> reasons;
    for (const sim::tsShadowDifference& difference : differences) {
        reasons[difference.address] = difference.why;
    }
    EXPECT_THAT(reasons,
                ElementsAre(Pair(0x20, "lost: the sensor was asleep"),
                            Pair(0x21, "the sensor holds another value"),
                            Pair(0x22, "the wire has 22 value bits"),
                            Pair(0x23, "the copy does not know the register"),
                            Pair(0x24, "lost: the port was not set as the sensor needs it"),
                            Pair(0x25, "lost: the SPI transfer failed"), Pair(0x26, "never sent"),
                            Pair(0x400, "the wire has 10 address bits")));
    EXPECT_EQ(differences[1].shadow, 2U);
    EXPECT_EQ(differences[1].sensor, 1U);
}

TEST_F(Sensor, SaysWhatClearedARegister) {
    m_user.powerUp();
    m_user.port.writeRegister(0x20, 1);
    setLevel(m_user.reset, 0);
    EXPECT_EQ(m_head.compareShadow({{0x20, 1}})[0].why, "cleared by reset");
    setLevel(m_user.reset, 1);
    usleep(10000);
    m_user.port.writeRegister(0x20, 1);
    setLevel(m_user.core, 0);
    EXPECT_EQ(m_head.compareShadow({{0x20, 1}})[0].why, "cleared by power loss");
}

} // namespace

// The serial link, the clock and the other cores of the FPGA.

#include <gmock/gmock.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::tePllFlag;
using testing::IsEmpty;
using namespace std::chrono_literals;

// A head that is up, with software that waits for nothing.
class Link : public testing::Test {
protected:
    void SetUp() override { make(sim::aVirtualHead()); }
    void make(sim::tcVirtualHeadBuilder builder) {
        m_user.reset();
        m_head.reset();
        m_head.emplace(builder.withQuietViolations().build());
        m_user.emplace();
        m_user->powerUp();
        m_user->configure();
    }
    // The sensor sends, pulses run, the core is enabled.
    void receive() {
        m_user->port.writeRegister(0x10, 4);
        m_user->pulses.write(0, 0x80000000);
        m_user->frameControl.write(0, 0x80000000);
    }
    void resetLanes() {
        m_user->frameControl.write(11, 0);
        m_user->frameControl.write(10, 0xFFF);
        m_user->frameControl.write(10, 0xFFF000);
        m_user->frameControl.write(10, 0);
    }
    std::uint32_t status() { return m_user->frameControl.read(1); }
    std::uint32_t lanes() { return m_user->frameControl.read(12); }

    std::optional<sim::tcVirtualHead> m_head;
    std::optional<tcUser> m_user;
};

TEST_F(Link, LocksLanesAndAlignsInItsTimes) {
    receive();
    usleep(2999);
    EXPECT_EQ(status(), 0U);
    usleep(1);
    EXPECT_EQ(status(), 7U); // 3 ms
    resetLanes();
    usleep(3999);
    EXPECT_EQ(lanes(), 0U);
    usleep(1);
    EXPECT_EQ(lanes(), 0xFFFU); // 4 ms
    m_user->frameControl.write(11, 0xFFF);
    usleep(24999);
    EXPECT_EQ(status(), 7U);
    usleep(1);
    EXPECT_EQ(status(), 0xFU); // 25 ms
    EXPECT_THAT(m_head->violations(), IsEmpty());
}

TEST_F(Link, NeedsSensorPulsesAndEnable) {
    m_user->port.writeRegister(0x10, 4);
    m_user->frameControl.write(0, 0x80000000);
    usleep(100000);
    EXPECT_EQ(status(), 0U); // no pulses
    m_user->pulses.write(0, 0x80000000);
    m_user->port.writeRegister(0x10, 0);
    usleep(100000);
    EXPECT_EQ(status(), 0U); // no lanes
    m_user->port.writeRegister(0x10, 3);
    m_user->frameControl.write(0, 0);
    usleep(100000);
    EXPECT_EQ(status(), 0U); // not enabled
}

TEST_F(Link, DisablingTheCoreDropsEverything) {
    ASSERT_EQ(m_user->bringUp(), 0);
    receive();
    usleep(100000);
    ASSERT_EQ(status(), 0xFU);
    m_user->frameControl.write(0, 0);
    EXPECT_EQ(status(), 0U);
    EXPECT_EQ(lanes(), 0U);
}

TEST_F(Link, HeldLanesStayLockedWithoutASignalAndAlignAgain) {
    ASSERT_EQ(m_user->bringUp(), 0);
    EXPECT_EQ(status(), 0U); // the sensor has stopped
    EXPECT_EQ(lanes(), 0xFFFU);
    receive();
    usleep(3000 + 25000 - 1);
    EXPECT_EQ(status(), 7U);
    usleep(1);
    EXPECT_EQ(status(), 0xFU);
    EXPECT_THAT(m_head->violations(), IsEmpty());
}

TEST_F(Link, LanesThatAreNotHeldLoseTheirPhaseWithoutASignal) {
    receive();
    usleep(3000);
    resetLanes();
    usleep(4000);
    ASSERT_EQ(lanes(), 0xFFFU);
    m_user->port.writeRegister(0x10, 0);
    EXPECT_EQ(lanes(), 0U);
}

TEST_F(Link, EachPllFlagCanStayAway) {
    for (const auto& [flag, bits] :
         {std::pair{tePllFlag::locked, 3U}, std::pair{tePllFlag::rgLocked, 5U},
          std::pair{tePllFlag::gbLocked, 6U}}) {
        make(sim::aVirtualHead().withPllFlagAfter(flag, sim::kNever));
        EXPECT_EQ(m_user->bringUp(), -1);
        EXPECT_EQ(status(), bits);
    }
}

TEST_F(Link, ALatePllFlagComesLate) {
    make(sim::aVirtualHead().withPllFlagAfter(tePllFlag::rgLocked, 50ms));
    receive();
    usleep(49999);
    EXPECT_EQ(status(), 5U);
    usleep(1);
    EXPECT_EQ(status(), 7U);
}

TEST_F(Link, AStuckLaneNeverLocks) {
    make(sim::aVirtualHead().withStuckLane(3));
    EXPECT_EQ(m_user->bringUp(), -2);
    EXPECT_EQ(lanes(), 0xFF7U);
    EXPECT_EQ(m_head->link().dpaLock, 0xFF7U);
}

TEST_F(Link, ALateLaneLocksLate) {
    make(sim::aVirtualHead().withLanesAfter(0ns).withLaneAfter(11, 95ms));
    EXPECT_EQ(m_user->bringUp(), 0);
    make(sim::aVirtualHead().withLaneAfter(11, 101ms));
    EXPECT_EQ(m_user->bringUp(), -2);
    EXPECT_EQ(lanes(), 0x7FFU);
}

TEST_F(Link, ALaneOfTheOtherPolarityNeverLocks) {
    make(sim::aVirtualHead().withLanePolarity(0x5D8));
    EXPECT_EQ(m_user->bringUp(), -2);
    EXPECT_EQ(lanes(), 0xFFEU);
    m_user->frameControl.write(2, 0x5D8);
    usleep(4000);
    EXPECT_EQ(lanes(), 0xFFFU);
}

TEST_F(Link, AlignmentCanStayAway) {
    make(sim::aVirtualHead().withAlignmentAfter(sim::kNever));
    EXPECT_EQ(m_user->bringUp(), -1);
    EXPECT_EQ(lanes(), 0xFFFU);
}

TEST_F(Link, ALinkWithoutDelayIsThereAtOnce) {
    make(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns));
    const auto before = m_head->calls(sim::teCall::sleep, "clock");
    EXPECT_EQ(m_user->bringUp(), 0);
    EXPECT_EQ(m_head->calls(sim::teCall::sleep, "clock"), before);
}

TEST_F(Link, AlignmentNeedsHold) {
    receive();
    usleep(3000);
    resetLanes();
    usleep(4000);
    m_user->frameControl.write(11, 0xFFE);
    usleep(100000);
    EXPECT_EQ(status(), 7U);
    EXPECT_THAT(m_head->violations(), IsEmpty());
}

TEST_F(Link, LanesLockOnlyAfterTheWholeReset) {
    receive();
    usleep(3000);
    m_user->frameControl.write(10, 0xFFF);
    m_user->frameControl.write(10, 0);
    usleep(100000);
    EXPECT_EQ(lanes(), 0U);
    m_user->frameControl.write(10, 0xFFF000);
    m_user->frameControl.write(10, 0);
    usleep(100000);
    EXPECT_EQ(lanes(), 0U);
}

TEST_F(Link, LanesThatAreHeldDuringTheirResetDoNotTrain) {
    receive();
    usleep(3000);
    resetLanes();
    usleep(4000);
    m_user->frameControl.write(11, 0xFFF);
    m_user->frameControl.write(10, 0xFFF);
    m_user->frameControl.write(10, 0xFFF000);
    m_user->frameControl.write(10, 0);
    usleep(100000);
    EXPECT_EQ(lanes(), 0U);
}

TEST_F(Link, WholeFramesAreCountedWhileItIsAligned) {
    ASSERT_EQ(m_user->bringUp(), 0);
    EXPECT_EQ(m_head->frames(), 0U);
    m_user->start();
    // Pulses come every 100 ms, the last one 8 ms ago; the rows of a frame take 25.7 ms.
    m_head->advance(1s + 17'700us - 10us);
    EXPECT_EQ(m_head->frames(), 9U);
    m_head->advance(20us);
    EXPECT_EQ(m_head->frames(), 10U);
    m_user->stop();
    m_head->advance(1s);
    EXPECT_EQ(m_head->frames(), 10U);
    EXPECT_THAT(m_head->violations(), IsEmpty());
}

TEST_F(Link, TheClockChangesWithTheUpdateWord) {
    m_user->clock.write(0xC0, 0x1617);
    EXPECT_EQ(m_head->sensorState().clockMhz, 36.0);
    m_user->clock.write(0, 1);
    EXPECT_EQ(m_head->sensorState().clockMhz, 24.0);
    EXPECT_EQ(m_user->clock.read(0xC0), 0x1617U);
    m_user->clock.write(0xC0, 0x0F0F);
    m_user->clock.write(0, 1);
    EXPECT_EQ(m_head->sensorState().clockMhz, 36.0);
    EXPECT_THAT(m_head->violations(), IsEmpty());
}

TEST_F(Link, WithoutAKnownClockNothingLocks) {
    m_user->clock.write(0xC0, 0x0101);
    m_user->clock.write(0, 1);
    EXPECT_EQ(m_head->sensorState().clockMhz, 0.0);
    EXPECT_EQ(m_user->bringUp(), -1);
}

// --- Registers ---

class Fpga : public testing::Test {
protected:
    sim::tcVirtualHead m_head =
        sim::aVirtualHead().withQuietViolations().withSystemId(0x1234, 0x10).build();
    tcRegisters m_base{0xFF200000};
    tcRegisters m_frameControl{0xFF210000};
};

TEST_F(Fpga, IdentifiesItself) {
    EXPECT_EQ(m_base.read(0), 0x1234U);
    EXPECT_EQ(m_base.read(1), 0x10U);
    EXPECT_EQ(m_frameControl.read(128), 0x46435231U);
    EXPECT_EQ(m_frameControl.read(129), 0x00010002U);
    EXPECT_EQ(m_frameControl.read(130), 12U);
    const tcRegisters pulses(0xFF211000, 4096);
    const tcRegisters badPixels(0xFF215000, 4096);
    const tcRegisters pixelShift(0xFF217000, 4096);
    EXPECT_EQ(pulses.read(128), 0x50574D31U);
    EXPECT_EQ(badPixels.read(128), 0x42505231U);
    EXPECT_EQ(pixelShift.read(128), 0x50534831U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(Fpga, ReadWriteRegistersKeepTheBitsThatExist) {
    m_frameControl.write(2, 0xFFF);
    m_frameControl.write(5, 0xFFFFFFFF);
    m_frameControl.write(6, 0x040401B0);
    m_frameControl.write(8, 0x08080A20);
    m_frameControl.write(9, 0x00280018);
    m_frameControl.write(15, 0x00050004);
    EXPECT_EQ(m_frameControl.read(2), 0xFFFU);
    EXPECT_EQ(m_frameControl.read(5), 0xFFFFFFFFU);
    EXPECT_EQ(m_frameControl.read(6), 0x040401B0U);
    EXPECT_EQ(m_frameControl.read(8), 0x08080A20U);
    EXPECT_EQ(m_frameControl.read(9), 0x00280018U);
    EXPECT_EQ(m_frameControl.read(15), 0x00050004U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
    m_frameControl.write(6, 0xFFFFFFFF);
    EXPECT_EQ(m_frameControl.read(6), 0x7FFFFFFFU);
}

TEST_F(Fpga, TheHdrTriggerClearsItself) {
    m_frameControl.write(0, 3);
    EXPECT_EQ(m_frameControl.read(0), 2U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(Fpga, InterruptFlagsAreClearedByWritingOnes) {
    m_head.setFpgaWord(0xFF210010, 0xF0F0);
    EXPECT_EQ(m_frameControl.read(4), 0xF0F0U);
    m_frameControl.write(4, 0x00F0);
    EXPECT_EQ(m_frameControl.read(4), 0xF000U);
}

TEST_F(Fpga, BothHalvesOfTheDpaResetRegisterAreOneWord) {
    m_frameControl.write(10, 0xFFF);
    EXPECT_EQ(m_frameControl.read(10), 0xFFFU);
    m_frameControl.write(10, 0xFFF000);
    EXPECT_EQ(m_frameControl.read(10), 0xFFF000U);
    EXPECT_THAT(m_head.violations(), IsEmpty()); // the core is off: a register is a register
}

TEST_F(Fpga, TheBadPixelCoreRunsAndTakesItsTable) {
    tcRegisters control(0xFF215000, 4096);
    tcRegisters table(0xFF213000, 4096);
    tcRegisters takeOver(0xFF212000, 4096);
    EXPECT_EQ(control.read(0), 0x80000000U); // in reset
    control.write(0, 1);
    EXPECT_EQ(control.read(1), 1U);
    control.write(0, 0x80000001);
    EXPECT_EQ(control.read(1), 0U);
    table.write(0, 0x00000005);
    table.write(1, 0x00010000);
    control.write(4, 2);
    EXPECT_EQ(takeOver.read(1), 0U);
    takeOver.write(0, 1);
    EXPECT_EQ(takeOver.read(1), 2U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST(FpgaScenario, ASilentCoreReadsZero) {
    const auto head = sim::aVirtualHead()
                          .withSilentCore(sim::teCore::pwm)
                          .withSilentCore(sim::teCore::frameControl)
                          .build();
    const tcRegisters frameControl(0xFF210000);
    EXPECT_EQ(frameControl.read(128), 0U);
    EXPECT_EQ(frameControl.read(1024 + 128), 0U);
}

} // namespace

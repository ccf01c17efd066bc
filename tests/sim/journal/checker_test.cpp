// What software may do without breaking a rule, and what a violation says. Every rule at its limit:
// rule_pairs_test.cpp.

#include <gmock/gmock.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

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

// A capture without a picture is told, with what keeps the pictures away; and the link as it was
// while the sensor streamed.

#include <gmock/gmock.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr unsigned kFrameUs = 100000; // as `tcUser::configure` sets it

class FrameWatch : public testing::Test {
protected:
    // Everything but the capture; the pipeline's cores run.
    void getReady() {
        m_user.powerUp();
        m_user.configure();
        m_badPixels.write(0, 1);
        m_pixelShift.write(0, 0);
        ASSERT_EQ(m_user.bringUp(), 0);
    }
    void capture(unsigned microseconds) {
        m_user.start();
        usleep(microseconds);
        m_user.stop();
    }

    sim::tcVirtualHead m_head = sim::aVirtualHead().build();
    tcUser m_user;
    tcRegisters m_badPixels{0xFF215000, 4096};
    tcRegisters m_pixelShift{0xFF217000, 4096};
};

TEST_F(FrameWatch, IsSilentWherePicturesCome) {
    getReady();
    capture(5 * kFrameUs);
    EXPECT_EQ(m_head.frames(), 4U); // the first pulse is over before the link is aligned
    EXPECT_THAT(m_head.summary(), Not(HasSubstr("no picture")));
}

// `stop` leaves nothing of it.
TEST_F(FrameWatch, KeepsTheLinkAsItWasInCapture) {
    getReady();
    EXPECT_THAT(m_head.summary(), HasSubstr("  link now: enabled yes, locked no,"));
    capture(2 * kFrameUs);
    EXPECT_FALSE(m_head.link().aligned);
    EXPECT_THAT(m_head.summary(),
                AllOf(HasSubstr("  link in capture: enabled yes, locked yes, rgLocked yes, "
                                "gbLocked yes, aligned yes\n"
                                "  lanes in capture: 0 1 2 3 4 5 6 7 8 9 10 11\n"),
                      Not(HasSubstr("link now"))));
}

// Pulses may end before the sensor does.
TEST_F(FrameWatch, KeepsTheLinkAsItWasWithPulses) {
    getReady();
    m_user.start();
    usleep(2 * kFrameUs);
    m_user.pulses.write(0, 0);
    EXPECT_FALSE(m_head.link().aligned);
    m_user.port.writeRegister(0x10, 0);
    EXPECT_THAT(m_head.summary(), HasSubstr("gbLocked yes, aligned yes\n  lanes in capture: 0 "));
}

TEST_F(FrameWatch, TellsThatNothingStartsAFrame) {
    getReady();
    m_user.port.writeRegister(0x10, 3);
    constexpr unsigned messageUs = 5; // the sensor streams before the message is over
    usleep(3 * 99975 - messageUs);    // of itself the sensor takes 3999 lines of 25 us
    EXPECT_THAT(m_head.summary(), Not(HasSubstr("no picture")));
    usleep(messageUs);
    EXPECT_THAT(m_head.summary(), HasSubstr("\n  no picture from 0."));
    EXPECT_THAT(m_head.summary(), HasSubstr(" on: no pulses: nothing starts a frame\n"));
}

TEST_F(FrameWatch, TellsThatTheSensorWaitsForTriggers) {
    getReady();
    m_user.port.writeRegister(0x10, 0x103);
    usleep(4 * kFrameUs);
    EXPECT_THAT(m_head.summary(), HasSubstr(": no pulses: the sensor waits for triggers from "
                                            "outside, which do not come on this head\n"));
}

TEST_F(FrameWatch, TellsWhichCoreHoldsThePipeline) {
    getReady();
    m_pixelShift.write(0, 0x80000000);
    capture(4 * kFrameUs);
    EXPECT_EQ(m_head.frames(), 3U); // over the link
    EXPECT_THAT(m_head.summary(),
                HasSubstr(": the pipeline is held: the pixel-shift core is in reset\n"));
    m_pixelShift.write(0, 0);
    m_badPixels.write(0, 0);
    capture(4 * kFrameUs);
    EXPECT_THAT(m_head.summary(),
                HasSubstr(": the pipeline is held: the bad-pixel core does not run\n"));
}

TEST_F(FrameWatch, TellsThatTheCoreIsOff) {
    getReady();
    m_user.frameControl.write(0, 0);
    capture(4 * kFrameUs);
    EXPECT_THAT(m_head.summary(), HasSubstr(": not aligned: the frame-control core is off\n"));
}

// Of many captures without a picture the first ones are told.
TEST_F(FrameWatch, TellsEachCaptureForItself) {
    getReady();
    capture(4 * kFrameUs);
    for (int round = 0; round < 6; ++round) {
        m_pixelShift.write(0, 0x80000000);
        capture(4 * kFrameUs);
    }
    const std::string summary = m_head.summary();
    unsigned told = 0;
    for (std::size_t at = summary.find("no picture"); at != std::string::npos;
         at = summary.find("no picture", at + 1)) {
        ++told;
    }
    EXPECT_EQ(told, 4U);
}

struct tsLoss {
    const char* what;
    const char* why;
};

class FrameWatchOfALoss : public testing::TestWithParam<tsLoss> {};

TEST_P(FrameWatchOfALoss, TellsWhatIsNotLocked) {
    const sim::tcVirtualHead head =
        sim::aVirtualHead()
            .withFault({.name = "loss", .what = GetParam().what, .after = "SPI 03 00 00 04"})
            .build();
    tcUser user;
    user.powerUp();
    user.configure();
    ASSERT_EQ(user.bringUp(), 0);
    user.start();
    usleep(5 * kFrameUs);
    user.stop();
    EXPECT_THAT(head.summary(), HasSubstr(std::string(" on: not aligned: ") + GetParam().why));
    EXPECT_THAT(head.summary(), HasSubstr("aligned no\n  lanes in capture:"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, FrameWatchOfALoss,
    testing::Values(
        tsLoss{"lanes 3 7 lost", "lanes 3 7 are not locked\n"},
        tsLoss{"lanes 11 lost", "lane 11 is not locked\n"},
        tsLoss{"rgLocked lost", "the receiver's PLL has no lock (rgLocked not set)\n"},
        tsLoss{"PLL lost", "the receiver's PLL has no lock (locked, rgLocked, gbLocked not set)\n"},
        tsLoss{"alignment lost", "all lanes are locked, but no frame is recognised\n"}));

} // namespace

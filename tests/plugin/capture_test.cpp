// Starting and stopping, and what a board says of itself meanwhile.

#include <sstream>

#include "tests/plugin/plugin_test.h"

using Varnox::tc3U5MGXSSensorBoard;

namespace {

class Capture : public tcPluginTest {};

/// What `resetPipeline` does. \param shift, badPixel control words before
tsTrace pipelineHeld(std::uint32_t shift, std::uint32_t badPixel) {
    return {
        load(0xFF217000, shift),
        store(0xFF217000, shift | 0x80000000),
        load(0xFF215000, badPixel),
        store(0xFF215000, badPixel | 0x80000000),
    };
}
tsTrace pipelineReleased(std::uint32_t shift, std::uint32_t badPixel) {
    return {
        load(0xFF217000, shift),
        store(0xFF217000, shift & 0x7FFFFFFF),
        load(0xFF215000, badPixel),
        store(0xFF215000, badPixel & 0x7FFFFFFF),
    };
}

constexpr const char* kNotSynced = "Error starting capture (failed to get all channels synced)\n";

/// A board whose settings do not stand.
class tcInvalidBoard : public tc3U5MGXSSensorBoard {
public:
    tcInvalidBoard() : tc3U5MGXSSensorBoard("/dev/spidev1.0") {}
    int validate() override { return 1; }
};

} // namespace

// ---- start

TEST_F(Capture, StartFreeRunningLetsAFirstFramePassBeforeStreaming) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().start(); }), text({
                                                           pipelineReleased(0x80000000, 1),
                                                           spi(0x10, 4),
                                                           slept(200),
                                                           load(0xFF211000, 0x00000001),
                                                           store(0xFF211000, 0x80000001),
                                                           slept(8000),
                                                           slept(8),
                                                           spi(0x10, 3),
                                                           status(0, "Starting capture..."),
                                                       }));
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(board().isCapturing());
}

TEST_F(Capture, StartUnderAnExternalTriggerDoesNotPulse) {
    makeReadyBoard();
    board().setTrigger(Varnox::eTriggerExternal);
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().start(); }),
              text({
                  pipelineReleased(0x80000000, 1),
                  spi(0x10, 0x303), // frame-control mode 3 stays
                  status(0, "Starting capture..."),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(board().isCapturing());
    EXPECT_EQ(head().fpgaWord(0xFF211000), 0x00000001U);
}

TEST_F(Capture, StartTwiceIsRefusedWithTheTextOfAFailedPipeline) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().start(); }), text({printed(kNotSynced)}));
    EXPECT_EQ(result, 6);
    EXPECT_TRUE(board().isCapturing());
}

TEST_F(Capture, StartAfterStopStartsAgain) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    ASSERT_EQ(board().stop(), 0);
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().start(), 0); }),
              text({
                  pipelineReleased(0x80000000, 0x80000001),
                  spi(0x10, 4),
                  slept(200),
                  load(0xFF211000, 0x00000001),
                  store(0xFF211000, 0x80000001),
                  slept(8000),
                  slept(8),
                  spi(0x10, 3),
                  status(0, "Starting capture..."),
              }));
    EXPECT_TRUE(head().violations().empty());
}

TEST_F(Capture, StartWithInvalidSettingsReturnsFourAndTouchesNothing) {
    tcInvalidBoard invalid;
    int result = -1;
    EXPECT_EQ(seen([&] { result = invalid.start(); }), "");
    EXPECT_EQ(result, 4);
    EXPECT_FALSE(invalid.isCapturing());
}

TEST_F(Capture, StartWithoutPulseGeneratorReportsAndGoesOn) {
    useHead(aQuickHead().withSilentCore(sim::teCore::pwm).withQuietViolations());
    makeBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().start(), 0); },
                   sim::teEventKind::note | sim::teEventKind::sleep),
              text({
                  complained("tcBadPixelReplacement at 0xFF215000: reset: the core is not there\n"),
                  slept(200),
                  status(4, "tcPwm at 0xFF211000: enableCore: the core is not there"),
                  slept(8000),
                  slept(8),
                  status(0, "Starting capture..."),
              }));
}

TEST_F(Capture, StreamingSensorAndLinkMakeFrames) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    head().advance(std::chrono::seconds(1));
    EXPECT_GE(head().frames(), 9U); // one every 99.9 ms
    EXPECT_EQ(board().stop(), 0);
    EXPECT_TRUE(head().violations().empty());
}

// ---- stop

TEST_F(Capture, StopWaitsAFrameIntervalBeforeItHoldsThePipeline) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().stop(); }), text({
                                                          spi(0x10, 0),
                                                          slept(99900),
                                                          load(0xFF211000, 0x80000001),
                                                          store(0xFF211000, 0x00000001),
                                                          pipelineHeld(0, 1),
                                                          status(1, "Ending capture..."),
                                                      }));
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(board().isCapturing());
}

TEST_F(Capture, StopWithoutStartDoesTheSame) {
    makeReadyBoard();
    board().setFrameInterval(45000);
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().stop(); }), text({
                                                          spi(0x10, 0),
                                                          slept(45000),
                                                          load(0xFF211000, 0x00000001),
                                                          store(0xFF211000, 0x00000001),
                                                          pipelineHeld(0x80000000, 1),
                                                          status(1, "Ending capture..."),
                                                      }));
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(board().isCapturing());
}

TEST_F(Capture, StopSleepsForIntervalsOfMoreThanASecondInOneCall) {
    makeReadyBoard();
    board().setFrameInterval(2000700); // 2223 lines of 900
    ASSERT_EQ(board().getFrameInterval(), 2000700);
    EXPECT_EQ(seen([&] { board().stop(); }, sim::teEventKind::sleep), text({slept(2000700)}));
}

TEST_F(Capture, StopWithAnIntervalOfZeroDoesNotSleep) {
    makeReadyBoard();
    board().setFrameInterval(0);
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().stop(), 0); }), text({
                                                               spi(0x10, 0),
                                                               load(0xFF211000, 0x00000001),
                                                               store(0xFF211000, 0x00000001),
                                                               pipelineHeld(0x80000000, 1),
                                                               status(1, "Ending capture..."),
                                                           }));
}

TEST_F(Capture, StopWithANegativeIntervalDoesNotSleep) {
    makeReadyBoard();
    board().setFrameInterval(-1800);
    ASSERT_EQ(board().getFrameInterval(), -1800);
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().stop(), 0); }, sim::teEventKind::sleep), "");
}

TEST_F(Capture, StopUnderAnExternalTriggerKeepsItsFrameControlMode) {
    makeReadyBoard();
    board().setTrigger(Varnox::eTriggerExternal);
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(seen([&] { board().stop(); }, sim::teEventKind::spi), text({spi(0x10, 0x300)}));
}

TEST_F(Capture, StopWithoutPulseGeneratorReportsAndReturnsZero) {
    useHead(aQuickHead().withSilentCore(sim::teCore::pwm).withQuietViolations());
    makeBoard();
    EXPECT_EQ(board().stop(), 0);
    EXPECT_THAT(
        head().lines(sim::teEventKind::note),
        testing::Contains(status(4, "tcPwm at 0xFF211000: enableCore: the core is not there")));
}

// ---- State and refusals

TEST_F(Capture, ResetFpgaHoldsThePipelineAndReturnsOne) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().resetFpga(); }), text({pipelineHeld(0x80000000, 1)}));
    EXPECT_EQ(result, 1);
}

TEST_F(Capture, ValidateIsAlwaysZero) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().validate(), 0); }), "");
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(board().validate(), 0);
}

TEST_F(Capture, IsCapturingBetweenStartAndStop) {
    makeReadyBoard();
    EXPECT_FALSE(board().isCapturing());
    board().start();
    EXPECT_EQ(seen([&] { EXPECT_TRUE(board().isCapturing()); }), "");
    board().stop();
    EXPECT_FALSE(board().isCapturing());
}

TEST_F(Capture, PowerIsNotSupportedAndHasNoEffect) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] {
                  EXPECT_EQ(board().power(true), 7);
                  EXPECT_EQ(board().power(false), 7);
              }),
              "");
    EXPECT_TRUE(head().sensorAlive());
}

TEST_F(Capture, ShutterModeCannotBeSetAndIsOne) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] {
                  for (const int mode : {0, 1, 2, -1}) {
                      EXPECT_EQ(board().setShutterMode(static_cast<Varnox::teShutterMode>(mode)),
                                7);
                      EXPECT_EQ(board().getShutterMode(), 1);
                  }
              }),
              "");
}

TEST_F(Capture, TheNineOperationsBehindMirroringAreNotSupported) {
    makeReadyBoard();
    int one = 11;
    int two = 12;
    int three = 13;
    EXPECT_EQ(seen([&] {
                  EXPECT_EQ(board().setAnalogGain(1), 7);
                  EXPECT_EQ(board().getAnalogGain(&one), 7);
                  EXPECT_EQ(board().setBlackLevel(1), 7);
                  EXPECT_EQ(board().getBlackLevel(&one), 7);
                  EXPECT_EQ(board().setWhiteBalance(1, 2, 3), 7);
                  EXPECT_EQ(board().getWhiteBalance(&one, &two, &three), 7);
                  EXPECT_EQ(board().setGamma(1), 7);
                  EXPECT_EQ(board().getGamma(&one), 7);
                  EXPECT_EQ(board().setStrobe(1), 7);
              }),
              "");
    EXPECT_EQ(one, 11);
    EXPECT_EQ(two, 12);
    EXPECT_EQ(three, 13);
}

TEST_F(Capture, HostOperationsThatTheBoardLeavesAloneKeepTheirDefaults) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] {
                  EXPECT_EQ(board().calibrate(), 7);
                  EXPECT_EQ(board().whiteLevelCalibrate(), 7);
                  EXPECT_EQ(board().snap(), 7);
                  EXPECT_EQ(board().self(), &board());
              }),
              "");
}

TEST_F(Capture, StandardOutputIsLeftAsItWasFound) {
    makeReadyBoard();
    std::cout << std::hex << std::showbase;
    board().start();
    board().start();
    board().stop();
    EXPECT_TRUE(std::cout.flags() & std::ios::hex);
    EXPECT_TRUE(std::cout.flags() & std::ios::showbase);
    std::cout.flags(std::ios::dec | std::ios::skipws);
}

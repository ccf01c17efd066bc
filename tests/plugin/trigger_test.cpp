// Triggers: who starts a frame, who times it, and the line that lets triggers in.

#include "tests/plugin/plugin_test.h"

using Varnox::teTriggerMode;

namespace {

class Trigger : public tcPluginTest {};

/// Frame-control mode 3: the trigger starts the frame, the sensor times the exposure.
tsTrace triggeredExposure(int asked, std::uint32_t lineCount, std::uint32_t end) {
    return {
        status(6, "setExposure " + std::to_string(asked) + " uS"),
        spi(0x12, 1086),
        spi(0x14, lineCount),
        spi(0x15, 50),
        spi(0x16, end),
    };
}

tsTrace published(int applied) {
    return {
        word(0x3A004, static_cast<std::uint32_t>(applied)),
        status(6, "setExposure updated to " + std::to_string(applied) + " uS"),
    };
}

/// Frame-control mode 1: the trigger does both.
tsTrace externalExposure(int asked) {
    return {
        status(6, "setExposure " + std::to_string(asked) + " uS"),
        spi(0x12, 1086),
        spi(0x14, 100),
        spi(0x15, 0),
        spi(0x16, 0),
    };
}

} // namespace

TEST_F(Trigger, ExternalRaisesTheLineAndLetsTheTriggerStartFrames) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setTrigger(Varnox::eTriggerExternal); }),
              text({
                  level("EXT_TRIG_EN", 1),
                  spi(0x10, 0x300),
                  triggeredExposure(30000, 1200, 1198),
                  published(30000),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getTrigger(), 1);
    EXPECT_EQ(head().line("EXT_TRIG_EN"), 1);
}

TEST_F(Trigger, ExternalWithExternalExposureLetsTheTriggerTimeTheExposureToo) {
    makeReadyBoard();
    board().setInternalExposureMode(false);
    EXPECT_EQ(seen([&] { board().setTrigger(Varnox::eTriggerExternal); }),
              text({
                  level("EXT_TRIG_EN", 1),
                  spi(0x10, 0x100),
                  externalExposure(30000),
                  published(30000),
              }));
}

TEST_F(Trigger, FreeRunningLowersTheLineAndGoesBackToInternalExposureTwice) {
    makeReadyBoard();
    board().setTrigger(Varnox::eTriggerExternal);
    board().setInternalExposureMode(false);
    int result = -1;
    // The frame length is still that of triggered frames: 1086 lines.
    EXPECT_EQ(seen([&] { result = board().setTrigger(Varnox::eTriggerFreeRunning); }),
              text({
                  printed("Setting internal mode: 1\n"),
                  level("EXT_TRIG_EN", 0),
                  spi(0x10, 0),
                  exposure({30000, 1084, 1082, 0, 27100, 1200}),
                  level("EXT_TRIG_EN", 0),
                  spi(0x10, 0),
                  exposure({27100, 1084, 1082, 0, 27100}),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getTrigger(), 0);
    EXPECT_TRUE(board().getInternalExposureMode());
    EXPECT_EQ(head().line("EXT_TRIG_EN"), 0);
}

TEST_F(Trigger, UnknownModeAppliesTheOneInForceAndReturnsThree) {
    makeReadyBoard();
    board().setTrigger(Varnox::eTriggerExternal);
    for (const int mode : {2, 3, -1, 0x7FFFFFFF}) {
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().setTrigger(static_cast<teTriggerMode>(mode)); }),
                  text({
                      level("EXT_TRIG_EN", 1),
                      spi(0x10, 0x300),
                      triggeredExposure(30000, 1200, 1198),
                      published(30000),
                  }));
        EXPECT_EQ(result, 3);
        EXPECT_EQ(board().getTrigger(), 1);
    }
}

TEST_F(Trigger, UnknownModeWhileFreeRunningAppliesFreeRunning) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setTrigger(static_cast<teTriggerMode>(2)); }),
              text({
                  level("EXT_TRIG_EN", 0),
                  spi(0x10, 0),
                  exposure({30000, 3994, 3992, 2794, 30000}),
              }));
    EXPECT_EQ(result, 3);
    EXPECT_EQ(board().getTrigger(), 0);
}

TEST_F(Trigger, WhileCapturingEveryModeIsRefusedAndNothingIsTouched) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    for (const int mode : {0, 1, 2}) {
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().setTrigger(static_cast<teTriggerMode>(mode)); }), "");
        EXPECT_EQ(result, 5);
        EXPECT_EQ(board().getTrigger(), 0);
    }
    board().stop();
    EXPECT_EQ(board().setTrigger(Varnox::eTriggerExternal), 0);
}

TEST_F(Trigger, SetTriggerIgnoresTheRefusalOfTheExposure) {
    makeReadyBoard();
    board().setExposureMode(tc3U5MGXS::eExposureRolling);
    EXPECT_EQ(board().setTrigger(Varnox::eTriggerFreeRunning), 0);
}

TEST_F(Trigger, InternalExposureModeIsStoredWhileFreeRunningAndChangesNothingElse) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setInternalExposureMode(false); }),
              text({
                  printed("Setting internal mode: 0\n"),
                  level("EXT_TRIG_EN", 0),
                  spi(0x10, 0),
                  exposure({30000, 3994, 3992, 2794, 30000}),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(board().getInternalExposureMode());
}

TEST_F(Trigger, InternalExposureModeUnderAnExternalTriggerSelectsFrameControl) {
    makeReadyBoard();
    board().setTrigger(Varnox::eTriggerExternal);
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setInternalExposureMode(false), 0); }),
              text({
                  printed("Setting internal mode: 0\n"),
                  level("EXT_TRIG_EN", 1),
                  spi(0x10, 0x100),
                  externalExposure(30000),
                  published(30000),
              }));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setInternalExposureMode(true), 0); }),
              text({
                  printed("Setting internal mode: 1\n"),
                  level("EXT_TRIG_EN", 1),
                  spi(0x10, 0x300),
                  triggeredExposure(30000, 1200, 1198),
                  published(30000),
              }));
}

TEST_F(Trigger, InternalExposureModeReturnsTheRefusalOfTheExposure) {
    makeReadyBoard();
    board().setExposureMode(tc3U5MGXS::eExposureRolling);
    EXPECT_EQ(board().setInternalExposureMode(false), 4);
    EXPECT_FALSE(board().getInternalExposureMode());
    EXPECT_EQ(board().configureTriggers(), 4);
}

TEST_F(Trigger, InternalExposureModeWhileCapturingIsAccepted) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    // The frame state stays in the same register.
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setInternalExposureMode(false), 0); }),
              text({
                  printed("Setting internal mode: 0\n"),
                  level("EXT_TRIG_EN", 0),
                  spi(0x10, 3),
                  exposure({30000, 3994, 3992, 2794, 30000}),
              }));
}

TEST_F(Trigger, ExposureBeyondTheCountersIsLimitedUnderAnExternalTrigger) {
    makeReadyBoard();
    board().setTrigger(Varnox::eTriggerExternal);
    // 500000 us by 36 by 900 are 20000 lines. The stored exposure stays.
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setExposure(500000), 0); }),
              text({
                  status(6, "setExposure 500000 uS"),
                  printed("tc3U5MGXS::setExposure: Limiting exposure: exposure duration: 16383\n"),
                  spi(0x12, 1086),
                  spi(0x14, 16383),
                  spi(0x15, 50),
                  spi(0x16, 16381),
                  published(30000),
              }));
}

TEST_F(Trigger, OnlyTheExposureWithinTakesTheBoardMutex) {
    makeReadyBoard();
    noteBoardLocks();
    const tsTrace triggered = lines({
        level("EXT_TRIG_EN", 1),
        spi(0x10, 0x300),
        locked(),
        triggeredExposure(30000, 1200, 1198),
        published(30000),
        unlocked(),
    });
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setTrigger(Varnox::eTriggerExternal), 0); }),
              text({triggered}));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setTrigger(static_cast<teTriggerMode>(2)), 3); }),
              text({triggered}));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().configureTriggers(), 0); }), text({triggered}));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setInternalExposureMode(false), 0); }),
              text({
                  printed("Setting internal mode: 0\n"),
                  level("EXT_TRIG_EN", 1),
                  spi(0x10, 0x100),
                  locked(),
                  externalExposure(30000),
                  published(30000),
                  unlocked(),
              }));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setTrigger(Varnox::eTriggerFreeRunning), 0); }),
              text({
                  printed("Setting internal mode: 1\n"),
                  level("EXT_TRIG_EN", 0),
                  spi(0x10, 0),
                  locked(),
                  exposure({30000, 1084, 1082, 0, 27100, 1200}),
                  unlocked(),
                  level("EXT_TRIG_EN", 0),
                  spi(0x10, 0),
                  locked(),
                  exposure({27100, 1084, 1082, 0, 27100}),
                  unlocked(),
              }));
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setTrigger(Varnox::eTriggerExternal), 5); }), "");
}

TEST_F(Trigger, GettersTouchAndPrintNothing) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] {
                  EXPECT_EQ(board().getTrigger(), 0);
                  EXPECT_TRUE(board().getInternalExposureMode());
              }),
              "");
}

TEST_F(Trigger, MissingLineIsReportedOnceAndDoesNotKeepTheSensorFromItsMode) {
    useHead(aQuickHead().withoutGpioLine("EXT_TRIG_EN"));
    makeInitializedBoard();
    EXPECT_EQ(board().setTrigger(Varnox::eTriggerExternal), 0);
    EXPECT_EQ(head().sensorState().frameControlMode, 3U);
}

TEST_F(Trigger, SkippingFramesIsForFreeRunningBoards) {
    makeReadyBoard();
    bool skip = true;
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().GetSkipFrames(skip), 1); }), "");
    EXPECT_FALSE(skip);

    board().setTrigger(Varnox::eTriggerExternal);
    skip = true;
    EXPECT_EQ(board().GetSkipFrames(skip), 0);
    EXPECT_FALSE(skip);
    skip = false;
    EXPECT_EQ(board().GetSkipFrames(skip), 0);
    EXPECT_FALSE(skip);
}

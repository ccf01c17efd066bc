#include <varnox/codes.h>

#include <gtest/gtest.h>

// Hosts and boards are built apart from each other: the numbers between them never change.

TEST(Codes, ResultsAreTheHostsNumbers) {
    EXPECT_EQ(Varnox::eSuccess, 0);
    EXPECT_EQ(Varnox::eInvalidArgument, 3);
    EXPECT_EQ(Varnox::eValidationFailed, 4);
    EXPECT_EQ(Varnox::eCaptureInProgress, 5);
    EXPECT_EQ(Varnox::eLinkFailure, 6);
    EXPECT_EQ(Varnox::eNotSupported, 7);
}

TEST(Codes, StatusLevelsAreTheHostsNumbers) {
    EXPECT_EQ(Varnox::eStatusPlain, -1);
    EXPECT_EQ(Varnox::eStatusCaptureStarted, 0);
    EXPECT_EQ(Varnox::eStatusCaptureEnded, 1);
    EXPECT_EQ(Varnox::eStatusError, 4);
    EXPECT_EQ(Varnox::eStatusProgress, 6);
}

TEST(Codes, ModesAreTheHostsNumbers) {
    EXPECT_EQ(Varnox::eTriggerFreeRunning, 0);
    EXPECT_EQ(Varnox::eTriggerExternal, 1);
    EXPECT_EQ(Varnox::eShutterRolling, 0);
    EXPECT_EQ(Varnox::eShutterGlobal, 1);
    EXPECT_EQ(Varnox::eBPP12, 0);
    EXPECT_EQ(Varnox::eBPP10, 1);
    EXPECT_EQ(Varnox::eBPP8, 2);
    EXPECT_EQ(Varnox::eBPP16, 3);
    EXPECT_EQ(Varnox::eTestPatternOff, 0);
    EXPECT_EQ(Varnox::eTestPatternDefault, 1);
    EXPECT_EQ(Varnox::eTestPatternSensorFirst, 16);
    EXPECT_EQ(Varnox::eTestPatternSensorSecond, 17);
    EXPECT_EQ(Varnox::ePacking8, 1);
    EXPECT_EQ(Varnox::ePacking12, 2);
    EXPECT_EQ(Varnox::ePacking16, 3);
}

TEST(Codes, UpdatesAreTheHostsNumbers) {
    EXPECT_EQ(Varnox::kUpdateWordWrite, 1);
    EXPECT_EQ(Varnox::kUpdateFailed, 0x8FFF);
}

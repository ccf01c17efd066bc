// Exposure and frame interval. On a board that is ready, a line lasts 900 clocks of 36 MHz: 25 us.

#include <limits>
#include <thread>

#include "tests/plugin/plugin_test.h"

using testing::ElementsAre;
using Varnox::tc3U5MGXSSensorBoard;

namespace {

class Exposure : public tcPluginTest {};

constexpr int kMaxInt = 2147483647;
constexpr int kMinInt = std::numeric_limits<int>::min();

} // namespace

// ---- setExposure

TEST_F(Exposure, SetExposureReportsProgramsPublishesAndReports) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setExposure(10000); }),
              text({
                  status(6, "setExposure 10000 uS"),
                  spi(0x14, 0x3FFF),
                  spi(0x15, 0x3FFF),
                  spi(0x1A, 0),
                  spi(0x3B, 0x3FFF),
                  spi(0x1C, 0x3FFF),
                  spi(0x1B, 3994), // 3996 lines a frame, less 2
                  spi(0x16, 3992),
                  printed("tc3U5MGXS::setExposure: hd_prd: 899, gs_pos1: 3994, acc_fpos: 3594\n"),
                  spi(0x19, 3594), // 400 lines before
                  printed("tc3U5MGXS::setExposure after: 10000\n"),
                  word(0x3A004, 10000),
                  status(6, "setExposure updated to 10000 uS"),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getExposure(), 10000);
}

TEST_F(Exposure, SetExposureStoresWhatTheLinesComeToNotWhatWasAskedFor) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { board().setExposure(10024); }),
              text({exposure({10024, 3994, 3992, 3594, 10000})}));
    EXPECT_EQ(board().getExposure(), 10000);
    EXPECT_EQ(registerFile().read_word(0x3A004), 10000U);
}

TEST_F(Exposure, SetExposureOfAWholeFrameIsNotLimited) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { board().setExposure(99850); }),
              text({exposure({99850, 3994, 3992, 0, 99850})}));
}

TEST_F(Exposure, SetExposureOfALineMoreThanAFrameIsLimited) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setExposure(99875); }),
              text({exposure({99875, 3994, 3992, 0, 99850, 3995})}));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getExposure(), 99850);
}

TEST_F(Exposure, SetExposureOfZeroBecomesOneLine) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { board().setExposure(0); }),
              text({exposure({0, 3994, 3992, 3993, 25, -1, 3994})}));
    EXPECT_EQ(board().getExposure(), 25);
}

TEST_F(Exposure, SetExposureBelowZeroBecomesOneLine) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { board().setExposure(-1); }),
              text({exposure({-1, 3994, 3992, 3993, 25, -1, 3994})}));
    EXPECT_EQ(seen([&] { board().setExposure(kMinInt); }),
              text({exposure({kMinInt, 3994, 3992, 3993, 25, -1, 3994})}));
}

TEST_F(Exposure, SetExposureOfTheLargestNumberIsLimited) {
    makeReadyBoard();
    // 2147483647 becomes 2147483648 in single precision; times 36 by 900 is 85899345.92, and
    // single precision has steps of 8 there.
    EXPECT_EQ(seen([&] { board().setExposure(kMaxInt); }),
              text({exposure({kMaxInt, 3994, 3992, 0, 99850, 85899344})}));
}

TEST_F(Exposure, SetExposureInDualModeHalvesTheLines) {
    makeReadyBoard();
    board().setExposureMode(tc3U5MGXS::eExposureDual);
    EXPECT_EQ(
        seen([&] { board().setExposure(10025); }),
        text({
            status(6, "setExposure 10025 uS"),
            spi(0x14, 0x3FFF),
            spi(0x15, 0x3FFF),
            spi(0x1A, 0),
            spi(0x3B, 0x3FFF),
            spi(0x1C, 3994),
            printed("tc3U5MGXS::setExposure: hd_prd: 899, gs_pos2: 3994, acc_fpos: 3593\n"),
            printed("tc3U5MGXS::setExposure Increasing exposure to make even: acc_fpos: 3593, "
                    "gs_pos2: 3994\n"),
            spi(0x19, 3594),
            spi(0x1B, 3794),
            spi(0x16, 3792),
            printed("tc3U5MGXS::setExposure: gs_pos1: 3794, gres_pos: 3792\n"),
            printed("tc3U5MGXS::setExposure after: 10000\n"),
            word(0x3A004, 10000),
            status(6, "setExposure updated to 10000 uS"),
        }));
}

TEST_F(Exposure, SetExposureInRollingModeIsNotSupportedAndPublishesTheOldOne) {
    makeReadyBoard();
    board().setExposureMode(tc3U5MGXS::eExposureRolling);
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setExposure(10000); }),
              text({
                  status(6, "setExposure 10000 uS"),
                  word(0x3A004, 30000),
                  status(6, "setExposure updated to 30000 uS"),
              }));
    EXPECT_EQ(result, 4);
    EXPECT_EQ(board().getExposure(), 30000);
}

TEST_F(Exposure, SetExposureOnABoardThatWasNeverInitializedLeavesNoUndefinedNumber) {
    // No clock and no register yet: nothing comes of the lines, and the time of one of them, by a
    // clock of 0 MHz, is the largest number, which is -1 when it is signed.
    makeBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setExposure(1000); }, sim::teEventKind::note),
              text({
                  status(6, "setExposure 1000 uS"),
                  printed("tc3U5MGXS::setExposure: hd_prd: 0, gs_pos1: 65534, acc_fpos: 65534\n"),
                  printed("tc3U5MGXS::setExposure Increasing exposure: acc_fpos: 65534, "
                          "gs_pos1: 65534\n"),
                  printed("tc3U5MGXS::setExposure after: -1\n"),
                  word(0x3A004, 0xFFFFFFFF),
                  status(6, "setExposure updated to -1 uS"),
              }));
    EXPECT_EQ(result, 0);
}

// ---- getExposure

TEST_F(Exposure, GetExposurePrintsAndTouchesNothing) {
    makeReadyBoard();
    int exposure = -1;
    EXPECT_EQ(seen([&] { exposure = board().getExposure(); }),
              text({printed("getExposure: 30000\n")}));
    EXPECT_EQ(exposure, 30000);
}

TEST_F(Exposure, GetExposureBeforeInitializeIsZero) {
    makeBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().getExposure(), 0); }),
              text({printed("getExposure: 0\n")}));
    EXPECT_EQ(board().getFrameInterval(), 0);
}

TEST_F(Exposure, GetExposurePrintsASign) {
    makeBoard();
    board().setExposure(1000); // without a clock
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().getExposure(), -1); }),
              text({printed("getExposure: -1\n")}));
}

// ---- setFrameInterval

TEST_F(Exposure, SetFrameIntervalRoundsDownToTheHorizontalPeriod) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setFrameInterval(100000); }),
              text({
                  frameLength(99900, 3996),
                  exposure({30000, 3994, 3992, 2794, 30000}),
                  store(0xFF211004, 3596400),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getFrameInterval(), 99900);
}

TEST_F(Exposure, SetFrameIntervalKeepsAMultipleOfTheHorizontalPeriod) {
    makeReadyBoard();
    board().setFrameInterval(45000);
    EXPECT_EQ(board().getFrameInterval(), 45000);
    board().setFrameInterval(45899);
    EXPECT_EQ(board().getFrameInterval(), 45000);
    board().setFrameInterval(45900);
    EXPECT_EQ(board().getFrameInterval(), 45900);
}

TEST_F(Exposure, SetFrameIntervalBelowTheExposureShortensTheExposure) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(
        seen([&] { result = board().setFrameInterval(20000); }),
        text({
            frameLength(19800, 792),
            status(6, "setFrameInterval: Exposure higher than frame interval. Interval 19800 uS, "
                      "Exposure 30000 uS"),
            exposure({19800, 790, 788, 0, 19750, 792}),
            store(0xFF211004, 712800),
        }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getExposure(), 19750);
    EXPECT_EQ(board().getFrameInterval(), 19800);
}

TEST_F(Exposure, SetFrameIntervalEqualToTheExposureIsNotBelowIt) {
    makeReadyBoard();
    board().setExposure(45000);
    EXPECT_EQ(seen([&] { board().setFrameInterval(45000); }),
              text({
                  frameLength(45000, 1800),
                  exposure({45000, 1798, 1796, 0, 44950, 1800}),
                  store(0xFF211004, 1620000),
              }));
}

TEST_F(Exposure, SetFrameIntervalThatThePulsesCannotHaveIsReportedAndStored) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setFrameInterval(899); }),
              text({
                  frameLength(0, 0),
                  status(6, "setFrameInterval: Exposure higher than frame interval. Interval 0 uS, "
                            "Exposure 30000 uS"),
                  exposure({0, 65534, 65532, 65533, 25, -1, 65534}),
                  status(4, "tcPwm at 0xFF211000: a period of 0 us is 0 clocks; it takes 2 to "
                            "4294967295"),
              }));
    EXPECT_EQ(result, 3);
    EXPECT_EQ(board().getFrameInterval(), 0);
    EXPECT_EQ(board().getExposure(), 25);
}

TEST_F(Exposure, SetFrameIntervalBelowZeroRoundsTowardsZero) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(
        seen([&] { result = board().setFrameInterval(-1000); }),
        text({
            frameLength(-900, 0),
            status(6, "setFrameInterval: Exposure higher than frame interval. Interval -900 uS, "
                      "Exposure 30000 uS"),
            exposure({-900, 65534, 65532, 65533, 25, -1, 65534}),
            status(4, "tcPwm at 0xFF211000: a period of -900 us is -32400 clocks; it takes 2 to "
                      "4294967295"),
        }));
    EXPECT_EQ(result, 3);
    EXPECT_EQ(board().getFrameInterval(), -900);
}

TEST_F(Exposure, SetFrameIntervalOfTheLargestNumberFillsTheFrameLength) {
    makeReadyBoard();
    int result = -1;
    // 2147482800 us by 36 clocks do not fit the pulse generator's 32 bits.
    EXPECT_EQ(seen([&] { result = board().setFrameInterval(kMaxInt); }),
              text({
                  frameLength(2147482800, 16383),
                  exposure({30000, 16381, 16379, 15181, 30000}),
                  status(4, "tcPwm at 0xFF211000: a period of 2147482800 us is 77309380800 "
                            "clocks; it takes 2 to 4294967295"),
              }));
    EXPECT_EQ(result, 3);
    EXPECT_EQ(board().getFrameInterval(), 2147482800);
}

TEST_F(Exposure, SetFrameIntervalReturnsTheRefusalOfTheExposure) {
    makeReadyBoard();
    board().setExposureMode(tc3U5MGXS::eExposureRolling);
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setFrameInterval(45000); }),
              text({
                  frameLength(45000, 1800),
                  status(6, "setExposure 30000 uS"),
                  word(0x3A004, 30000),
                  status(6, "setExposure updated to 30000 uS"),
                  store(0xFF211004, 1620000),
              }));
    EXPECT_EQ(result, 4);
    EXPECT_EQ(board().getFrameInterval(), 45000);
}

TEST_F(Exposure, SetFrameIntervalLetsThePulsesRefusalReplaceTheExposures) {
    makeReadyBoard();
    board().setExposureMode(tc3U5MGXS::eExposureRolling);
    EXPECT_EQ(board().setFrameInterval(0), 3);
}

TEST_F(Exposure, SetFrameIntervalUnderAnExternalTriggerLeavesTheFrameLength) {
    makeReadyBoard();
    board().setTrigger(Varnox::eTriggerExternal);
    EXPECT_EQ(seen([&] { board().setFrameInterval(45000); }),
              text({
                  status(-1, "setFrameInterval: 45000 uS"),
                  status(6, "setExposure 30000 uS"),
                  spi(0x12, 1086),
                  spi(0x14, 1200),
                  spi(0x15, 50),
                  spi(0x16, 1198),
                  word(0x3A004, 30000),
                  status(6, "setExposure updated to 30000 uS"),
                  store(0xFF211004, 1620000),
              }));
    EXPECT_EQ(board().getFrameInterval(), 45000);
}

TEST_F(Exposure, SetFrameIntervalWhileCapturingIsAccepted) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(board().setFrameInterval(90000), 0);
    EXPECT_EQ(board().getFrameInterval(), 90000);
}

TEST_F(Exposure, SetFrameIntervalOnAMissingPulseGeneratorReturnsThree) {
    useHead(aQuickHead().withSilentCore(sim::teCore::pwm));
    makeBoard();
    EXPECT_EQ(board().setFrameInterval(45000), 3);
    EXPECT_EQ(board().getFrameInterval(), 45000);
    EXPECT_THAT(head().lines(sim::teEventKind::note),
                testing::Contains("NOTE STATUS 4 tcPwm at 0xFF211000: setPeriodTime: the core is "
                                  "not there"));
}

TEST_F(Exposure, GetFrameIntervalTouchesAndPrintsNothing) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().getFrameInterval(), 99900); }), "");
}

TEST_F(Exposure, MinimumFrameIntervalIsTheReadoutTime) {
    makeReadyBoard();
    int minimum = -1;
    // 2055 rows make 1027 pairs, 57 more lines: 1084 lines of 25 us.
    EXPECT_EQ(seen([&] { minimum = board().getMinFrameIntervalMicroS(); }),
              text({printed("getFrameReadoutTime(): 27100 uS\n")}));
    EXPECT_EQ(minimum, 27100);
}

// ---- setExposureMode

TEST_F(Exposure, SetExposureModeAppliesTheExposureAnew) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setExposureMode(tc3U5MGXS::eExposureDual); }),
              text({
                  printed("getFrameReadoutTime(): 54200 uS\n"),
                  printed("getFrameReadoutTime(): 54200 uS\n"),
                  word(0x3C020, 54200),
                  status(6, "setExposure 30000 uS"),
                  spi(0x14, 0x3FFF),
                  spi(0x15, 0x3FFF),
                  spi(0x1A, 0),
                  spi(0x3B, 0x3FFF),
                  spi(0x1C, 3994),
                  printed("tc3U5MGXS::setExposure: hd_prd: 899, gs_pos2: 3994, acc_fpos: 2794\n"),
                  spi(0x19, 2794),
                  spi(0x1B, 3394),
                  spi(0x16, 3392),
                  printed("tc3U5MGXS::setExposure: gs_pos1: 3394, gres_pos: 3392\n"),
                  printed("tc3U5MGXS::setExposure after: 30000\n"),
                  word(0x3A004, 30000),
                  status(6, "setExposure updated to 30000 uS"),
              }));
    EXPECT_EQ(result, 0);
}

TEST_F(Exposure, SetExposureModeRaisesAFrameIntervalBelowTheMinimum) {
    makeReadyBoard();
    board().setFrameInterval(45000);
    board().setExposure(10000);
    int result = -1;
    const auto dual = [](int asked) {
        return lines({
            status(6, "setExposure " + std::to_string(asked) + " uS"),
            spi(0x14, 0x3FFF),
            spi(0x15, 0x3FFF),
            spi(0x1A, 0),
            spi(0x3B, 0x3FFF),
            spi(0x1C, 2158), // 2160 lines, less 2
            printed("tc3U5MGXS::setExposure: hd_prd: 899, gs_pos2: 2158, acc_fpos: 1758\n"),
            spi(0x19, 1758),
            spi(0x1B, 1958),
            spi(0x16, 1956),
            printed("tc3U5MGXS::setExposure: gs_pos1: 1958, gres_pos: 1956\n"),
            printed("tc3U5MGXS::setExposure after: 10000\n"),
            word(0x3A004, 10000),
            status(6, "setExposure updated to 10000 uS"),
        });
    };
    EXPECT_EQ(seen([&] { result = board().setExposureMode(tc3U5MGXS::eExposureDual); }),
              text({
                  printed("getFrameReadoutTime(): 54200 uS\n"),
                  frameLength(54000, 2160), // 54200 rounded down to lines of 900
                  dual(10000),
                  store(0xFF211004, 1944000),
                  word(0x3A000, 54000),
                  printed("getFrameReadoutTime(): 54200 uS\n"),
                  word(0x3C020, 54200),
                  dual(10000),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getFrameInterval(), 54000);
}

TEST_F(Exposure, SetExposureModeRaisesToAMultipleOfTheHorizontalPeriod) {
    makeReadyBoard();
    // 41 pairs and 57 lines more are 98 lines of 25 us.
    board().setROI({0, 0, 2592, 84});
    ASSERT_EQ(board().getMinFrameIntervalMicroS(), 2450);
    board().setFrameInterval(4500);
    head().clearLog();
    board().setExposureMode(tc3U5MGXS::eExposureDual);   // 4900 us
    EXPECT_EQ(registerFile().read_word(0x3A000), 4500U); // 4900 rounded down: 4500 again
    EXPECT_EQ(board().getFrameInterval(), 4500);
}

TEST_F(Exposure, SetExposureModeReturnsTheRefusalOfTheRaisedInterval) {
    makeReadyBoard();
    board().setFrameInterval(20000);
    board().setExposureMode(tc3U5MGXS::eExposureSingle); // raised to 27000
    ASSERT_EQ(board().getFrameInterval(), 27000);
    // 27100 again, above 27000; the exposure has no arithmetic now.
    EXPECT_EQ(board().setExposureMode(tc3U5MGXS::eExposureRolling), 4);
    EXPECT_EQ(board().getFrameInterval(), 27000);
}

TEST_F(Exposure, SetExposureModeIgnoresTheRefusalOfTheExposure) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setExposureMode(tc3U5MGXS::eExposureRolling); }),
              text({
                  printed("getFrameReadoutTime(): 27100 uS\n"),
                  printed("getFrameReadoutTime(): 27100 uS\n"),
                  word(0x3C020, 27100),
                  status(6, "setExposure 30000 uS"),
                  word(0x3A004, 30000),
                  status(6, "setExposure updated to 30000 uS"),
              }));
    EXPECT_EQ(result, 0);
}

TEST_F(Exposure, SetExposureModeComparesTheMinimumAsTheNumberItIs) {
    // Without a clock the readout takes for ever: -1 as a number, below every interval.
    makeBoard();
    ASSERT_EQ(board().setFrameInterval(5000), 0);
    registerFile().update_word(0x3A000, 4711); // of an earlier test, perhaps
    EXPECT_EQ(board().setExposureMode(tc3U5MGXS::eExposureSingle), 0);
    EXPECT_EQ(board().getFrameInterval(), 5000);
    EXPECT_EQ(registerFile().read_word(0x3A000), 4711U);
    EXPECT_EQ(registerFile().read_word(0x3C020), 0xFFFFFFFF);
}

// ---- Locks

namespace {

/// \return the status lines of an operation, each with "taken" or "free": what another thread finds
///         when it tries the board mutex as the line is reported
template<class Operation>
tsTrace reports(tc3U5MGXSSensorBoard& board, Operation operation) {
    tcMutex& mutex = boardMutexOf(board);
    tsTrace lines;
    board.setStatusListener([&](int level, const std::string& text) {
        lines.push_back((isTaken(mutex) ? "taken " : "free ") + std::to_string(level) + " " + text);
    });
    operation();
    board.setStatusListener({});
    EXPECT_FALSE(isTaken(mutex));
    return lines;
}

} // namespace

TEST_F(Exposure, SetExposureHoldsTheBoardMutexWhileItReports) {
    makeReadyBoard();
    EXPECT_THAT(
        reports(board(), [&] { board().setExposure(10000); }),
        ElementsAre("taken 6 setExposure 10000 uS", "taken 6 setExposure updated to 10000 uS"));
}

TEST_F(Exposure, SetFrameIntervalHoldsTheBoardMutexWhileItReports) {
    makeReadyBoard();
    EXPECT_THAT(reports(board(), [&] { board().setFrameInterval(45000); }),
                ElementsAre("taken -1 setFrameInterval: 45000 uS", "taken 6 setExposure 30000 uS",
                            "taken 6 setExposure updated to 30000 uS"));
    EXPECT_THAT(reports(board(), [&] { EXPECT_EQ(board().setFrameInterval(899), 3); }),
                ElementsAre("taken -1 setFrameInterval: 0 uS",
                            "taken 6 setFrameInterval: Exposure higher than frame interval. "
                            "Interval 0 uS, Exposure 30000 uS",
                            "taken 6 setExposure 0 uS", "taken 6 setExposure updated to 25 uS",
                            "taken 4 tcPwm at 0xFF211000: a period of 0 us is 0 clocks; it takes 2 "
                            "to 4294967295"));
}

TEST_F(Exposure, GettersOfTheTriggerTakeNoLock) {
    makeBoard();
    noteBoardLocks();
    EXPECT_EQ(seen([&] {
                  board().getTrigger();
                  board().getInternalExposureMode();
                  bool skip = true;
                  board().GetSkipFrames(skip);
              }),
              "");
}

TEST_F(Exposure, SetExposureGoesOnWhenTheMutexsOwnerDied) {
    makeBoard();
    tcMutex& mutex = boardMutexOf(board());
    std::thread([&] { mutex.lock(); }).join();
    EXPECT_EQ(board().setExposure(1000), 0);
    // Consistent again: the next owner gets it without a hint of the dead one.
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.unlock(), 0);
}

TEST_F(Exposure, AClientsWordGoesOnWhenTheMutexsOwnerDied) {
    makeBoard();
    tcMutex& mutex = boardMutexOf(board());
    std::thread([&] { mutex.lock(); }).join();
    Varnox::tsUpdate update{1, 0x3A004, 1000, false, 0};
    board().update(update);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0);
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.unlock(), 0);
}

TEST_F(Exposure, SetFrameIntervalGoesOnWhenTheMutexsOwnerDied) {
    makeBoard();
    tcMutex& mutex = boardMutexOf(board());
    std::thread([&] { mutex.lock(); }).join();
    board().setFrameInterval(1000);
    EXPECT_EQ(board().getFrameInterval(), 1000);
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.unlock(), 0);
}

TEST_F(Exposure, StandardOutputIsLeftAsItWasFound) {
    makeReadyBoard();
    std::cout << std::hex << std::uppercase;
    std::cout.width(12);
    board().setExposure(10000);
    board().getExposure();
    board().setFrameInterval(45000);
    board().setExposureMode(tc3U5MGXS::eExposureDual);
    EXPECT_EQ(std::cout.width(0), 12);
    EXPECT_TRUE(std::cout.flags() & std::ios::hex);
    EXPECT_TRUE(std::cout.flags() & std::ios::uppercase);
    std::cout.flags(std::ios::dec | std::ios::skipws);
    EXPECT_THAT(out().text(), testing::HasSubstr("getExposure: 10000\n"));
}

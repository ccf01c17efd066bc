#include <varnox/sensor_board.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <thread>

#include <gmock/gmock.h>

#include <varnox/abstract_handler.h>
#include <varnox/pipeline.h>
#include <varnox/register_file.h>

#include "tests/support/consistency_spy.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Varnox::tcRegisterFile;
using Varnox::tcSensorBoard;
using Varnox::tsUpdate;

namespace {

using tsStatusLines = std::vector<std::pair<int, std::string>>;

/// A board that overrides nothing, with what it inherits laid open.
class tcBareBoard : public tcSensorBoard {
public:
    explicit tcBareBoard(int* events = nullptr)
        : tcSensorBoard(4, 0xFF200000, 0x18000, 4, events) {}

    using tcSensorBoard::boardMutex;
    using tcSensorBoard::pipeline;
    using tcSensorBoard::updateStatus;
    using tcSensorBoard::updateStatusFMT;
};

/// A board that takes times in steps of 10 us, up to a limit.
class tcTimingBoard : public tcSensorBoard {
public:
    tcTimingBoard() : tcSensorBoard(0, 0, 0, 0, nullptr) {}

    using tcSensorBoard::boardMutex;

    int setExposure(int microseconds) override {
        calls.push_back("setExposure " + std::to_string(microseconds));
        if (microseconds > kLimit)
            return 3;
        m_exposure = microseconds / 10 * 10;
        return 0;
    }
    int getExposure() override { return m_exposure; }
    int setFrameInterval(int microseconds) override {
        calls.push_back("setFrameInterval " + std::to_string(microseconds));
        if (microseconds > kLimit)
            return 3;
        m_interval = microseconds / 10 * 10;
        return 0;
    }
    int getFrameInterval() override { return m_interval; }

    std::vector<std::string> calls;

private:
    static constexpr int kLimit = 1000000;
    int m_exposure = 30000;
    int m_interval = 100000;
};

/// Sends a word write to a board as the register file does.
tsUpdate send(tcSensorBoard& board, std::uint32_t address, std::uint32_t value, int kind = 1) {
    tsUpdate update{kind, address, value, false, 0};
    board.update(update);
    return update;
}

std::optional<std::uint32_t> published(std::uint32_t address) {
    return tcRegisterFile::getInstance(nullptr, true)->read_word(address);
}

} // namespace

TEST(SensorBoard, SaysThatItHasNothingOfTheKind) {
    tcBareBoard board;
    EXPECT_EQ(board.resetFpga(), 7);
    EXPECT_EQ(board.calibrate(), 7);
    EXPECT_EQ(board.whiteLevelCalibrate(), 7);
    EXPECT_EQ(board.setClockSetting(0), 7);
    EXPECT_EQ(board.snap(), 7);
    EXPECT_EQ(board.initialize(), 7);
    EXPECT_EQ(board.setExposure(1), 7);
    EXPECT_EQ(board.setFrameInterval(1), 7);
    EXPECT_EQ(board.setROI({0, 0, 1, 1}), 7);
    EXPECT_EQ(board.setVerticalBin(1), 7);
    EXPECT_EQ(board.setHorizontalBin(1), 7);
    EXPECT_EQ(board.setShutterMode(Varnox::eShutterGlobal), 7);
    EXPECT_EQ(board.setBPP(Varnox::eBPP12), 7);
    EXPECT_EQ(board.setColor(true), 7);
    EXPECT_EQ(board.setTestPattern(Varnox::eTestPatternOff), 7);
    EXPECT_EQ(board.setTrigger(Varnox::eTriggerFreeRunning), 7);
    EXPECT_EQ(board.poke(0, 0), 7);
    EXPECT_EQ(board.start(), 7);
    EXPECT_EQ(board.stop(), 7);
    EXPECT_EQ(board.save(0), 7);
    EXPECT_EQ(board.recall(0), 7);
    EXPECT_EQ(board.setIODirection(0, 1), 7);
    EXPECT_EQ(board.setIOValue(0, 1), 7);
    EXPECT_EQ(board.setIOInverter(0, 1), 7);
    EXPECT_EQ(board.power(true), 7);
    EXPECT_EQ(board.setMirroring(true, true), 7);
    EXPECT_EQ(board.setAnalogGain(0), 7);
    EXPECT_EQ(board.setBlackLevel(0), 7);
    EXPECT_EQ(board.setWhiteBalance(1, 2, 3), 7);
    EXPECT_EQ(board.setGamma(100), 7);
    EXPECT_EQ(board.setStrobe(1), 7);
    EXPECT_EQ(board.setTimestamper(nullptr), 7);
}

TEST(SensorBoard, LeavesOutArgumentsAloneWhereItHasNothingOfTheKind) {
    tcBareBoard board;
    int value = 4711;
    int second = 4712;
    int third = 4713;
    bool flag = true;
    EXPECT_EQ(board.getClockSetting(value), 7);
    EXPECT_EQ(board.peek(0, &value), 7);
    EXPECT_EQ(board.getMirroring(false, &flag), 7);
    EXPECT_EQ(board.getAnalogGain(&value), 7);
    EXPECT_EQ(board.getBlackLevel(&value), 7);
    EXPECT_EQ(board.getWhiteBalance(&value, &second, &third), 7);
    EXPECT_EQ(board.getGamma(&value), 7);
    EXPECT_EQ(value, 4711);
    EXPECT_EQ(second, 4712);
    EXPECT_EQ(third, 4713);
    EXPECT_TRUE(flag);

    Varnox::tsCameraInfo info{};
    std::memcpy(info.model, "untouched", 10);
    EXPECT_EQ(board.GetCameraInfo(info), 7);
    EXPECT_STREQ(info.model, "untouched");
}

TEST(SensorBoard, AnswersNeutralValues) {
    tcBareBoard board;
    EXPECT_EQ(board.fpgaVersion(), "");
    EXPECT_EQ(board.getVersion(), "");
    EXPECT_EQ(board.getExposure(), 0);
    EXPECT_EQ(board.getMinFrameIntervalMicroS(), 0);
    EXPECT_EQ(board.getFrameInterval(), 0);
    EXPECT_EQ(board.getROI(), (Varnox::ROI{0, 0, 0, 0}));
    EXPECT_EQ(board.getImageROI(), (Varnox::ROI{0, 0, 0, 0}));
    EXPECT_EQ(board.getVerticalBin(), 1);
    EXPECT_EQ(board.getHorizontalBin(), 1);
    EXPECT_EQ(board.getShutterMode(), 0);
    EXPECT_EQ(board.getTestPattern(), 0);
    EXPECT_EQ(board.getTrigger(), 0);
    EXPECT_EQ(board.validate(), 0);
    EXPECT_FALSE(board.isCapturing());
    EXPECT_EQ(board.getTemperature(0), "-275");
    EXPECT_EQ(board.getTempCelsius(), -275);
    EXPECT_EQ(board.getBoardTempCelsius(), -275);
    EXPECT_EQ(board.getIODirection(0), -1);
    EXPECT_EQ(board.getIOValue(0), -1);
    EXPECT_EQ(board.getNumPins(), 0);
    EXPECT_EQ(board.getStreamer(), nullptr);
    EXPECT_EQ(board.getTimestamper(), nullptr);
    EXPECT_EQ(board.self(), &board);
    EXPECT_EQ(board.getPixelFormat(), 0);
    bool skip = true;
    EXPECT_EQ(board.GetSkipFrames(skip), 0);
    EXPECT_FALSE(skip);
}

TEST(SensorBoard, ImageIsTheRegionOfInterestUnlessTheBoardSaysOtherwise) {
    class tcRoiBoard : public tcBareBoard {
    public:
        Varnox::ROI getROI() override { return {1, 2, 3, 4}; }
    };
    tcRoiBoard board;
    EXPECT_EQ(board.getImageROI(), (Varnox::ROI{1, 2, 3, 4}));
}

TEST(SensorBoard, HasNoHandlersOfItsOwn) {
    tcBareBoard board;
    Varnox::tcAbstractHandler last(nullptr, nullptr);
    std::map<std::string, Varnox::tcAbstractHandler*> handlers;
    EXPECT_EQ(board.getCustomHandlers(&last, &handlers), &last);
    EXPECT_EQ(board.getCustomHandlers(nullptr, nullptr), nullptr);
    EXPECT_TRUE(handlers.empty());
}

TEST(SensorBoard, CountsTheEventsOfItsLines) {
    int events = 0;
    tcBareBoard board(&events);
    board.Handler(0, 1);
    board.Handler(3, 0);
    EXPECT_EQ(events, 2);
    board.Handler(4, 1); // it has lines 0 to 3
    board.Handler(0xFFFFFFFF, 1);
    EXPECT_EQ(events, 2);
}

TEST(SensorBoard, CountsNoEventsWithoutAPlaceForThem) {
    tcBareBoard board(nullptr);
    board.Handler(0, 1);
    EXPECT_FALSE(board.isCapturing());
}

TEST(SensorBoard, CountsEventsOfSeveralThreads) {
    int events = 0;
    tcBareBoard one(&events);
    tcBareBoard two(&events);
    const auto raising = [](tcSensorBoard& board) {
        for (int i = 0; i < 1000; ++i)
            board.Handler(0, 0);
    };
    std::thread other([&] { raising(one); });
    raising(two);
    other.join();
    EXPECT_EQ(events, 2000);
}

TEST(SensorBoardStatus, ReachesTheListenerWithItsLevel) {
    tcBareBoard board;
    tsStatusLines lines;
    board.setStatusListener(
        [&](int level, const std::string& text) { lines.emplace_back(level, text); });
    board.updateStatus(6, "100 %s");
    board.updateStatusFMT(4, "%s: %u", "setBPP", 1U);
    board.updateStatusFMT("setColor: %d", 1);
    board.updateStatusFMT(0, "%s", "");
    EXPECT_THAT(lines, ElementsAre(Pair(6, "100 %s"), Pair(4, "setBPP: 1"), Pair(-1, "setColor: 1"),
                                   Pair(0, "")));
}

TEST(SensorBoardStatus, GoesNowhereWithoutAListener) {
    tcBareBoard board;
    tsStatusLines lines;
    board.updateStatus(6, "before");
    board.setStatusListener(
        [&](int level, const std::string& text) { lines.emplace_back(level, text); });
    board.setStatusListener(nullptr);
    board.updateStatusFMT(6, "%d", 1);
    board.setStatusListener({});
    board.updateStatus(6, "after");
    EXPECT_THAT(lines, IsEmpty());
}

TEST(SensorBoardStatus, FormatsTextsOfAnyLength) {
    tcBareBoard board;
    std::string seen;
    board.setStatusListener([&](int, const std::string& text) { seen = text; });
    for (const std::size_t length : {0U, 1U, 255U, 256U, 4095U, 4096U, 100000U}) {
        const std::string text(length, 'x');
        board.updateStatusFMT(6, "<%s>", text.c_str());
        EXPECT_EQ(seen, "<" + text + ">");
    }
}

TEST(SensorBoardStatus, ListenerMayReplaceItself) {
    tcBareBoard board;
    tsStatusLines lines;
    board.setStatusListener([&](int level, const std::string& text) {
        lines.emplace_back(level, text);
        board.setStatusListener(
            [&](int, const std::string& later) { lines.emplace_back(100, later); });
    });
    board.updateStatus(6, "one");
    board.updateStatus(6, "two");
    EXPECT_THAT(lines, ElementsAre(Pair(6, "one"), Pair(100, "two")));
}

TEST(SensorBoardStatus, ListenerMayBeReplacedWhileAnotherThreadReports) {
    tcBareBoard board;
    std::atomic<int> seen = 0;
    std::thread reporting([&] {
        for (int i = 0; i < 1000; ++i)
            board.updateStatusFMT(6, "%d", i);
    });
    for (int i = 0; i < 1000; ++i)
        board.setStatusListener([&](int, const std::string&) { ++seen; });
    reporting.join();
    EXPECT_LE(seen, 1000);
}

TEST(SensorBoardPipeline, IsTheBoardsOwnUnlessTheHostBringsOne) {
    tcBareBoard board;
    Varnox::tcPipeline* const own = &board.pipeline();
    Varnox::tcPipeline hosts;
    board.setPipeline(&hosts);
    EXPECT_EQ(&board.pipeline(), &hosts);
    board.setPipeline(nullptr);
    EXPECT_EQ(&board.pipeline(), own);
    EXPECT_EQ(own->setPixelPacking(1), 0);
}

TEST(SensorBoardMutex, IsRecursiveAndRobust) {
    tcBareBoard board;
    EXPECT_EQ(board.boardMutex().lock(), 0);
    EXPECT_EQ(board.boardMutex().lock(), 0);
    EXPECT_EQ(board.boardMutex().unlock(), 0);
    EXPECT_EQ(board.boardMutex().unlock(), 0);
    std::thread([&] { board.boardMutex().lock(); }).join();
    EXPECT_EQ(board.boardMutex().lock(), EOWNERDEAD);
    EXPECT_EQ(board.boardMutex().consistent(), 0);
    EXPECT_EQ(board.boardMutex().unlock(), 0);
}

TEST(SensorBoardUpdate, SetsTheExposureAndPublishesTheAppliedOne) {
    tcTimingBoard board;
    const tsUpdate update = send(board, 0x3A004, 25004);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0);
    EXPECT_THAT(board.calls, ElementsAre("setExposure 25004"));
    EXPECT_EQ(published(0x3A004), 25000U);
}

TEST(SensorBoardUpdate, SetsTheFrameIntervalAndPublishesTheAppliedOne) {
    tcTimingBoard board;
    const tsUpdate update = send(board, 0x3A000, 50009);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0);
    EXPECT_THAT(board.calls, ElementsAre("setFrameInterval 50009"));
    EXPECT_EQ(published(0x3A000), 50000U);
}

TEST(SensorBoardUpdate, ReportsARefusalAndPublishesWhatHolds) {
    tcTimingBoard board;
    tcRegisterFile::getInstance(nullptr, true)->update_word(0x3A004, 1);
    const tsUpdate update = send(board, 0x3A004, 1000001);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0x8FFF);
    EXPECT_EQ(published(0x3A004), 30000U);
}

TEST(SensorBoardUpdate, RefusesWhatIsNoIntWithoutAskingTheBoard) {
    tcTimingBoard board;
    EXPECT_EQ(send(board, 0x3A004, 0x80000000).status, 0x8FFF);
    EXPECT_EQ(send(board, 0x3A000, 0xFFFFFFFF).status, 0x8FFF);
    EXPECT_TRUE(send(board, 0x3A000, 0xFFFFFFFF).handled);
    EXPECT_THAT(board.calls, IsEmpty());
    EXPECT_EQ(send(board, 0x3A000, 0x7FFFFFFF).status, 0x8FFF);
    EXPECT_THAT(board.calls, ElementsAre("setFrameInterval 2147483647"));
}

namespace {

/// What a thread that died with the board mutex leaves to the next word.
class SensorBoardUpdateAfterADeath : public testing::Test {
protected:
    SensorBoardUpdateAfterADeath() {
        consistencySpy().before = [this] { ++m_madeConsistent; };
        std::thread([&] { m_board.boardMutex().lock(); }).join();
    }
    ~SensorBoardUpdateAfterADeath() override { consistencySpy() = {}; }

    /// \return what went to standard error, past the streams
    std::string errorsOf(std::uint32_t exposure, std::uint32_t published) {
        testing::internal::CaptureStderr();
        const tsUpdate update = send(m_board, 0x3A004, exposure);
        EXPECT_TRUE(update.handled);
        EXPECT_EQ(update.status, 0);
        EXPECT_EQ(::published(0x3A004), published);
        return testing::internal::GetCapturedStderr();
    }
    [[nodiscard]] int madeConsistent() const { return m_madeConsistent; }

private:
    tcTimingBoard m_board;
    int m_madeConsistent = 0;
};

} // namespace

TEST_F(SensorBoardUpdateAfterADeath, MakesTheMutexConsistentOnce) {
    EXPECT_EQ(errorsOf(25004, 25000), "");
    EXPECT_EQ(errorsOf(26000, 26000), "");
    EXPECT_EQ(madeConsistent(), 1);
}

TEST_F(SensorBoardUpdateAfterADeath, SaysThatTheMutexStaysInconsistentAndGoesOn) {
    consistencySpy().result = EINVAL;
    EXPECT_EQ(errorsOf(25004, 25000), "pthread_mutex_consistent failed: Invalid argument\n");
    // Unlocked inconsistent, it is lost for good; words are set all the same.
    EXPECT_EQ(errorsOf(26000, 26000), "");
    EXPECT_EQ(madeConsistent(), 1);
}

TEST(SensorBoardUpdate, LeavesOtherWordsAndOtherKindsUnmarked) {
    tcTimingBoard board;
    for (const std::uint32_t address : {0x39FFCU, 0x3A001U, 0x3A008U, 0x3D000U, 0U})
        EXPECT_FALSE(send(board, address, 1).handled);
    for (const int kind : {0, 2, -1}) {
        EXPECT_FALSE(send(board, 0x3A000, 1, kind).handled);
        EXPECT_FALSE(send(board, 0x3A004, 1, kind).handled);
    }
    EXPECT_THAT(board.calls, IsEmpty());
}

TEST(SensorBoardUpdate, PublishesNothingForABoardWithoutTimes) {
    tcBareBoard board;
    tcRegisterFile::getInstance(nullptr, true)->update_word(0x3A000, 77);
    const tsUpdate update = send(board, 0x3A000, 5);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0x8FFF);
    EXPECT_EQ(published(0x3A000), 77U);
}

TEST(SensorBoardUpdate, IsReachedThroughTheRegisterFile) {
    tcRegisterFile& file = *tcRegisterFile::getInstance(nullptr, true);
    tcTimingBoard board;
    file.observable().registerObserver(board);
    const Varnox::tsWriteResult result = file.write_word(0x3A004, 12345);
    EXPECT_TRUE(result.handled);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.value, 12340U);
}

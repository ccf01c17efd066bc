// Pictures of a head that runs: decoded from the registers as they arrived, over an aligned link.

#include <gmock/gmock.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::tsFrame;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using namespace std::chrono_literals;

constexpr std::uint32_t kRowsOff = 0x3FFFFF;
constexpr std::uint32_t kColumnsOff = 0x1FF1FF;

// A head that streams: frames of 4000 lines of 25 us, 100 ms; an exposure of 1200 lines, 30 ms.
class Frame : public testing::Test {
protected:
    explicit Frame(const sim::tcVirtualHeadBuilder& builder = sim::aVirtualHead())
        : m_head(sim::tcVirtualHeadBuilder(builder).withQuietViolations().build()) {}

    void powerUp() {
        m_user.powerUp();
        m_user.configure();
        m_badPixels.write(3, 2056U << 16 | 2592U); // the map is for the whole array
        m_badPixels.write(0, 1);                   // runs
        m_pixelShift.write(0, 0);
    }
    // Aligned and streaming; the first frame has not come yet.
    void stream() {
        ASSERT_EQ(m_user.bringUp(), 0);
        m_user.start();
        usleep(30000); // the held lanes align again
    }
    void run() {
        powerUp();
        stream();
    }
    void write(std::uint32_t address, std::uint32_t value) {
        m_user.port.writeRegister(address, value);
    }
    // Rows and columns of the array, ends included.
    void area(unsigned number, unsigned rowStart, unsigned rowEnd, unsigned columnStart,
              unsigned columnEnd) {
        write(0x94 + 2 * number, rowEnd / 2 << 11 | rowStart / 2);
        write(0x95 + 2 * number, columnEnd / 6 << 12 | columnStart / 6);
    }
    // What arrives, and all of it is delivered.
    void expect(unsigned x, unsigned y, unsigned width, unsigned height) {
        m_user.frameControl.write(8, height << 16 | width);
        m_user.frameControl.write(6, height / 2 << 16 | width / 6);
        m_user.frameControl.write(9, y << 16 | x);
    }
    void flipPairs() { m_user.frameControl.write(0, m_user.frameControl.read(0) | 2); }
    tsFrame frame() {
        const std::optional<tsFrame> now = m_head.frame();
        EXPECT_TRUE(now.has_value());
        return now.value_or(tsFrame{});
    }
    sim::tsChartReading chart() { return sim::readChart(frame()); }

    sim::tcVirtualHead m_head;
    tcUser m_user;
    tcRegisters m_takeOver{0xFF212000, 4096};
    tcRegisters m_table{0xFF213000, 8192};
    tcRegisters m_badPixels{0xFF215000, 4096};
    tcRegisters m_pixelShift{0xFF217000, 4096};
};

TEST_F(Frame, ShowsTheChartAsItIs) {
    run();
    const tsFrame now = frame();
    EXPECT_EQ(now.width, 2592U);
    EXPECT_EQ(now.height, 2056U);
    ASSERT_THAT(now.pixels, SizeIs(2592 * 2056));
    const sim::tsChartReading reading = sim::readChart(now);
    EXPECT_EQ(reading.columns[0], 0U);
    EXPECT_EQ(reading.columns[1234], 1234U);
    EXPECT_EQ(reading.columns[2591], 2591U);
    EXPECT_EQ(reading.rows[248], 248U);
    EXPECT_EQ(reading.rows[2047], 2047U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(Frame, IsThereOnlyWhileTheSensorStreamsOverAnAlignedLink) {
    EXPECT_EQ(m_head.frame(), std::nullopt);
    powerUp();
    EXPECT_EQ(m_head.frame(), std::nullopt);
    ASSERT_EQ(m_user.bringUp(), 0);
    EXPECT_EQ(m_head.frame(), std::nullopt);
    m_user.start();
    EXPECT_EQ(m_head.frame(), std::nullopt); // aligned 28 ms after the pulses began, and 8 are over
    usleep(19990);
    EXPECT_EQ(m_head.frame(), std::nullopt);
    usleep(10);
    EXPECT_NE(m_head.frame(), std::nullopt);
    m_user.pulses.write(0, 0);
    EXPECT_EQ(m_head.frame(), std::nullopt);
    m_user.pulses.write(0, 0x80000000);
    usleep(28000);
    EXPECT_NE(m_head.frame(), std::nullopt);
    m_user.stop();
    EXPECT_EQ(m_head.frame(), std::nullopt);
}

TEST_F(Frame, IsHeldUpByACoreInReset) {
    run();
    EXPECT_NE(m_head.frame(), std::nullopt);
    m_pixelShift.write(0, 0x80000000);
    EXPECT_EQ(m_head.frame(), std::nullopt);
    m_pixelShift.write(0, 0);
    m_badPixels.write(0, 0x80000001);
    EXPECT_EQ(m_head.frame(), std::nullopt);
    m_badPixels.write(0, 0);
    EXPECT_EQ(m_head.frame(), std::nullopt);
    m_badPixels.write(0, 1);
    EXPECT_NE(m_head.frame(), std::nullopt);
}

TEST_F(Frame, FollowsTheReadoutAreas) {
    powerUp();
    area(0, 228, 355, 240, 479);
    area(1, 640, 767, 240, 479);
    expect(240, 228, 240, 256);
    stream();
    const sim::tsChartReading reading = chart();
    EXPECT_THAT(reading.columns, SizeIs(240));
    EXPECT_THAT(reading.rows, SizeIs(256));
    EXPECT_EQ(reading.columns.front(), 240U);
    EXPECT_EQ(reading.columns.back(), 479U);
    EXPECT_EQ(reading.rows[20], 248U); // 228 + 20; rows 248 to 255 are numbered
    EXPECT_EQ(reading.rows[128], std::nullopt);
    EXPECT_EQ(reading.rows[248], 760U); // 640 + 248 - 128
    EXPECT_EQ(reading.rows[255], 767U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(Frame, IsEmptyWhereAllAreasAreOff) {
    run();
    write(0x94, kRowsOff);
    write(0x95, kColumnsOff);
    const tsFrame now = frame();
    EXPECT_EQ(now.width, 2592U);
    EXPECT_EQ(std::count(now.pixels.begin(), now.pixels.end(), 0), 2592 * 2056);
}

TEST_F(Frame, TakesBinningOverWithTheAreas) {
    powerUp();
    area(0, 0, 255, 0, 239);
    expect(0, 0, 240, 256);
    write(0x90, 0x40000);
    stream();
    EXPECT_EQ(chart().rows[250], 250U); // areas of before
    area(0, 0, 255, 0, 239);
    const sim::tsChartReading reading = chart();
    EXPECT_EQ(reading.rows[123], std::nullopt);
    EXPECT_EQ(reading.rows[124], 248U);
    EXPECT_EQ(reading.rows[127], 254U);
    EXPECT_EQ(frame().at(0, 127), 1278); // the last line that arrives
    EXPECT_EQ(frame().at(0, 128), 0);
}

TEST_F(Frame, IsTurnedByTheScanDirections) {
    powerUp();
    write(0x90, 0x30000);
    write(0x6C, 8);
    write(0x6D, 1);
    flipPairs();
    stream();
    const sim::tsChartReading reading = chart();
    EXPECT_EQ(reading.columns[0], 2591U);
    EXPECT_EQ(reading.columns[2591], 0U);
    EXPECT_EQ(reading.rows[8], 2047U);
    EXPECT_EQ(reading.rows[9], 2046U);
    EXPECT_EQ(reading.rows[1807], 248U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(Frame, IsTurnedFromTheRightAlone) {
    powerUp();
    write(0x90, 0x10000);
    write(0x6D, 1);
    stream();
    const sim::tsChartReading reading = chart();
    EXPECT_EQ(reading.columns[0], 2591U);
    EXPECT_EQ(reading.rows[248], 248U);
    EXPECT_EQ(reading.rows[249], 249U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(Frame, ShowsAWrongPairsFlip) {
    run();
    flipPairs();
    sim::tsChartReading reading = chart();
    EXPECT_EQ(reading.rows[248], 249U);
    EXPECT_EQ(reading.rows[249], 248U);
    EXPECT_EQ(reading.rows[250], 251U);
    write(0x90, 0x20000);
    write(0x6C, 8);
    reading = chart();
    EXPECT_EQ(reading.rows[8], 2047U);
    EXPECT_EQ(reading.rows[9], 2046U);
    m_user.frameControl.write(0, 0x80000000);
    reading = chart();
    EXPECT_EQ(reading.rows[8], 2046U);
    EXPECT_EQ(reading.rows[9], 2047U);
}

TEST_F(Frame, ShowsAnAreaThatIsOffByOneUnit) {
    powerUp();
    area(0, 230, 357, 246, 485);
    expect(240, 228, 240, 128);
    stream();
    const sim::tsChartReading reading = chart();
    EXPECT_EQ(reading.columns[5], std::nullopt); // black
    EXPECT_EQ(reading.columns[6], 246U);
    EXPECT_EQ(frame().at(100, 1), 0);
    EXPECT_EQ(reading.rows[20], 248U);
    EXPECT_EQ(reading.rows[127], std::nullopt); // row 355; the area goes on, the frame does not
}

TEST_F(Frame, ShowsALostRowPair) {
    powerUp();
    area(0, 192, 249, 0, 239);
    area(1, 252, 319, 0, 239);
    expect(0, 192, 240, 128);
    stream();
    const sim::tsChartReading reading = chart();
    EXPECT_EQ(reading.rows[57], 249U);
    EXPECT_EQ(reading.rows[58], 252U); // two lines early
    EXPECT_EQ(reading.rows[61], 255U);
    EXPECT_EQ(frame().at(0, 126), 0);
    EXPECT_EQ(frame().at(239, 127), 0);
}

TEST_F(Frame, IsCutToTheRegion) {
    run();
    m_user.frameControl.write(9, 1256U << 16 | 600U);
    m_user.frameControl.write(6, 64U << 16 | 50U); // 128 lines, 300 pixels
    const tsFrame now = frame();
    EXPECT_EQ(now.width, 300U);
    EXPECT_EQ(now.height, 128U);
    const sim::tsChartReading reading = sim::readChart(now);
    EXPECT_EQ(reading.columns.front(), 600U);
    EXPECT_EQ(reading.columns.back(), 899U);
    EXPECT_EQ(reading.rows[16], 1272U);
    EXPECT_EQ(reading.rows[23], 1279U);
}

TEST_F(Frame, IsNeverLargerThanTheArray) {
    run();
    m_user.frameControl.write(6, 0x7FFFFFFF);
    const tsFrame now = frame();
    EXPECT_EQ(now.width, 2592U);
    EXPECT_EQ(now.height, 2056U);
}

// White is 3800 in 30 ms at gains of one.
TEST_F(Frame, FollowsExposureAndGains) {
    run();
    EXPECT_EQ(frame().at(1400, 10), 3800);
    write(0x19, 3398); // 3998 - 3398 lines: 15 ms
    EXPECT_EQ(frame().at(1400, 10), 1900);
    write(0x42, 0x01); // twice
    EXPECT_EQ(frame().at(1400, 10), 3800);
    write(0x42, 0x80); // one and a half
    EXPECT_EQ(frame().at(1400, 10), 2850);
    write(0x42, 0);
    write(0x40, 1); // twice
    EXPECT_EQ(frame().at(1400, 10), 3800);
    write(0x40, 0);
    write(0x41, 0x101); // twice, and one and a quarter
    EXPECT_EQ(frame().at(1400, 10), 4095);
    write(0x19, 3938); // 60 lines: 1.5 ms
    EXPECT_EQ(frame().at(1400, 10), 475);
    write(0x1B, 3000); // accumulation begins behind the shutter
    EXPECT_EQ(frame().at(1400, 10), 0);
}

TEST_F(Frame, IsExposedToTheSecondShutterPositionWhereThatIsUsed) {
    run();
    write(0x19, 2798);
    write(0x1B, 3098);
    write(0x1C, 3398); // 600 lines
    EXPECT_EQ(frame().at(1400, 10), 1900);
    write(0x1C, 0x3FFF); // 300 lines
    EXPECT_EQ(frame().at(1400, 10), 950);
}

TEST_F(Frame, IsExposedAsTheTriggersCountSays) {
    run();
    write(0x14, 600);
    write(0x10, 0x303);
    EXPECT_EQ(frame().at(1400, 10), 1900);
    write(0x10, 0x103);
    write(0x14, 300);
    EXPECT_EQ(frame().at(1400, 10), 950);
}

TEST_F(Frame, HasTheDepthOfTheAdc) {
    run();
    EXPECT_EQ(frame().at(1001, 242), 2025); // column 1001
    write(0x20, 3);
    EXPECT_EQ(frame().at(1001, 242), 2024);
    write(0x20, 5);
    EXPECT_EQ(frame().at(1001, 242), 2025);
}

TEST_F(Frame, ShowsTestPatternsAndTheTestSignal) {
    run();
    write(0x300, 0x30000);
    EXPECT_EQ(frame().at(1400, 10), 1400);
    write(0x300, 0x40000);
    EXPECT_EQ(frame().at(1400, 10), 10);
    write(0x300, 0);
    write(0x201, 0x203);
    EXPECT_EQ(frame().at(1400, 10), 2048);
    write(0x201, 0);
    EXPECT_EQ(frame().at(1400, 10), 3800);
}

TEST_F(Frame, IsShifted) {
    run();
    m_pixelShift.write(0, 0x14);
    EXPECT_EQ(frame().at(1400, 10), 60800);
    m_pixelShift.write(0, 0x02);
    EXPECT_EQ(frame().at(1400, 10), 950);
}

// The sensor's own defects, and the demonstration map that fits them when both scans are inverted.
TEST_F(Frame, HasDefectsThatTheMapReplaces) {
    powerUp();
    write(0x90, 0x30000);
    write(0x6C, 8);
    write(0x6D, 1);
    flipPairs();
    m_table.write(0, 200U << 16 | 100U);
    m_table.write(1, 1027U << 16 | 1295U);
    m_table.write(2, 2055U << 16 | 2591U);
    m_badPixels.write(4, 3);
    m_takeOver.write(0, 1);
    stream();
    tsFrame now = frame();
    EXPECT_EQ(now.at(100, 200), 4095);
    EXPECT_EQ(now.at(1295, 1027), 0);
    EXPECT_EQ(now.at(2591, 2055), 4095);
    m_badPixels.write(0, 3);
    now = frame();
    EXPECT_EQ(now.at(100, 200), 3800);   // white, as both neighbours
    EXPECT_EQ(now.at(1295, 1027), 3800); // below a tick of the ruler
    EXPECT_EQ(now.at(2591, 2055), 120);  // as its one neighbour, in the corner's bracket
}

TEST_F(Frame, IsReplacedByTheTableThatWasTakenOver) {
    powerUp();
    m_table.write(0, 0);
    m_badPixels.write(4, 1);
    m_takeOver.write(0, 1);
    m_badPixels.write(0, 3);
    stream();
    EXPECT_EQ(frame().at(0, 0), 120);
    m_table.write(0, 5U << 16 | 5U); // not taken over yet
    EXPECT_EQ(frame().at(0, 0), 120);
    m_takeOver.write(0, 1); // with the next frame
    EXPECT_EQ(frame().at(0, 0), 120);
    usleep(100000);
    EXPECT_EQ(frame().at(0, 0), 4095);
}

TEST_F(Frame, SaysWhatItWasSetTo) {
    powerUp();
    area(0, 100, 227, 240, 479);
    expect(240, 100, 240, 128);
    write(0x42, 0x81);
    stream();
    const std::string settings = frame().settings;
    EXPECT_THAT(settings, StartsWith("time: 0.416"));
    EXPECT_EQ(settings.substr(settings.find('\n') + 1),
              "master clock: 36.000 MHz\n"
              "frame length: 4000 lines of 900 clocks\n"
              "readout area: 0 rows 100 to 227 columns 240 to 479\n"
              "binning: 1\n"
              "vertical scan: from the top\n"
              "horizontal scan: from the left\n"
              "exposure: 30000.000 us\n"
              "analogue gain: 1.000\n"
              "digital gain: 3.000\n"
              "ADC: 12 bits\n"
              "test pattern: 0\n"
              "test signal: off\n"
              "pairs flip: off\n"
              "arriving: 240 x 128\n"
              "back porch: x 0 y 0\n"
              "delivered: 240 x 128 from x 240 y 100\n"
              "bad-pixel map: off 0 pixels, 2592 x 2056 from x 0 y 0 grey\n"
              "pixel shift: right 0\n");
    EXPECT_EQ(frame().time, m_head.now());
}

class FrameOfDefects : public Frame {
protected:
    FrameOfDefects()
        : Frame(
              sim::aVirtualHead().withoutDefects().withDefect(3, 2, 7).withDefect(2591, 2055, 9)) {}
};

TEST_F(FrameOfDefects, HasThoseThatItWasBuiltWith) {
    run();
    const tsFrame now = frame();
    EXPECT_EQ(now.at(3, 2), 7);
    EXPECT_EQ(now.at(2591, 2055), 9);
    EXPECT_EQ(now.at(0, 0), 120); // the corner's bracket
}

TEST(FrameBuilder, RefusesADefectThatNoSensorHas) {
    EXPECT_THROW(sim::aVirtualHead().withDefect(2592, 0, 0), std::invalid_argument);
    EXPECT_THROW(sim::aVirtualHead().withDefect(0, 2056, 0), std::invalid_argument);
    EXPECT_THROW(sim::aVirtualHead().withDefect(0, 0, 4096), std::invalid_argument);
}

TEST(FrameBuilder, RefusesASceneThatIsNone) {
    EXPECT_THROW((void)sim::aVirtualHead().withScene("/no/such/picture.png").build(),
                 std::runtime_error);
    const auto head = sim::aVirtualHead().build(); // and leaves the place free
    EXPECT_EQ(head.frame(), std::nullopt);
}

// --- Frame rate ---

TEST_F(Frame, ComesWithEveryFrameStartPulse) {
    run();
    const std::uint64_t before = m_head.frames();
    usleep(500000);
    EXPECT_EQ(m_head.frames() - before, 5U);
}

TEST_F(Frame, IsNotStartedByAPulseWhileTheSensorIsBusy) {
    run();
    m_user.pulses.write(1, 1440000); // 40 ms; a frame takes 100 ms
    const std::uint64_t before = m_head.frames();
    usleep(480000); // every third pulse starts one
    EXPECT_EQ(m_head.frames() - before, 4U);
    write(0x12, 1600); // 40 ms
    usleep(480000);
    EXPECT_EQ(m_head.frames() - before, 16U);
}

} // namespace

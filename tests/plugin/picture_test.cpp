// What a host's settings make of the picture: from the board's operations to the delivered frame.
// On the test chart every column and, on eight of 256 rows, every row says where it is.

#include <array>
#include <ostream>

#include "tests/plugin/plugin_test.h"

using testing::IsEmpty;
using Varnox::ROI;

namespace {

class Picture : public tcPluginTest {
protected:
    void SetUp() override { makeReadyBoard(); }

    void mirror(bool horizontally, bool vertically) {
        EXPECT_EQ(board().setMirroring(true, horizontally), 0);
        EXPECT_EQ(board().setMirroring(false, vertically), 0);
    }
    // A frame of a capture, in which nothing went wrong.
    sim::tsFrame captured() {
        EXPECT_EQ(board().start(), 0);
        const std::optional<sim::tsFrame> frame = head().frame();
        EXPECT_EQ(board().stop(), 0);
        EXPECT_TRUE(frame.has_value());
        EXPECT_THAT(head().violations(), IsEmpty());
        return frame.value_or(sim::tsFrame{});
    }
    sim::tsChartReading chart() { return sim::readChart(captured()); }
};

// Both scans are inverted after initialization.
TEST_F(Picture, AfterInitializationItIsTurnedHalfRound) {
    const sim::tsFrame frame = captured();
    EXPECT_EQ(frame.width, 2592U);
    EXPECT_EQ(frame.height, 2056U);
    const sim::tsChartReading reading = sim::readChart(frame);
    EXPECT_EQ(reading.columns[0], 2591U);
    EXPECT_EQ(reading.columns[2591], 0U);
    EXPECT_EQ(reading.rows[8], 2047U);
    EXPECT_EQ(reading.rows[9], 2046U);
    EXPECT_EQ(reading.rows[1807], 248U);
}

TEST_F(Picture, IsOfTheRegion) {
    mirror(false, false);
    ASSERT_EQ(board().setROI({512, 240, 480, 256}), 0);
    const sim::tsFrame frame = captured();
    EXPECT_EQ(frame.width, 480U);
    EXPECT_EQ(frame.height, 256U);
    const sim::tsChartReading reading = sim::readChart(frame);
    EXPECT_EQ(reading.columns[0], 240U);
    EXPECT_EQ(reading.columns[479], 719U);
    EXPECT_EQ(reading.rows[248], 760U);
    EXPECT_EQ(reading.rows[255], 767U);
}

TEST_F(Picture, StacksItsRegions) {
    mirror(false, false);
    Varnox::tcMultipleROISensor& sensor = board();
    sensor.numberOfRegions = 3;
    sensor.regions[0] = {704, 240, 480, 64};
    sensor.regions[1] = {192, 240, 480, 64};
    sensor.regions[2] = {1152, 240, 480, 128};
    ASSERT_EQ(board().programMultipleROI(), 0);
    sim::tsChartReading reading = chart();
    ASSERT_EQ(reading.rows.size(), 256U);
    EXPECT_EQ(reading.columns[0], 240U);
    EXPECT_EQ(reading.rows[56], 760U);   // 704 + 56
    EXPECT_EQ(reading.rows[63], 767U);   // 704 + 63
    EXPECT_EQ(reading.rows[120], 248U);  // 192 + 120 - 64
    EXPECT_EQ(reading.rows[255], 1279U); // 1152 + 255 - 128
    mirror(false, true);
    reading = chart();
    EXPECT_EQ(reading.rows[0], 1279U);
    EXPECT_EQ(reading.rows[128], 255U);
    EXPECT_EQ(reading.rows[192], 767U);
    EXPECT_EQ(reading.rows[199], 760U);
}

struct tsMode {
    bool horizontally;
    bool vertically;
    int binning;
    unsigned firstColumn;
    unsigned lastColumn;
    // A line of the picture and the row that it shows, twice.
    std::array<std::pair<unsigned, unsigned>, 2> lines;
};

void PrintTo(const tsMode& mode, std::ostream* stream) {
    *stream << "horizontally " << mode.horizontally << ", vertically " << mode.vertically
            << ", binning " << mode.binning;
}

class PictureMode : public Picture, public testing::WithParamInterface<tsMode> {};

// The region begins at binned row 128 and has 128 of them: rows 128 to 255, or 256 to 511.
TEST_P(PictureMode, ShowsEveryPixelInItsPlace) {
    const tsMode& mode = GetParam();
    mirror(mode.horizontally, mode.vertically);
    ASSERT_EQ(board().setVerticalBin(mode.binning), 0);
    ASSERT_EQ(board().setROI({128, 240, 240, 128}), 0);
    const sim::tsFrame frame = captured();
    EXPECT_EQ(frame.width, 240U);
    EXPECT_EQ(frame.height, 128U);
    const sim::tsChartReading reading = sim::readChart(frame);
    EXPECT_EQ(reading.columns[0], mode.firstColumn);
    EXPECT_EQ(reading.columns[239], mode.lastColumn);
    for (const auto& [line, row] : mode.lines) {
        EXPECT_EQ(reading.rows[line], row) << "line " << line;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Every, PictureMode,
    testing::Values(tsMode{false, false, 1, 240, 479, {{{120, 248}, {127, 255}}}},
                    tsMode{true, false, 1, 479, 240, {{{120, 248}, {127, 255}}}},
                    tsMode{false, true, 1, 240, 479, {{{0, 255}, {7, 248}}}},
                    tsMode{true, true, 1, 479, 240, {{{0, 255}, {7, 248}}}},
                    tsMode{false, false, 2, 240, 479, {{{124, 504}, {127, 510}}}},
                    tsMode{true, false, 2, 479, 240, {{{124, 504}, {127, 510}}}},
                    tsMode{false, true, 2, 240, 479, {{{0, 510}, {3, 504}}}},
                    tsMode{true, true, 2, 479, 240, {{{0, 510}, {3, 504}}}}));

// White is 3800 after 30 ms.
TEST_F(Picture, IsAsBrightAsExposureAndGainSay) {
    mirror(false, false);
    EXPECT_EQ(captured().at(1400, 10), 3800);
    ASSERT_EQ(board().setExposure(15000), 0);
    EXPECT_EQ(captured().at(1400, 10), 1900);
    board().setDGain(static_cast<tc3U5MGXS::teDGainCoarse>(1));
    EXPECT_EQ(captured().at(1400, 10), 3800);
    ASSERT_EQ(board().setExposure(60000), 0);
    EXPECT_EQ(captured().at(1400, 10), 4095);
}

TEST_F(Picture, HasThePixelsOfItsDepth) {
    mirror(false, false);
    EXPECT_EQ(captured().at(1400, 10), 3800);
    ASSERT_EQ(board().setBPP(Varnox::eBPP16), 0);
    EXPECT_EQ(captured().at(1400, 10), 60800);
    ASSERT_EQ(board().setBPP(Varnox::eBPP12), 0);
    EXPECT_EQ(captured().at(1400, 10), 3800);
}

TEST_F(Picture, IsTheTestPattern) {
    ASSERT_EQ(board().setTestPattern(Varnox::eTestPatternSensorFirst), 0);
    EXPECT_EQ(captured().at(0, 5), 2591);
    ASSERT_EQ(board().setTestPattern(Varnox::eTestPatternSensorSecond), 0);
    EXPECT_EQ(captured().at(5, 0), 2055);
}

// The map that ships lists the defects where they are after initialization.
TEST_F(Picture, HasNoDefectsOnceTheMapIsApplied) {
    sim::tsFrame frame = captured();
    EXPECT_EQ(frame.at(100, 200), 4095);
    EXPECT_EQ(frame.at(1295, 1027), 0);
    EXPECT_EQ(frame.at(2591, 2055), 4095);
    head().setFpgaWord(0xFF215000, head().fpgaWord(0xFF215000) | 2); // as "SBPRM 1" does
    frame = captured();
    EXPECT_EQ(frame.at(100, 200), 3800);   // white, as both neighbours
    EXPECT_EQ(frame.at(1295, 1027), 3800); // below a tick of the ruler
    EXPECT_EQ(frame.at(2591, 2055), 120);  // as its one neighbour, in the corner's bracket
}

} // namespace

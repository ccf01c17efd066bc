// Region of interest, binning and mirroring.

#include <limits>
#include <vector>

#include "tests/plugin/plugin_test.h"

using Varnox::ROI;
using Varnox::tc3U5MGXSSensorBoard;

namespace {

class Geometry : public tcPluginTest {
protected:
    Varnox::tcMultipleROISensor& regions() { return board(); }
};

/// Exposure and frame interval of a ready board, applied anew.
tsTrace timingAgain() {
    return lines({
        printed("getExposure: 30000\n"),
        exposure({30000, 3994, 3992, 2794, 30000}),
        frameLength(99900, 3996),
        exposure({30000, 3994, 3992, 2794, 30000}),
        store(0xFF211004, 3596400),
    });
}

tsTrace minimumPublished(int minimum) {
    const std::string line = "getFrameReadoutTime(): " + std::to_string(minimum) + " uS\n";
    return {printed(line), printed(line), word(0x3C020, static_cast<std::uint32_t>(minimum))};
}

constexpr ROI kFull{0, 0, 2592, 2056};
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();

/// A board whose own operations a test replaces.
class tcStubbedBoard : public tc3U5MGXSSensorBoard {
public:
    tcStubbedBoard() : tc3U5MGXSSensorBoard("/dev/spidev1.0") {}
    int programMultipleROI() override {
        ++programmed;
        return 9;
    }
    bool isCapturing() override { return capturing; }
    int programmed = 0;
    bool capturing = false;
};

} // namespace

// ---- setROI

TEST_F(Geometry, SetRoiProgramsTheAreaTheTimingAndTheFpga) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] {
                  result = board().setROI({10, 24, 240, 20});
              }),
              text({
                  printed("programMultipleROI [y: 10, x: 24, width: 240, height: 20]\n"),
                  areasReset(), printed("setROIArea Num: 0 RowS: 10 RowE: 29 ColS: 24 ColE: 263\n"),
                  spi(0x94, 0x7005),  // pairs 5 to 14
                  spi(0x95, 0x2B004), // units 4 to 43
                  timingAgain(), printed("image[y: 10, x: 24, width: 240, height: 20]\n"),
                  store(0xFF210020, 0x001400F0), // 20 lines of 240
                  store(0xFF210018, 0x000A0028), // 10 pairs of 40 units
                  store(0xFF210024, 0x000A0018), // from line 10, column 24
                  minimumPublished(1650),        // 9 pairs and 57 more lines of 25 us
              }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getROI(), (ROI{10, 24, 240, 20}));
    EXPECT_EQ(board().getImageROI(), (ROI{10, 24, 240, 20}));
}

TEST_F(Geometry, SetRoiTakesTheWholeArray) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setROI(kFull), 0); }),
              text({
                  printed("programMultipleROI [y: 0, x: 0, width: 2592, height: 2056]\n"),
                  areasReset(),
                  printed("setROIArea Num: 0 RowS: 0 RowE: 2055 ColS: 0 ColE: 2591\n"),
                  spi(0x94, 0x201800),
                  spi(0x95, 0x1AF000),
                  timingAgain(),
                  printed("image[y: 0, x: 0, width: 2592, height: 2056]\n"),
                  store(0xFF210020, 0x08080A20),
                  store(0xFF210018, 0x040401B0),
                  store(0xFF210024, 0),
                  minimumPublished(27100),
              }));
}

TEST_F(Geometry, SetRoiMultipliesRowsByTheBinning) {
    makeReadyBoard();
    ASSERT_EQ(board().setVerticalBin(2), 0);
    EXPECT_EQ(
        seen([&] {
            EXPECT_EQ(board().setROI({10, 0, 240, 20}), 0);
        }),
        text({
            printed("programMultipleROI [y: 10, x: 0, width: 240, height: 20]\n"), areasReset(),
            printed("setROIArea Num: 0 RowS: 20 RowE: 58 ColS: 0 ColE: 239\n"), spi(0x94, 0xE80A),
            spi(0x95, 0x27000), timingAgain(),
            printed("image[y: 10, x: 0, width: 240, height: 20]\n"), store(0xFF210020, 0x001400F0),
            store(0xFF210018, 0x000A0028), store(0xFF210024, 0x000A0000),
            minimumPublished(1900), // 19 pairs and 57 more lines of 25 us
        }));
}

TEST_F(Geometry, SetRoiAcceptsEveryRectangleAtItsBounds) {
    makeReadyBoard();
    const std::vector<ROI> accepted = {
        {0, 0, 2592, 2056},  {0, 0, 24, 2},       {2054, 0, 24, 2},   {0, 2568, 24, 2},
        {2054, 2568, 24, 2}, {0, 24, 2568, 2056}, {2, 0, 2592, 2054},
    };
    for (const ROI& roi : accepted) {
        EXPECT_EQ(board().setROI(roi), 0) << roi.toString();
        EXPECT_EQ(board().getROI(), roi);
    }
}

TEST_F(Geometry, SetRoiRefusesEveryRectangleBeyondItsBounds) {
    makeReadyBoard();
    ASSERT_EQ(board().setROI({10, 24, 240, 20}), 0);
    const std::vector<ROI> refused = {
        {0, 24, 2592, 2056}, // one step too far to the right
        {2, 0, 2592, 2056},  // one step too far down
        {-2, 0, 24, 2},
        {0, -24, 24, 2},
        {0, 0, 0, 2},
        {0, 0, 24, 0},
        {0, 0, -24, 2},
        {0, 0, 24, -2},
        {0, 12, 24, 2},
        {0, 1, 24, 2},
        {0, 0, 100, 2},
        {0, 0, 12, 2},
        {1, 0, 24, 2},
        {0, 0, 24, 3},
        {2056, 0, 24, 2},
        {0, 2592, 24, 2},
        {0, 0, 2616, 2},
        {0, 0, 24, 2058},
        {0, 0, 2592, 2057},
        // Sums that do not fit 32 bits.
        {kMax - 1, 0, 24, 2},
        {2, 0, 24, kMax - 1},
        {kMax - 1, 0, 24, kMax - 1},
        {0, 2147483640, 24, 2},
        {0, 24, 2147483640, 2},
        {0, 2147483640, 2147483640, 2},
        {kMin, 0, 24, 2},
        {0, kMin, 24, 2},
        {0, -2147483640, 24, 2},
        {0, 0, kMin, 2},
        {0, 0, 24, kMin},
        {kMin, kMin, kMin, kMin},
        {kMax, kMax, kMax, kMax},
    };
    for (const ROI& roi : refused) {
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().setROI(roi); }),
                  text({status(-1, "ROI not valid"), minimumPublished(1650)}))
            << roi.toString();
        EXPECT_EQ(result, 3) << roi.toString();
        EXPECT_EQ(board().getROI(), (ROI{10, 24, 240, 20}));
    }
}

TEST_F(Geometry, SetRoiWhileCapturingKeepsTheOldRectangle) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    int result = -1;
    EXPECT_EQ(seen([&] {
                  result = board().setROI({10, 24, 240, 20});
              }),
              text({status(-1, "ROI: Capture in progress"), minimumPublished(27100)}));
    EXPECT_EQ(result, 5);
    EXPECT_EQ(board().getROI(), kFull);
}

TEST_F(Geometry, SetRoiWhileCapturingDoesNotLookAtTheRectangle) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(seen([&] {
                  EXPECT_EQ(board().setROI({1, 1, 1, 1}), 5);
              }),
              text({status(-1, "ROI: Capture in progress"), minimumPublished(27100)}));
}

TEST_F(Geometry, SetRoiRaisesAFrameIntervalThatTheNewRectangleCannotHave) {
    makeReadyBoard();
    ASSERT_EQ(board().setROI({0, 0, 2592, 84}), 0);
    ASSERT_EQ(board().setFrameInterval(4500), 0);
    ASSERT_EQ(board().getExposure(), 4450);
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setROI(kFull); }),
              text({
                  printed("programMultipleROI [y: 0, x: 0, width: 2592, height: 2056]\n"),
                  areasReset(),
                  printed("setROIArea Num: 0 RowS: 0 RowE: 2055 ColS: 0 ColE: 2591\n"),
                  spi(0x94, 0x201800),
                  spi(0x95, 0x1AF000),
                  printed("getExposure: 4450\n"),
                  exposure({4450, 178, 176, 0, 4450}),
                  frameLength(4500, 180),
                  exposure({4450, 178, 176, 0, 4450}),
                  store(0xFF211004, 162000),
                  printed("image[y: 0, x: 0, width: 2592, height: 2056]\n"),
                  store(0xFF210020, 0x08080A20),
                  store(0xFF210018, 0x040401B0),
                  store(0xFF210024, 0),
                  printed("getFrameReadoutTime(): 27100 uS\n"),
                  frameLength(27000, 1080),
                  exposure({4450, 1078, 1076, 900, 4450}),
                  store(0xFF211004, 972000),
                  word(0x3A000, 27000),
                  printed("getFrameReadoutTime(): 27100 uS\n"),
                  word(0x3C020, 27100),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getFrameInterval(), 27000);
}

TEST_F(Geometry, ARefusalIsReplacedByTheResultOfTheRaisedInterval) {
    makeReadyBoard();
    ASSERT_EQ(board().setFrameInterval(20000), 0); // below the readout of the full frame
    const tsTrace raised = lines({
        printed("getFrameReadoutTime(): 27100 uS\n"),
        frameLength(27000, 1080),
        exposure({19750, 1078, 1076, 288, 19750}),
        store(0xFF211004, 972000),
        word(0x3A000, 27000),
        printed("getFrameReadoutTime(): 27100 uS\n"),
        word(0x3C020, 27100),
    });
    int result = -1;
    EXPECT_EQ(seen([&] {
                  result = board().setROI({0, 12, 24, 2});
              }),
              text({status(-1, "ROI not valid"), raised}));
    EXPECT_EQ(result, 0);

    ASSERT_EQ(board().setFrameInterval(20000), 0);
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(board().setROI({10, 24, 240, 20}), 0); // not 5
    EXPECT_EQ(board().getROI(), kFull);
    EXPECT_EQ(board().getFrameInterval(), 27000);
}

TEST_F(Geometry, TheRaisedIntervalsRefusalReplacesSuccess) {
    makeReadyBoard();
    board().setFrameInterval(20000);
    board().setExposureMode(tc3U5MGXS::eExposureRolling);
    board().setFrameInterval(20000);
    EXPECT_EQ(board().setROI(kFull), 4);
}

TEST_F(Geometry, AnIntervalEqualToTheMinimumIsNotRaised) {
    makeReadyBoard();
    ASSERT_EQ(board().setROI({0, 0, 2592, 104}), 0); // 51 pairs and 57 lines: 2700 us
    ASSERT_EQ(board().getMinFrameIntervalMicroS(), 2700);
    ASSERT_EQ(board().setFrameInterval(2700), 0);
    EXPECT_EQ(seen([&] {
                  EXPECT_EQ(board().setROI({0, 12, 24, 2}), 3);
              }),
              text({status(-1, "ROI not valid"), minimumPublished(2700)}));
}

TEST_F(Geometry, SetRoiBeforeInitializeComparesTheMinimumAsUnsigned) {
    makeBoard();
    EXPECT_EQ(board().setROI({0, 12, 24, 2}), 3);
    EXPECT_EQ(board().getFrameInterval(), -1); // raised to what takes for ever without a clock
    EXPECT_EQ(registerFile().read_word(0x3A000), 0xFFFFFFFF);
}

TEST_F(Geometry, SetRoiGoesThroughTheVirtualOperations) {
    tcStubbedBoard stubbed;
    stubbed.setFrameInterval(0x7FFFFFFF);
    // Without a clock the minimum is above every interval, and no pulse generator has it.
    EXPECT_EQ(stubbed.setROI({0, 0, 24, 2}), 3);
    EXPECT_EQ(stubbed.programmed, 1);
    EXPECT_EQ(stubbed.getROI(), (ROI{0, 0, 24, 2}));
    stubbed.capturing = true;
    stubbed.setROI({0, 24, 24, 2});
    EXPECT_EQ(stubbed.programmed, 1);
    EXPECT_EQ(stubbed.getROI(), (ROI{0, 0, 24, 2}));
}

TEST_F(Geometry, SetRoiReturnsTheResultOfTheProgramming) {
    useHead(aQuickHead());
    useShippedFiles();
    tcStubbedBoard stubbed;
    ASSERT_EQ(stubbed.initialize(), 0);
    EXPECT_EQ(stubbed.setROI({0, 0, 24, 2}), 9);
}

TEST_F(Geometry, GetRoiAfterConstructionIsTheFullFrame) {
    makeBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().getROI(), kFull); }), "");
}

// ---- Several regions

TEST_F(Geometry, ThreeRegionsAreStackedInTheImage) {
    makeReadyBoard();
    regions().numberOfRegions = 3;
    regions().regions[0] = {100, 24, 240, 10};
    regions().regions[1] = {40, 0, 480, 20};
    regions().regions[2] = {300, 48, 960, 30};
    EXPECT_EQ(board().getImageROI(), (ROI{40, 24, 240, 60}));
    int result = -1;
    EXPECT_EQ(seen([&] { result = regions().programMultipleROI(); }),
              text({
                  printed("programMultipleROI [y: 0, x: 0, width: 2592, height: 2056]\n"),
                  areasReset(),
                  printed("setROIArea Num: 0 RowS: 100 RowE: 109 ColS: 24 ColE: 263\n"),
                  spi(0x94, 0x1B032),
                  spi(0x95, 0x2B004),
                  printed("setROIArea Num: 1 RowS: 40 RowE: 59 ColS: 0 ColE: 479\n"),
                  spi(0x96, 0xE814),
                  spi(0x97, 0x4F000),
                  printed("setROIArea Num: 2 RowS: 300 RowE: 329 ColS: 48 ColE: 1007\n"),
                  spi(0x98, 0x52096),
                  spi(0x99, 0xA7008),
                  timingAgain(),
                  printed("image[y: 40, x: 24, width: 240, height: 60]\n"),
                  store(0xFF210020, 0x003C00F0),
                  store(0xFF210018, 0x001E0028),
                  store(0xFF210024, 0x00280018),
              }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board().getROI(), kFull);
    EXPECT_EQ(board().getMinFrameIntervalMicroS(), 2125); // 57 rows: 28 pairs and 57 lines
}

TEST_F(Geometry, OneRegionIsTheBoardsOwnWhateverTheTableSays) {
    makeReadyBoard();
    regions().regions[0] = {100, 24, 240, 10};
    EXPECT_EQ(board().getImageROI(), kFull);
    EXPECT_THAT(
        trace([&] { regions().programMultipleROI(); }),
        testing::Contains(printed("setROIArea Num: 0 RowS: 0 RowE: 2055 ColS: 0 ColE: 2591\n")));
}

TEST_F(Geometry, NoRegionsMakeAnImageWithoutHeight) {
    makeReadyBoard();
    regions().regions[0] = {100, 24, 240, 10};
    for (const std::int32_t number : {0, -1, kMin}) {
        regions().numberOfRegions = number;
        EXPECT_EQ(board().getImageROI(), (ROI{100, 24, 240, 0}));
        EXPECT_EQ(seen([&] { EXPECT_EQ(board().programMultipleROI(), 0); }),
                  text({
                      printed("programMultipleROI [y: 0, x: 0, width: 2592, height: 2056]\n"),
                      areasReset(),
                      timingAgain(),
                      printed("image[y: 100, x: 24, width: 240, height: 0]\n"),
                      store(0xFF210020, 0x000000F0),
                      store(0xFF210018, 0x00000028),
                      store(0xFF210024, 0x00640018),
                  }));
    }
}

TEST_F(Geometry, ALaterRegionTakesTheTopOnlyWhenItIsHigherUp) {
    makeReadyBoard();
    regions().numberOfRegions = 2;
    regions().regions[0] = {40, 24, 240, 10};
    regions().regions[1] = {40, 48, 480, 20};
    EXPECT_EQ(board().getImageROI(), (ROI{40, 24, 240, 30}));
    regions().regions[1].y = 39;
    EXPECT_EQ(board().getImageROI(), (ROI{39, 24, 240, 30}));
}

TEST_F(Geometry, HeightsAreAddedInSixteenBits) {
    makeReadyBoard();
    regions().numberOfRegions = 2;
    regions().regions[0] = {0, 0, 24, 40000};
    regions().regions[1] = {0, 0, 24, 40000};
    EXPECT_EQ(board().getImageROI().height, 14464);
    regions().regions[0].height = -1;
    regions().regions[1].height = 0;
    EXPECT_EQ(board().getImageROI().height, 65535);
    regions().regions[0].height = kMax;
    regions().regions[1].height = kMax;
    EXPECT_EQ(board().getImageROI().height, 65534);
}

TEST_F(Geometry, AreasAreWorkedOutInSixteenBits) {
    useHead(aQuickHead().withQuietViolations());
    makeInitializedBoard();
    ASSERT_EQ(board().setVerticalBin(2), 0);
    regions().numberOfRegions = 3;
    regions().regions[0] = {40000, 65560, 24, 2};
    regions().regions[1] = {0, 0, 0, 0};
    regions().regions[2] = {kMax, kMax, kMax, kMax};
    const auto areas = trace([&] { board().programMultipleROI(); }, kWithoutViolations);
    EXPECT_EQ(shown(tsTrace(areas.begin() + 17, areas.begin() + 26)),
              text({
                  printed("setROIArea Num: 0 RowS: 14464 RowE: 14466 ColS: 24 ColE: 47\n"),
                  spi(0x94, 0x220C40),
                  spi(0x95, 0x7004),
                  printed("setROIArea Num: 1 RowS: 0 RowE: 65534 ColS: 0 ColE: 65535\n"),
                  spi(0x96, 0x3FF800),
                  spi(0x97, 0xAA000),
                  // -1 twice is -2; (-1 + -1 - 1) twice is -6; -1; -1 + -1 - 1
                  printed("setROIArea Num: 2 RowS: 65534 RowE: 65530 ColS: 65535 ColE: 65533\n"),
                  spi(0x98, 0x3FEFFF),
                  spi(0x99, 0xAA0AA),
              }));
}

/// A table of regions of two rows each, region i at row 10 i.
class ManyRegions : public Geometry {
protected:
    void fill(std::size_t count) {
        regions().regions.resize(count);
        for (std::size_t area = 0; area < count; ++area) {
            regions().regions[area] = {static_cast<std::int32_t>(area) * 10, 0, 24, 2};
        }
    }

    /// \return the areas that were programmed: the lines told and the frames sent
    tsTrace programmed(std::int32_t number) {
        regions().numberOfRegions = number;
        const tsTrace all =
            trace([&] { EXPECT_EQ(board().programMultipleROI(), 0); }, kWithoutViolations);
        const auto told = [](const std::string& line) {
            return line.find("setROIArea") != std::string::npos;
        };
        const auto first = std::find_if(all.begin(), all.end(), told);
        const auto timing = std::find_if(first, all.end(), [](const std::string& line) {
            return line.find("getExposure") != std::string::npos;
        });
        return {first, timing};
    }
};

TEST_F(ManyRegions, AreNeverReadBeyondTheTable) {
    makeReadyBoard();
    fill(8);
    const tsTrace eight = programmed(8);
    ASSERT_EQ(eight.size(), 24U);
    EXPECT_EQ(shown(tsTrace(eight.end() - 3, eight.end())),
              text({printed("setROIArea Num: 7 RowS: 70 RowE: 71 ColS: 0 ColE: 23\n"),
                    spi(0xA2, 0x11823), spi(0xA3, 0x3000)}));
    for (const std::int32_t number : {9, 300, kMax}) {
        EXPECT_EQ(programmed(number), eight) << number;
        EXPECT_EQ(board().getImageROI(), (ROI{0, 0, 24, 16})) << number;
    }
}

TEST_F(ManyRegions, OfALongerTableAreToldAndCountedThoughTheSensorHasEightAreas) {
    makeReadyBoard();
    fill(10);
    const tsTrace ten = programmed(10);
    ASSERT_EQ(ten.size(), 26U);
    EXPECT_EQ(
        shown(tsTrace(ten.end() - 3, ten.end())),
        text({spi(0xA3, 0x3000), printed("setROIArea Num: 8 RowS: 80 RowE: 81 ColS: 0 ColE: 23\n"),
              printed("setROIArea Num: 9 RowS: 90 RowE: 91 ColS: 0 ColE: 23\n")}));
    EXPECT_EQ(board().getImageROI(), (ROI{0, 0, 24, 20}));
    EXPECT_EQ(head().fpgaWord(0xFF210020), 0x00140018U);
    regions().regions[9] = {-2, 0, 24, 2};
    EXPECT_EQ(board().getImageROI(), (ROI{-2, 0, 24, 20}));
}

TEST_F(ManyRegions, HaveAnIndexOfEightBits) {
    useHead(aQuickHead().withQuietViolations());
    makeInitializedBoard();
    fill(258);
    const tsTrace all = programmed(258);
    ASSERT_EQ(all.size(), 24U + 248U + 6U);
    EXPECT_EQ(shown(tsTrace(all.end() - 7, all.end())),
              text({printed("setROIArea Num: 255 RowS: 2550 RowE: 2551 ColS: 0 ColE: 23\n"),
                    printed("setROIArea Num: 0 RowS: 2560 RowE: 2561 ColS: 0 ColE: 23\n"),
                    spi(0x94, 0x280500), spi(0x95, 0x3000),
                    printed("setROIArea Num: 1 RowS: 2570 RowE: 2571 ColS: 0 ColE: 23\n"),
                    spi(0x96, 0x282D05), spi(0x97, 0x3000)}));
    EXPECT_EQ(board().getImageROI(), (ROI{0, 0, 24, 516}));
}

TEST_F(Geometry, AShortenedTableIsNeverReadBeyondItsEnd) {
    makeReadyBoard();
    regions().numberOfRegions = 3;
    regions().regions = {ROI{100, 24, 240, 10}};
    EXPECT_EQ(board().getImageROI(), (ROI{100, 24, 240, 10}));
    regions().regions.clear();
    EXPECT_EQ(board().getImageROI(), (ROI{0, 0, 0, 0}));
    EXPECT_EQ(board().programMultipleROI(), 0);
}

TEST_F(Geometry, SetRoiWithSeveralRegionsProgramsTheTable) {
    makeReadyBoard();
    regions().numberOfRegions = 2;
    regions().regions[0] = {100, 24, 240, 10};
    regions().regions[1] = {40, 0, 480, 20};
    EXPECT_THAT(trace([&] {
                    EXPECT_EQ(board().setROI({10, 24, 240, 20}), 0);
                }),
                testing::AllOf(testing::Contains(printed(
                                   "programMultipleROI [y: 10, x: 24, width: 240, height: 20]\n")),
                               testing::Contains(printed(
                                   "setROIArea Num: 1 RowS: 40 RowE: 59 ColS: 0 ColE: 479\n"))));
    EXPECT_EQ(board().getROI(), (ROI{10, 24, 240, 20}));
}

// ---- Binning

TEST_F(Geometry, VerticalBinReachesTheSensorAndPublishesTheImage) {
    makeReadyBoard();
    ASSERT_EQ(board().setROI({10, 24, 240, 20}), 0);
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setVerticalBin(2); }),
              text({
                  spi(0x90, 0x70000), // both scan directions stay
                  word(0x3A008, 240),
                  word(0x3A00C, 20),
                  word(0x3A010, 24),
                  word(0x3A014, 10),
              }));
    EXPECT_EQ(result, 0);
}

TEST_F(Geometry, VerticalBinUpToOneSwitchesItOff) {
    makeReadyBoard();
    for (const int factor : {1, 0, -1, kMin}) {
        ASSERT_EQ(board().setVerticalBin(2), 0);
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().setVerticalBin(factor); }), text({
                                                                              spi(0x90, 0x30000),
                                                                              word(0x3A008, 2592),
                                                                              word(0x3A00C, 2056),
                                                                              word(0x3A010, 0),
                                                                              word(0x3A014, 0),
                                                                          }));
        EXPECT_EQ(result, 0) << factor;
        EXPECT_EQ(board().getVerticalBin(), 1);
    }
}

TEST_F(Geometry, VerticalBinAboveTwoChangesNothing) {
    makeReadyBoard();
    ASSERT_EQ(board().setVerticalBin(2), 0);
    for (const int factor : {3, 4, kMax}) {
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().setVerticalBin(factor); }), "");
        EXPECT_EQ(result, 3) << factor;
    }
    EXPECT_TRUE(head().sensorState().binned);
    EXPECT_THAT(
        trace([&] {
            board().setROI({10, 0, 240, 20});
        }),
        testing::Contains(printed("setROIArea Num: 0 RowS: 20 RowE: 58 ColS: 0 ColE: 239\n")));
}

TEST_F(Geometry, VerticalBinIsKeptInSixteenBits) {
    useHead(aQuickHead().withQuietViolations());
    makeInitializedBoard();
    const auto area = [&] {
        const auto all = trace([&] { board().setROI({10, 0, 240, 20}); }, kWithoutViolations);
        return all[17];
    };
    ASSERT_EQ(board().setVerticalBin(0), 0);
    EXPECT_EQ(area(), printed("setROIArea Num: 0 RowS: 0 RowE: 0 ColS: 0 ColE: 239\n"));
    ASSERT_EQ(board().setVerticalBin(-1), 0); // 65535
    EXPECT_EQ(area(), printed("setROIArea Num: 0 RowS: 65526 RowE: 65507 ColS: 0 ColE: 239\n"));
    ASSERT_EQ(board().setVerticalBin(-65534), 0); // 2
    EXPECT_TRUE(head().sensorState().binned);
    EXPECT_EQ(area(), printed("setROIArea Num: 0 RowS: 20 RowE: 58 ColS: 0 ColE: 239\n"));
}

TEST_F(Geometry, VerticalBinPublishesTheStackedImage) {
    makeReadyBoard();
    regions().numberOfRegions = 2;
    regions().regions[0] = {100, 24, 240, 10};
    regions().regions[1] = {40, 0, 480, 20};
    EXPECT_EQ(seen([&] { board().setVerticalBin(1); }, sim::teEventKind::note),
              text({
                  word(0x3A008, 240),
                  word(0x3A00C, 30),
                  word(0x3A010, 24),
                  word(0x3A014, 40),
              }));
}

TEST_F(Geometry, VerticalBinWhileCapturingIsAccepted) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(board().setVerticalBin(1), 0);
}

TEST_F(Geometry, BinningGettersAreConstantAndHorizontalBinningIsRefused) {
    makeReadyBoard();
    ASSERT_EQ(board().setVerticalBin(2), 0);
    EXPECT_EQ(seen([&] {
                  EXPECT_EQ(board().getVerticalBin(), 1);
                  for (const int factor : {-1, 0, 1, 2, 3}) {
                      EXPECT_EQ(board().setHorizontalBin(factor), 7);
                      EXPECT_EQ(board().getHorizontalBin(), 1);
                  }
              }),
              "");
}

// ---- Mirroring

TEST_F(Geometry, VerticalMirroringSwapsTheLinePairsToo) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setMirroring(false, false), 0); }),
              text({
                  spi(0x90, 0x10000),
                  spi(0x6C, 0),
                  load(0xFF210000, 0x80000002),
                  store(0xFF210000, 0x80000000),
              }));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setMirroring(false, true), 0); }),
              text({
                  spi(0x90, 0x30000),
                  spi(0x6C, 8),
                  load(0xFF210000, 0x80000000),
                  store(0xFF210000, 0x80000002),
              }));
}

TEST_F(Geometry, HorizontalMirroringIsTheSensorsAlone) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setMirroring(true, false), 0); }),
              text({spi(0x90, 0x20000), spi(0x6D, 0)}));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setMirroring(true, true), 0); }),
              text({spi(0x90, 0x30000), spi(0x6D, 1)}));
}

TEST_F(Geometry, GetMirroringAnswersEachAxisFromTheDriver) {
    makeReadyBoard();
    board().setMirroring(true, false);
    bool vertical = false;
    bool horizontal = true;
    EXPECT_EQ(seen([&] {
                  EXPECT_EQ(board().getMirroring(false, &vertical), 0);
                  EXPECT_EQ(board().getMirroring(true, &horizontal), 0);
              }),
              "");
    EXPECT_TRUE(vertical);
    EXPECT_FALSE(horizontal);
    board().setMirroring(true, true);
    board().setMirroring(false, false);
    board().getMirroring(false, &vertical);
    board().getMirroring(true, &horizontal);
    EXPECT_FALSE(vertical);
    EXPECT_TRUE(horizontal);
}

TEST_F(Geometry, MirroringWhileCapturingIsAccepted) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(board().setMirroring(true, false), 0);
}

TEST_F(Geometry, StandardOutputIsLeftAsItWasFound) {
    makeReadyBoard();
    std::cout << std::hex << std::boolalpha;
    board().setROI({10, 24, 240, 20});
    EXPECT_TRUE(std::cout.flags() & std::ios::hex);
    EXPECT_TRUE(std::cout.flags() & std::ios::boolalpha);
    std::cout.flags(std::ios::dec | std::ios::skipws);
    EXPECT_THAT(out().text(), testing::HasSubstr("width: 240, height: 20]\n"));
}

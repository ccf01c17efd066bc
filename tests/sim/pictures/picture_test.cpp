// Pictures by hand: what the sensor makes of light, and the FPGA of what the sensor sends.

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>

#include "sim/pictures/fpga_image.h"
#include "sim/pictures/scene.h"
#include "sim/pictures/sensor_image.h"

namespace {

using sim::tcScene;
using sim::tsFpgaImage;
using sim::tsFrame;
using sim::tsRawFrame;
using sim::tsReadoutArea;
using sim::tsSensorImage;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using tcNumbers = std::vector<unsigned>;

// Five million pixels of a test that is not optimized: called directly.
template<typename tLight>
tcScene scene(const tLight& light) {
    std::vector<std::uint16_t> values;
    values.reserve(2056 * 2592);
    for (unsigned row = 0; row < 2056; ++row) {
        for (unsigned column = 0; column < 2592; ++column) {
            values.push_back(static_cast<std::uint16_t>(light(row, column)));
        }
    }
    return tcScene(std::move(values));
}

// In 30 ms at gains of one a light of 16 n becomes the code n: here the number of the row, or of
// the column.
const tcScene& rowScene() {
    static const tcScene rows = scene([](unsigned row, unsigned) { return 16 * row; });
    return rows;
}
const tcScene& columnScene() {
    static const tcScene columns = scene([](unsigned, unsigned column) { return 16 * column; });
    return columns;
}
tcScene evenLight(unsigned light) {
    return tcScene(std::vector<std::uint16_t>(2056 * 2592, static_cast<std::uint16_t>(light)));
}

// The sensor reads these areas for 30 ms at gains of one.
tsSensorImage sensorOf(std::initializer_list<tsReadoutArea> areas) {
    tsSensorImage sensor;
    std::copy(areas.begin(), areas.end(), sensor.areas.begin());
    sensor.areaCount = static_cast<unsigned>(areas.size());
    sensor.exposureUs = 30000;
    return sensor;
}

// The FPGA expects this picture and delivers all of it.
tsFpgaImage fpgaOf(unsigned x, unsigned y, unsigned width, unsigned height) {
    tsFpgaImage fpga;
    fpga.roiX = x;
    fpga.roiY = y;
    fpga.width = fpga.roiWidth = width;
    fpga.height = fpga.roiHeight = height;
    return fpga;
}

tsFrame picture(const tsSensorImage& sensor, const tsFpgaImage& fpga, const tcScene& light) {
    return sim::fpgaImage(fpga, sim::sensorImage(sensor, light, {}));
}

// The first pixel of each line.
tcNumbers firsts(const tsFrame& frame) {
    tcNumbers result;
    for (unsigned y = 0; y < frame.height; ++y) {
        result.push_back(frame.at(0, y));
    }
    return result;
}

tcNumbers line(const tsFrame& frame, unsigned y) {
    tcNumbers result;
    for (unsigned x = 0; x < frame.width; ++x) {
        result.push_back(frame.at(x, y));
    }
    return result;
}

// Where the lines and columns of a picture come from.
tcNumbers rows(const tsSensorImage& sensor, const tsFpgaImage& fpga) {
    return firsts(picture(sensor, fpga, rowScene()));
}
tcNumbers columns(const tsSensorImage& sensor, const tsFpgaImage& fpga) {
    return line(picture(sensor, fpga, columnScene()), 0);
}

tcNumbers counted(unsigned first, unsigned last) {
    tcNumbers result{first};
    while (result.back() != last) {
        result.push_back(first < last ? result.back() + 1 : result.back() - 1);
    }
    return result;
}

// --- Geometry ---

TEST(PictureGeometry, TheWholeArrayArrivesAsItIs) {
    const tsSensorImage sensor = sensorOf({{0, 2055, 0, 2591}});
    const tsFpgaImage fpga = fpgaOf(0, 0, 2592, 2056);
    EXPECT_THAT(rows(sensor, fpga), ElementsAreArray(counted(0, 2055)));
    EXPECT_THAT(columns(sensor, fpga), ElementsAreArray(counted(0, 2591)));
}

TEST(PictureGeometry, EveryLineHasAllItsColumns) {
    const tsFrame frame =
        picture(sensorOf({{0, 5, 0, 11}}), fpgaOf(0, 0, 12, 6),
                scene([](unsigned row, unsigned column) { return 16 * (100 * row + column); }));
    EXPECT_THAT(line(frame, 0), ElementsAreArray(counted(0, 11)));
    EXPECT_THAT(line(frame, 1), ElementsAreArray(counted(100, 111)));
    EXPECT_THAT(line(frame, 5), ElementsAreArray(counted(500, 511)));
}

TEST(PictureGeometry, AnAreaIsTheRowsAndColumnsItSays) {
    const tsSensorImage sensor = sensorOf({{512, 519, 24, 47}});
    const tsFpgaImage fpga = fpgaOf(24, 512, 24, 8);
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(512, 513, 514, 515, 516, 517, 518, 519));
    EXPECT_THAT(columns(sensor, fpga), ElementsAreArray(counted(24, 47)));
}

TEST(PictureGeometry, AreasAreStackedByTheirNumbers) {
    const tsSensorImage sensor =
        sensorOf({{100, 103, 48, 71}, {40, 45, 48, 71}, {300, 301, 48, 71}});
    const tsFpgaImage fpga = fpgaOf(48, 40, 24, 12);
    EXPECT_THAT(rows(sensor, fpga),
                ElementsAre(100, 101, 102, 103, 40, 41, 42, 43, 44, 45, 300, 301));
    EXPECT_THAT(columns(sensor, fpga), ElementsAreArray(counted(48, 71)));
}

TEST(PictureGeometry, FromTheRightEveryLineIsTurned) {
    tsSensorImage sensor = sensorOf({{0, 3, 24, 47}});
    sensor.fromRight = true;
    const tsFpgaImage fpga = fpgaOf(24, 0, 24, 4);
    EXPECT_THAT(columns(sensor, fpga), ElementsAreArray(counted(47, 24)));
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(0, 1, 2, 3));
}

TEST(PictureGeometry, FromTheBottomWithPairsFlipThePictureIsTurned) {
    tsSensorImage sensor = sensorOf({{0, 2055, 0, 5}});
    sensor.fromBottom = true;
    tsFpgaImage fpga = fpgaOf(0, 0, 6, 2056);
    fpga.pairsFlip = true;
    EXPECT_THAT(rows(sensor, fpga), ElementsAreArray(counted(2055, 0)));
    EXPECT_THAT(columns(sensor, fpga), ElementsAreArray(counted(0, 5)));
}

TEST(PictureGeometry, FromTheBottomWithoutPairsFlipLinesAreSwapped) {
    tsSensorImage sensor = sensorOf({{10, 17, 0, 5}});
    sensor.fromBottom = true;
    EXPECT_THAT(rows(sensor, fpgaOf(0, 10, 6, 8)), ElementsAre(16, 17, 14, 15, 12, 13, 10, 11));
}

TEST(PictureGeometry, FromTheTopWithPairsFlipLinesAreSwapped) {
    const tsSensorImage sensor = sensorOf({{10, 17, 0, 5}});
    tsFpgaImage fpga = fpgaOf(0, 10, 6, 8);
    fpga.pairsFlip = true;
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(11, 10, 13, 12, 15, 14, 17, 16));
}

TEST(PictureGeometry, FromTheBottomTheLastAreaComesFirst) {
    tsSensorImage sensor = sensorOf({{100, 103, 0, 5}, {40, 41, 0, 5}});
    sensor.fromBottom = true;
    tsFpgaImage fpga = fpgaOf(0, 40, 6, 6);
    fpga.pairsFlip = true;
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(41, 40, 103, 102, 101, 100));
}

TEST(PictureGeometry, TurnedBothWaysTheLastPixelComesFirst) {
    tsSensorImage sensor = sensorOf({{0, 3, 0, 11}});
    sensor.fromBottom = sensor.fromRight = true;
    tsFpgaImage fpga = fpgaOf(0, 0, 12, 4);
    fpga.pairsFlip = true;
    const tsFrame frame =
        picture(sensor, fpga,
                scene([](unsigned row, unsigned column) { return 16 * (100 * row + column); }));
    EXPECT_THAT(line(frame, 0), ElementsAreArray(counted(311, 300)));
    EXPECT_THAT(line(frame, 3), ElementsAreArray(counted(11, 0)));
}

// Rows 20 and 21 make line 10; the mean of 20 and 21 is cut to 20.
TEST(PictureGeometry, BinningMakesOneLineOfTwoRows) {
    tsSensorImage sensor = sensorOf({{20, 59, 0, 239}});
    sensor.binned = true;
    const tsFpgaImage fpga = fpgaOf(0, 10, 240, 20);
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(20, 22, 24, 26, 28, 30, 32, 34, 36, 38, 40, 42, 44,
                                                46, 48, 50, 52, 54, 56, 58));
    EXPECT_THAT(columns(sensor, fpga), ElementsAreArray(counted(0, 239)));
}

TEST(PictureGeometry, BinnedLinesComeInPairsAsWell) {
    tsSensorImage sensor = sensorOf({{20, 31, 0, 5}});
    sensor.binned = sensor.fromBottom = true;
    tsFpgaImage fpga = fpgaOf(0, 10, 6, 6);
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(28, 30, 24, 26, 20, 22));
    fpga.pairsFlip = true;
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(30, 28, 26, 24, 22, 20));
}

TEST(PictureGeometry, BinnedAreasAreStacked) {
    tsSensorImage sensor = sensorOf({{40, 47, 0, 5}, {200, 203, 0, 5}});
    sensor.binned = true;
    EXPECT_THAT(rows(sensor, fpgaOf(0, 20, 6, 6)), ElementsAre(40, 42, 44, 46, 200, 202));
}

TEST(PictureGeometry, AnOddBinnedLineHasAnEmptyPartner) {
    tsSensorImage sensor = sensorOf({{20, 25, 0, 5}});
    sensor.binned = true;
    EXPECT_THAT(rows(sensor, fpgaOf(0, 10, 6, 4)), ElementsAre(20, 22, 24, 0));
    EXPECT_THAT(rows(sensor, fpgaOf(0, 10, 6, 3)), ElementsAre(20, 22, 24));
}

TEST(PictureGeometry, WithoutAreasNothingArrives) {
    EXPECT_THAT(rows(sensorOf({}), fpgaOf(0, 0, 6, 2)), ElementsAre(0, 0));
}

// --- What is wrong is seen ---

TEST(PictureFaults, AnAreaOnePairTooLowMovesThePicture) {
    EXPECT_THAT(rows(sensorOf({{102, 109, 0, 5}}), fpgaOf(0, 100, 6, 8)),
                ElementsAre(0, 0, 102, 103, 104, 105, 106, 107));
}

TEST(PictureFaults, AnAreaOneUnitToTheRightMovesThePicture) {
    EXPECT_THAT(columns(sensorOf({{0, 1, 30, 41}}), fpgaOf(24, 0, 12, 2)),
                ElementsAre(0, 0, 0, 0, 0, 0, 30, 31, 32, 33, 34, 35));
}

TEST(PictureFaults, ALostRowPairLeavesTheEndBlack) {
    EXPECT_THAT(rows(sensorOf({{100, 105, 0, 5}}), fpgaOf(0, 100, 6, 8)),
                ElementsAre(100, 101, 102, 103, 104, 105, 0, 0));
}

TEST(PictureFaults, ALostRowPairOfAnAreaMovesWhatComesAfter) {
    EXPECT_THAT(rows(sensorOf({{100, 101, 0, 5}, {200, 203, 0, 5}}), fpgaOf(0, 100, 6, 8)),
                ElementsAre(100, 101, 200, 201, 202, 203, 0, 0));
}

TEST(PictureFaults, AreasOfDifferentWidthsEndInBlack) {
    const tsFrame frame =
        picture(sensorOf({{0, 1, 6, 17}, {4, 5, 6, 11}}), fpgaOf(6, 0, 12, 4), columnScene());
    EXPECT_THAT(line(frame, 1), ElementsAreArray(counted(6, 17)));
    EXPECT_THAT(line(frame, 2), ElementsAre(6, 7, 8, 9, 10, 11, 0, 0, 0, 0, 0, 0));
}

// --- Cropping ---

TEST(PictureCrop, TheResolutionCutsWhatArrives) {
    tsFpgaImage fpga = fpgaOf(0, 100, 12, 8);
    fpga.width = 9;
    fpga.height = 5;
    const tsSensorImage sensor = sensorOf({{100, 107, 0, 11}});
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(100, 101, 102, 103, 104, 0, 0, 0));
    EXPECT_THAT(columns(sensor, fpga), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0));
}

TEST(PictureCrop, TheRegionIsCutOutOfWhatArrives) {
    tsFpgaImage fpga = fpgaOf(0, 100, 24, 8);
    fpga.roiX = 9;
    fpga.roiY = 103;
    fpga.roiWidth = 6;
    fpga.roiHeight = 4;
    const tsSensorImage sensor = sensorOf({{100, 107, 0, 23}});
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(103, 104, 105, 106));
    EXPECT_THAT(columns(sensor, fpga), ElementsAreArray(counted(9, 14)));
}

TEST(PictureCrop, ARegionThatBeginsBeforeWhatArrivesBeginsBlack) {
    tsFpgaImage fpga = fpgaOf(24, 100, 6, 4);
    fpga.roiX = 21;
    fpga.roiY = 98;
    const tsSensorImage sensor = sensorOf({{100, 103, 24, 29}});
    const tsFrame frame = picture(sensor, fpga, columnScene());
    EXPECT_THAT(line(frame, 0), ElementsAre(0, 0, 0, 0, 0, 0));
    EXPECT_THAT(line(frame, 2), ElementsAre(0, 0, 0, 24, 25, 26));
}

TEST(PictureCrop, ThePorchesAreSkipped) {
    tsFpgaImage fpga = fpgaOf(0, 0, 12, 6);
    fpga.porchX = 6;
    fpga.porchY = 2;
    const tsSensorImage sensor = sensorOf({{0, 5, 0, 11}});
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(2, 3, 4, 5, 0, 0));
    tsFrame frame = picture(sensor, fpga, columnScene());
    EXPECT_THAT(line(frame, 0), ElementsAre(6, 7, 8, 9, 10, 11, 0, 0, 0, 0, 0, 0));
    fpga.porchY = 8; // more than there is
    frame = picture(sensor, fpga, columnScene());
    EXPECT_THAT(firsts(frame), ElementsAre(0, 0, 0, 0, 0, 0));
}

// --- Levels ---

unsigned level(const tsSensorImage& sensor, unsigned light) {
    return picture(sensor, fpgaOf(0, 0, 6, 2), evenLight(light)).at(3, 1);
}

TEST(PictureLevel, FullLightJustFillsAPixelInThirtyMilliseconds) {
    const tsSensorImage sensor = sensorOf({{0, 1, 0, 5}});
    EXPECT_EQ(level(sensor, 0), 0U);
    EXPECT_EQ(level(sensor, 15), 0U);
    EXPECT_EQ(level(sensor, 16), 1U);
    EXPECT_EQ(level(sensor, 32768), 2048U);
    EXPECT_EQ(level(sensor, 65535), 4095U);
}

TEST(PictureLevel, FollowsTheExposureUpToSaturation) {
    tsSensorImage sensor = sensorOf({{0, 1, 0, 5}});
    sensor.exposureUs = 15000;
    EXPECT_EQ(level(sensor, 16000), 500U);
    sensor.exposureUs = 60000;
    EXPECT_EQ(level(sensor, 16000), 2000U);
    EXPECT_EQ(level(sensor, 40000), 4095U);
    sensor.exposureUs = 0;
    EXPECT_EQ(level(sensor, 65535), 0U);
}

TEST(PictureLevel, BothGainsMultiply) {
    tsSensorImage sensor = sensorOf({{0, 1, 0, 5}});
    sensor.analogueGain = 1.5;
    sensor.digitalGain = 2;
    EXPECT_EQ(level(sensor, 16000), 3000U);
    EXPECT_EQ(level(sensor, 32000), 4095U);
}

// 1000.5 becomes 1000 in the ADC; only the analogue gain sees the half.
TEST(PictureLevel, OnlyTheAnalogueGainIsBeforeTheAdc) {
    tsSensorImage sensor = sensorOf({{0, 1, 0, 5}});
    sensor.digitalGain = 2;
    EXPECT_EQ(level(sensor, 16008), 2000U);
    sensor.digitalGain = 1;
    sensor.analogueGain = 2;
    EXPECT_EQ(level(sensor, 16008), 2001U);
}

TEST(PictureLevel, TenBitsFillTheUpperOnesOfTwelve) {
    tsSensorImage sensor = sensorOf({{0, 1, 0, 5}});
    sensor.depth = 10;
    EXPECT_EQ(level(sensor, 16 * 1003), 1000U);
    EXPECT_EQ(level(sensor, 16 * 1004), 1004U);
    EXPECT_EQ(level(sensor, 65535), 4092U);
}

TEST(PictureLevel, BinningTakesTheMean) {
    tsSensorImage sensor = sensorOf({{0, 3, 0, 5}});
    sensor.binned = true;
    const tcScene light = scene([](unsigned row, unsigned) { return row == 0 ? 16000U : 32000U; });
    const tsFrame frame = picture(sensor, fpgaOf(0, 0, 6, 2), light);
    EXPECT_THAT(firsts(frame), ElementsAre(1500, 2000));
}

// --- Test pattern and test signal ---

TEST(PicturePattern, ThreeShowsColumnsAndFourShowsRows) {
    tsSensorImage sensor = sensorOf({{100, 103, 24, 29}});
    sensor.exposureUs = 0;
    const tsFpgaImage fpga = fpgaOf(24, 100, 6, 4);
    sensor.testPattern = 3;
    EXPECT_THAT(columns(sensor, fpga), ElementsAre(24, 25, 26, 27, 28, 29));
    sensor.testPattern = 4;
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(100, 101, 102, 103));
    sensor.testPattern = 7; // none
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(0, 0, 0, 0));
}

TEST(PicturePattern, IsScannedBinnedAndAmplifiedLikeLight) {
    tsSensorImage sensor = sensorOf({{100, 107, 24, 29}});
    sensor.fromBottom = sensor.fromRight = sensor.binned = true;
    sensor.digitalGain = 2;
    sensor.analogueGain = 4; // before the ADC: no matter
    tsFpgaImage fpga = fpgaOf(24, 50, 6, 4);
    fpga.pairsFlip = true;
    sensor.testPattern = 3;
    EXPECT_THAT(columns(sensor, fpga), ElementsAre(58, 56, 54, 52, 50, 48));
    sensor.testPattern = 4;
    EXPECT_THAT(rows(sensor, fpga), ElementsAre(212, 208, 204, 200));
}

TEST(PicturePattern, TheTestSignalIsHalfOfTheRange) {
    tsSensorImage sensor = sensorOf({{0, 1, 0, 5}});
    sensor.testSignal = true;
    sensor.exposureUs = 0;
    EXPECT_EQ(level(sensor, 65535), 2048U);
    sensor.analogueGain = 1.5;
    EXPECT_EQ(level(sensor, 65535), 3072U);
    sensor.analogueGain = 4;
    EXPECT_EQ(level(sensor, 65535), 4095U);
}

// --- Defects and their replacement ---

constexpr std::array<sim::tsDefect, 3> kDefects{
    sim::tsDefect{8, 100, 4095}, sim::tsDefect{9, 101, 0}, sim::tsDefect{3000, 100, 1}};

tcNumbers defective(const tsSensorImage& sensor, const tsFpgaImage& fpga, unsigned y) {
    return line(sim::fpgaImage(fpga, sim::sensorImage(sensor, columnScene(), kDefects)), y);
}

// The table lists these pixels, and is in force for the whole array.
void list(tsFpgaImage& fpga, std::initializer_list<std::pair<unsigned, unsigned>> places) {
    fpga.replace = true;
    fpga.mapWidth = 2592;
    fpga.mapHeight = 2056;
    fpga.entries = 0;
    for (const auto& [x, y] : places) {
        fpga.table[fpga.entries++] = y << 16 | x;
    }
}

TEST(PictureDefect, APixelIsStuckWhereverTheSceneIs) {
    const tsSensorImage sensor = sensorOf({{100, 103, 6, 11}});
    const tsFpgaImage fpga = fpgaOf(6, 100, 6, 4);
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(6, 7, 4095, 9, 10, 11));
    EXPECT_THAT(defective(sensor, fpga, 1), ElementsAre(6, 7, 8, 0, 10, 11));
    EXPECT_THAT(defective(sensor, fpga, 2), ElementsAre(6, 7, 8, 9, 10, 11));
}

TEST(PictureDefect, MovesWithTheScan) {
    tsSensorImage sensor = sensorOf({{100, 103, 6, 11}});
    sensor.fromBottom = sensor.fromRight = true;
    tsFpgaImage fpga = fpgaOf(6, 100, 6, 4);
    fpga.pairsFlip = true;
    EXPECT_THAT(defective(sensor, fpga, 3), ElementsAre(11, 10, 9, 4095, 7, 6));
    EXPECT_THAT(defective(sensor, fpga, 2), ElementsAre(11, 10, 0, 8, 7, 6));
}

TEST(PictureDefect, IsHalvedByBinningAndHiddenByATestPattern) {
    tsSensorImage sensor = sensorOf({{100, 103, 6, 11}});
    sensor.binned = true;
    const tsFpgaImage fpga = fpgaOf(6, 50, 6, 2);
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(6, 7, 2051, 4, 10, 11));
    sensor.testPattern = 3;
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(6, 7, 8, 9, 10, 11));
}

TEST(PictureReplacement, TakesTheMeanOfBothNeighbours) {
    const tsSensorImage sensor = sensorOf({{100, 103, 6, 11}});
    tsFpgaImage fpga = fpgaOf(6, 100, 6, 4);
    list(fpga, {{2, 0}}); // counted in the picture: column 8, row 100
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(6, 7, 8, 9, 10, 11));
    EXPECT_THAT(defective(sensor, fpga, 1), ElementsAre(6, 7, 8, 0, 10, 11));
    fpga.replace = false;
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(6, 7, 4095, 9, 10, 11));
}

TEST(PictureReplacement, LeavesOutNeighboursThatAreListedOrOutside) {
    const tsSensorImage sensor = sensorOf({{100, 103, 6, 11}});
    tsFpgaImage fpga = fpgaOf(6, 100, 6, 4);
    list(fpga, {{0, 0}, {2, 0}, {3, 0}, {5, 0}});
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(7, 7, 7, 10, 10, 10));
    list(fpga, {{1, 0}, {2, 0}, {3, 0}}); // the middle one has nobody to ask
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(6, 6, 4095, 10, 10, 11));
}

TEST(PictureReplacement, TakesNeighboursOfTheSameColour) {
    const tsSensorImage sensor = sensorOf({{100, 103, 6, 11}});
    tsFpgaImage fpga = fpgaOf(6, 100, 6, 4);
    list(fpga, {{2, 0}, {3, 1}});
    fpga.color = true;
    const tcScene stripes =
        scene([](unsigned, unsigned column) { return column % 2 == 0 ? 1600U : 3200U; });
    const tsFrame frame = sim::fpgaImage(fpga, sim::sensorImage(sensor, stripes, kDefects));
    EXPECT_THAT(line(frame, 0), ElementsAre(100, 200, 100, 200, 100, 200));
    EXPECT_THAT(line(frame, 1), ElementsAre(100, 200, 100, 200, 100, 200));
}

TEST(PictureReplacement, PlacesThePictureInTheMap) {
    const tsSensorImage sensor = sensorOf({{100, 103, 6, 11}});
    tsFpgaImage fpga = fpgaOf(6, 100, 6, 4);
    list(fpga, {{8, 100}, {9, 101}});
    fpga.mapX = 6;
    fpga.mapY = 100;
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(6, 7, 8, 9, 10, 11));
    EXPECT_THAT(defective(sensor, fpga, 1), ElementsAre(6, 7, 8, 9, 10, 11));
    fpga.mapHeight = 1; // the map's part of the picture ends before
    EXPECT_THAT(defective(sensor, fpga, 1), ElementsAre(6, 7, 8, 0, 10, 11));
    fpga.mapHeight = 4;
    fpga.mapWidth = 3;
    EXPECT_THAT(defective(sensor, fpga, 0), ElementsAre(6, 7, 8, 9, 10, 11));
    EXPECT_THAT(defective(sensor, fpga, 1), ElementsAre(6, 7, 8, 0, 10, 11));
}

// --- Pixel shift ---

TEST(PictureShift, MovesEveryPixelsBits) {
    const tsSensorImage sensor = sensorOf({{0, 1, 2580, 2585}});
    tsFpgaImage fpga = fpgaOf(2580, 0, 6, 2);
    fpga.shiftLeft = true;
    fpga.shift = 4;
    EXPECT_THAT(columns(sensor, fpga), ElementsAre(41280, 41296, 41312, 41328, 41344, 41360));
    fpga.shift = 8; // the word has 16 bits: 0xA14 becomes 0x1400
    EXPECT_EQ(columns(sensor, fpga).front(), 0x1400U);
    fpga.shiftLeft = false;
    fpga.shift = 2;
    EXPECT_THAT(columns(sensor, fpga), ElementsAre(645, 645, 645, 645, 646, 646));
}

// --- The chart ---

tsFrame chartPicture(const tsSensorImage& sensor, const tsFpgaImage& fpga) {
    return picture(sensor, fpga, tcScene::chart());
}

TEST(Chart, SaysItsColumnsAndRows) {
    const tsFrame frame = chartPicture(sensorOf({{0, 2055, 0, 2591}}), fpgaOf(0, 0, 2592, 2056));
    EXPECT_EQ(frame.at(0, 240), 1024);
    EXPECT_EQ(frame.at(2591, 247), 1024 + 2591);
    EXPECT_EQ(frame.at(0, 248), 1024 + 248);
    EXPECT_EQ(frame.at(2591, 2047), 1024 + 2047);
    const sim::tsChartReading reading = sim::readChart(frame);
    ASSERT_EQ(reading.columns.size(), 2592U);
    ASSERT_EQ(reading.rows.size(), 2056U);
    for (unsigned x = 0; x < 2592; ++x) {
        ASSERT_EQ(reading.columns[x], x);
    }
    for (unsigned y = 0; y < 2056; ++y) {
        ASSERT_EQ(reading.rows[y], y % 256 >= 248 ? std::optional(y) : std::nullopt) << y;
    }
}

TEST(Chart, IsReadWhateverWasDoneToIt) {
    tsSensorImage sensor = sensorOf({{384, 511, 240, 479}});
    sensor.fromBottom = sensor.fromRight = sensor.binned = true;
    tsFpgaImage fpga = fpgaOf(240, 192, 240, 64);
    fpga.pairsFlip = true;
    const sim::tsChartReading reading = sim::readChart(chartPicture(sensor, fpga));
    EXPECT_EQ(reading.columns.front(), 479U);
    EXPECT_EQ(reading.columns.back(), 240U);
    // Rows 504 to 511 are numbered; two of them make a line.
    EXPECT_EQ(reading.rows[0], 510U);
    EXPECT_EQ(reading.rows[1], 508U);
    EXPECT_EQ(reading.rows[3], 504U);
    EXPECT_EQ(reading.rows[4], std::nullopt);
    EXPECT_EQ(reading.rows[63], std::nullopt);
}

TEST(Chart, HasDiagonalsThatSwappedLinesBreak) {
    const tsSensorImage sensor = sensorOf({{256, 303, 240, 293}});
    tsFpgaImage fpga = fpgaOf(240, 256, 54, 48);
    tsFrame frame = chartPicture(sensor, fpga);
    EXPECT_EQ(frame.at(20, 20), 120);
    EXPECT_EQ(frame.at(21, 20), 120);
    EXPECT_EQ(frame.at(22, 20), 3800);
    EXPECT_EQ(frame.at(21, 21), 120);
    EXPECT_EQ(frame.at(20, 21), 3800);
    fpga.pairsFlip = true;
    frame = chartPicture(sensor, fpga);
    EXPECT_EQ(frame.at(20, 20), 3800);
    EXPECT_EQ(frame.at(22, 20), 120);
    EXPECT_EQ(frame.at(20, 21), 120);
}

constexpr unsigned kBlackLight = 16 * 120;
constexpr unsigned kWhiteLight = 16 * 3800;

TEST(Chart, LooksDifferentFromEverySide) {
    const tcScene chart = tcScene::chart();
    const auto darkness = [&chart](unsigned top, unsigned left) {
        unsigned dark = 0; // pixels of the corner's mark and its bracket
        for (unsigned row = top; row < top + 196; ++row) {
            for (unsigned column = left; column < left + 240; ++column) {
                dark += chart.light(row, column) == kBlackLight ? 1U : 0U;
            }
        }
        return dark;
    };
    constexpr unsigned bracket = 8 * 196;
    EXPECT_EQ(darkness(40, 0), bracket + 196 * 196);                // full
    EXPECT_EQ(darkness(40, 2352), bracket + 196 * 196 - 140 * 140); // hollow
    EXPECT_EQ(darkness(1832, 0), bracket + 4 * 28 * 196);           // striped
    EXPECT_EQ(darkness(1832, 2352), bracket);                       // empty
}

// A bracket of black shows at each corner whether the array's last rows and columns are there.
TEST(Chart, HasBracketsAtTheArraysLastPixels) {
    const tcScene chart = tcScene::chart();
    for (const unsigned row : {0U, 2055U}) {
        for (const unsigned column : {0U, 2591U}) {
            EXPECT_EQ(chart.light(row, column), kBlackLight) << row << " " << column;
        }
        EXPECT_EQ(chart.light(row, 1300), kWhiteLight);
    }
}

// Light of a picture element of ten by ten pixels, as a thumbnail has it: 0 black to 100 white.
unsigned brightness(const tcScene& chart, unsigned row, unsigned column) {
    unsigned sum = 0;
    for (unsigned at = 0; at < 100; ++at) {
        sum += chart.light(row + at / 10, column + at % 10) / 16U;
    }
    return sum / 3800;
}

// The stem of the T of "TOP" and that of the L of "LEFT": no band cuts them, and a picture a tenth
// as large still shows them.
TEST(Chart, HasWordsThatNothingCutsAndThatAThumbnailShows) {
    const tcScene chart = tcScene::chart();
    const unsigned stemOfT = 1296 - 476 / 2 + 2 * 28;
    for (unsigned row = 40; row < 236; ++row) {
        ASSERT_EQ(chart.light(row, stemOfT), kBlackLight) << row;
        ASSERT_EQ(chart.light(row, stemOfT + 27), kBlackLight) << row;
        ASSERT_EQ(chart.light(768 + row, 28), kBlackLight) << row;
    }
    EXPECT_EQ(chart.light(236, stemOfT), kWhiteLight);
    EXPECT_LT(brightness(chart, 150, stemOfT + 9), 10U);
    EXPECT_GT(brightness(chart, 150, stemOfT - 30), 95U);
    EXPECT_GT(brightness(chart, 150, stemOfT + 40), 95U);
}

TEST(Chart, HasAWedgeOfEqualSteps) {
    const tcScene chart = tcScene::chart();
    for (unsigned step = 0; step < 16; ++step) {
        EXPECT_EQ(chart.light(370, 272 + 128 * step), 16 * 273 * step);
        EXPECT_EQ(chart.light(370, 272 + 128 * step + 127), 16 * 273 * step);
    }
    for (unsigned column = 272; column < 2320; ++column) {
        ASSERT_EQ(chart.light(1400, column), 16 * 2 * (column - 272)) << column;
    }
}

// A step of the wedge has the code of a row, 2184 that of row 1160, but its lines do not count.
TEST(Chart, IsNotReadWhereItDoesNotCount) {
    const unsigned left = 1296; // of that step
    const tsFrame frame =
        chartPicture(sensorOf({{300, 363, left, left + 119}}), fpgaOf(left, 300, 120, 64));
    ASSERT_EQ(frame.at(0, 0), 2184);
    const sim::tsChartReading reading = sim::readChart(frame);
    EXPECT_THAT(reading.rows, testing::Each(std::nullopt));
    EXPECT_THAT(reading.columns, testing::Each(std::nullopt));
}

// Round a star's middle black and white take turns, as often as it has spokes.
TEST(Chart, HasStarsOfSoManySpokes) {
    const tcScene chart = tcScene::chart();
    const auto spokes = [&chart](unsigned row, unsigned column) {
        unsigned changes = 0;
        bool black = false;
        for (unsigned step = 0; step <= 3600; ++step) {
            const double angle = step * 3.14159265358979 / 1800 + 0.001;
            const bool now =
                chart.light(static_cast<unsigned>(row + 85 * std::sin(angle)),
                            static_cast<unsigned>(column + 85 * std::cos(angle))) == kBlackLight;
            changes += step > 0 && now != black ? 1U : 0U;
            black = now;
        }
        return changes / 2;
    };
    EXPECT_EQ(spokes(138, 480), 36U);
    EXPECT_EQ(spokes(1930, 2112), 36U);
    EXPECT_EQ(spokes(906, 906), 18U);
    EXPECT_EQ(spokes(906, 1206), 36U);
}

TEST(Chart, HasLinesFromOnePixelOn) {
    const tcScene chart = tcScene::chart();
    const auto lines = [&chart](bool across, unsigned left) {
        unsigned changes = 0;
        for (unsigned at = 1; at < 144; ++at) {
            const unsigned row = 512 + 40 + (across ? at : 70);
            const unsigned column = left + (across ? 70 : at);
            changes += chart.light(row, column) !=
                               chart.light(row - (across ? 1 : 0), column - (across ? 0 : 1))
                           ? 1U
                           : 0U;
        }
        return changes + 1;
    };
    EXPECT_EQ(lines(false, 96), 144U);
    EXPECT_EQ(lines(false, 96 + 168), 72U);
    EXPECT_EQ(lines(false, 96 + 6 * 168), 12U);
    EXPECT_EQ(lines(true, 1320), 144U);
    EXPECT_EQ(lines(true, 1320 + 5 * 168), 18U);
}

TEST(Picture, NeedsASceneWithAValueForEveryPixel) {
    EXPECT_THROW(tcScene(std::vector<std::uint16_t>(2592 * 2055)), std::invalid_argument);
}

TEST(Picture, RefusesPixelsOutside) {
    const tsFrame frame = picture(sensorOf({{0, 1, 0, 5}}), fpgaOf(0, 0, 6, 2), columnScene());
    EXPECT_EQ(frame.at(5, 1), 5U);
    EXPECT_THROW((void)frame.at(6, 1), std::out_of_range);
    EXPECT_THROW((void)frame.at(5, 2), std::out_of_range);
    EXPECT_THAT(tsFrame{}.pixels, IsEmpty());
}

} // namespace

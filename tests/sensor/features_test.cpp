// Sensor features: every setter's frames, every getter's answer.

#include "tests/sensor/binning_state.h"
#include "tests/sensor/sensor_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Features : public tcSensorFixture {
protected:
    Features() { makeSensor(); }

    /// Every bit of these registers is one, so that a setter shows what it leaves alone.
    void fill() {
        for (const auto address :
             std::vector<unsigned short>{0x10, 0x40, 0x41, 0x42, 0x6C, 0x6D, 0x90, 0x300}) {
            sensor().writeRegister(address, 0x3FFFFF);
        }
    }
};

// ---- Frame state and frame-control mode

TEST_F(Features, FrameStateIsInBits2To0) {
    fill();
    EXPECT_THAT(trace([&] {
                    sensor().setFrameState(tc3U5MGXS::teFrameState(0));
                    sensor().setFrameState(tc3U5MGXS::teFrameState(3));
                    sensor().setFrameState(tc3U5MGXS::teFrameState(4));
                    sensor().setFrameState(tc3U5MGXS::teFrameState(7));
                    sensor().setFrameState(tc3U5MGXS::teFrameState(8));
                }),
                ElementsAre("SPI F8 FF 3F 04", "SPI FB FF 3F 04", "SPI FC FF 3F 04",
                            "SPI FF FF 3F 04", "SPI F8 FF 3F 04"));
}

TEST_F(Features, FrameStateOfAFreshRegister) {
    EXPECT_THAT(trace([&] { sensor().setFrameState(tc3U5MGXS::eFrameStream); }),
                ElementsAre("SPI 03 00 00 04"));
}

TEST_F(Features, FrameControlModeIsInBits9To8) {
    fill();
    EXPECT_THAT(trace([&] {
                    sensor().setFrameControlMode(tc3U5MGXS::teCtrlMode(0));
                    sensor().setFrameControlMode(tc3U5MGXS::teCtrlMode(1));
                    sensor().setFrameControlMode(tc3U5MGXS::teCtrlMode(2));
                    sensor().setFrameControlMode(tc3U5MGXS::teCtrlMode(3));
                    sensor().setFrameControlMode(tc3U5MGXS::teCtrlMode(4));
                }),
                ElementsAre("SPI FF FC 3F 04", "SPI FF FD 3F 04", "SPI FF FE 3F 04",
                            "SPI FF FF 3F 04", "SPI FF FC 3F 04"));
}

TEST_F(Features, FrameControlModeComesFromTheShadowCopy) {
    for (unsigned int mode = 0; mode < 4; ++mode) {
        sensor().writeRegister(0x10, 0x3FFCFF + mode * 0x100);
        EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().getFrameControlMode(), mode); }), IsEmpty());
    }
}

TEST_F(Features, FrameControlModeOfAFreshDriverIs0AndAddsTheRegister) {
    EXPECT_EQ(sensor().getFrameControlMode(), 0U);
    EXPECT_EQ(shadow(0x10), 0U);
}

// ---- Binning

TEST_F(Features, OnlyTwoSwitchesBinningOn) {
    EXPECT_THAT(trace([&] {
                    sensor().setBin(2);
                    sensor().setBin(1);
                    sensor().setBin(2);
                    sensor().setBin(4);
                    sensor().setBin(0);
                    sensor().setBin(3);
                    sensor().setBin(0x102);
                    sensor().setBin(65535);
                }),
                ElementsAre("SPI 00 00 04 24", "SPI 00 00 00 24", "SPI 00 00 04 24",
                            "SPI 00 00 00 24", "SPI 00 00 00 24", "SPI 00 00 00 24",
                            "SPI 00 00 00 24", "SPI 00 00 00 24"));
}

TEST_F(Features, TheDriverKeepsWhetherItBins) {
    EXPECT_EQ(binningState(sensor()), 0);
    for (const unsigned short other : std::vector<unsigned short>{0, 1, 3, 4, 0x102, 65535}) {
        sensor().setBin(2);
        EXPECT_EQ(binningState(sensor()), 1);
        sensor().setBin(other);
        EXPECT_EQ(binningState(sensor()), 0) << other;
    }
}

TEST_F(Features, BinningIsInBits19To18) {
    fill();
    EXPECT_THAT(trace([&] {
                    sensor().setBin(2);
                    sensor().setBin(1);
                }),
                // bits 21, 20 and 17..0 stay
                ElementsAre("SPI FF FF 37 24", "SPI FF FF 33 24"));
}

// ---- Scan direction

TEST_F(Features, VerticalScanDirectionIsInTwoPlaces) {
    EXPECT_THAT(
        trace([&] {
            sensor().setVScanInvert(true);
            sensor().setVScanInvert(false);
        }),
        ElementsAre("SPI 00 00 02 24", "SPI 08 00 00 1B", "SPI 00 00 00 24", "SPI 00 00 00 1B"));
    fill();
    EXPECT_THAT(
        trace([&] {
            sensor().setVScanInvert(false);
            sensor().setVScanInvert(true);
        }),
        ElementsAre("SPI FF FF 3D 24", "SPI F7 FF 3F 1B", "SPI FF FF 3F 24", "SPI FF FF 3F 1B"));
}

TEST_F(Features, HorizontalScanDirectionIsInTwoPlaces) {
    EXPECT_THAT(
        trace([&] {
            sensor().setHScanInvert(true);
            sensor().setHScanInvert(false);
        }),
        ElementsAre("SPI 00 00 01 24", "SPI 01 00 40 1B", "SPI 00 00 00 24", "SPI 00 00 40 1B"));
    fill();
    EXPECT_THAT(
        trace([&] {
            sensor().setHScanInvert(false);
            sensor().setHScanInvert(true);
        }),
        ElementsAre("SPI FF FF 3E 24", "SPI FE FF 7F 1B", "SPI FF FF 3F 24", "SPI FF FF 7F 1B"));
}

TEST_F(Features, ScanDirectionsAreReadFromRegister90Alone) {
    EXPECT_THAT(trace([&] {
                    EXPECT_FALSE(sensor().getVScanInvert());
                    EXPECT_FALSE(sensor().getHScanInvert());
                }),
                IsEmpty());
    sensor().writeRegister(0x6C, 8);
    sensor().writeRegister(0x6D, 1);
    sensor().writeRegister(0x90, 0x3CFFFF);
    EXPECT_FALSE(sensor().getVScanInvert());
    EXPECT_FALSE(sensor().getHScanInvert());
    sensor().writeRegister(0x6C, 0);
    sensor().writeRegister(0x6D, 0);
    sensor().writeRegister(0x90, 0x20000);
    EXPECT_TRUE(sensor().getVScanInvert());
    EXPECT_FALSE(sensor().getHScanInvert());
    sensor().writeRegister(0x90, 0x10000);
    EXPECT_FALSE(sensor().getVScanInvert());
    EXPECT_TRUE(sensor().getHScanInvert());
}

TEST_F(Features, BinningAndScanDirectionsShareARegister) {
    sensor().setBin(2);
    sensor().setVScanInvert(true);
    sensor().setHScanInvert(true);
    EXPECT_EQ(shadow(0x90), 0x70000U);
    sensor().setBin(1);
    EXPECT_TRUE(sensor().getVScanInvert());
    EXPECT_TRUE(sensor().getHScanInvert());
}

// ---- Analogue gain

struct tsCoarse {
    unsigned int step;
    const char* first;
    const char* second;
    unsigned char readBack;
};

class AnalogueCoarse : public Features, public testing::WithParamInterface<tsCoarse> {};

TEST_P(AnalogueCoarse, SetsBothStages) {
    sensor().setPixelDepth(10);
    EXPECT_THAT(trace([&] {
                    EXPECT_EQ(sensor().setAGainCourse(tc3U5MGXS::teAGainCoarse(GetParam().step)),
                              0U);
                }),
                ElementsAre(GetParam().first, GetParam().second));
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().getAGainCourse(), GetParam().readBack); }),
                IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Step, AnalogueCoarse,
    testing::Values(tsCoarse{0, "SPI 00 00 00 10", "SPI 00 00 40 10", 0},
                    tsCoarse{1, "SPI 01 00 00 10", "SPI 00 00 40 10", 1},
                    tsCoarse{2, "SPI 02 00 00 10", "SPI 00 00 40 10", 2},
                    tsCoarse{3, "SPI 02 00 00 10", "SPI 01 00 40 10", 3},
                    tsCoarse{4, "SPI 02 00 00 10", "SPI 02 00 40 10", 4},
                    tsCoarse{5, "SPI 02 00 00 10", "SPI 03 00 40 10", 5},
                    tsCoarse{6, "SPI 00 00 00 10", "SPI 00 00 40 10", 0},
                    tsCoarse{7, "SPI 00 00 00 10", "SPI 00 00 40 10", 0},
                    tsCoarse{255, "SPI 00 00 00 10", "SPI 00 00 40 10", 0},
                    tsCoarse{257, "SPI 00 00 00 10", "SPI 00 00 40 10", 0},
                    tsCoarse{0xFFFFFFFF, "SPI 00 00 00 10", "SPI 00 00 40 10", 0}),
    [](const auto& coarse) { return "Step" + std::to_string(coarse.param.step); });

TEST_F(Features, AnalogueGainLeavesTheOtherBits) {
    sensor().setPixelDepth(10);
    fill();
    EXPECT_THAT(trace([&] { sensor().setAGainCourse(tc3U5MGXS::eAGain0); }),
                ElementsAre("SPI FC FF 3F 10", "SPI F8 FF 7F 10"));
    EXPECT_THAT(trace([&] { sensor().setAGainFine(0); }), ElementsAre("SPI 08 FC 7F 10"));
    EXPECT_THAT(trace([&] { sensor().setAGainCourse(tc3U5MGXS::eAGain4); }),
                ElementsAre("SPI FE FF 3F 10", "SPI 0A FC 7F 10"));
}

TEST_F(Features, AnalogueCoarseIsTheSumOfBothFields) {
    sensor().writeRegister(0x40, 0x3FFFFF);
    sensor().writeRegister(0x41, 0x3FFFFF);
    EXPECT_EQ(sensor().getAGainCourse(), 10); // 3 + 7
    sensor().writeRegister(0x40, 0x3FFFFD);
    sensor().writeRegister(0x41, 0x3FFFFC);
    EXPECT_EQ(sensor().getAGainCourse(), 5); // 1 + 4
}

TEST_F(Features, AnalogueFineIsInBits9To4) {
    sensor().setPixelDepth(10);
    EXPECT_THAT(trace([&] {
                    EXPECT_EQ(sensor().setAGainFine(0x3F), 0U);
                    EXPECT_EQ(sensor().getAGainFine(), 0x3F);
                    EXPECT_EQ(sensor().setAGainFine(1), 0U);
                    EXPECT_EQ(sensor().getAGainFine(), 1);
                    EXPECT_EQ(sensor().setAGainFine(0xC0), 0U); // bits 7 and 6 have no place
                    EXPECT_EQ(sensor().getAGainFine(), 0);
                }),
                ElementsAre("SPI F0 03 40 10", "SPI 10 00 40 10", "SPI 00 00 40 10"));
}

TEST_F(Features, AnalogueGainIsRefusedIn12BitMode) {
    sensor().writeRegister(0x40, 1);
    sensor().writeRegister(0x41, 0x123);
    EXPECT_THAT(trace([&] {
                    EXPECT_EQ(sensor().setAGainFine(0x2A), 4U);
                    EXPECT_EQ(sensor().setAGainCourse(tc3U5MGXS::eAGain3), 4U);
                }),
                IsEmpty());
    EXPECT_EQ(shadow(0x40), 1U);
    EXPECT_EQ(shadow(0x41), 0x123U);
    // and can be read all the same
    EXPECT_EQ(sensor().getAGainFine(), 0x12);
    EXPECT_EQ(sensor().getAGainCourse(), 4);
}

TEST_F(Features, ARefusedAnalogueGainAddsNoRegister) {
    sensor().setAGainFine(1);
    sensor().setAGainCourse(tc3U5MGXS::eAGain1);
    EXPECT_EQ(shadow(0x40), std::nullopt);
    EXPECT_EQ(shadow(0x41), std::nullopt);
}

TEST_F(Features, AnalogueGainIsRefusedIn12BitModeOnly) {
    for (const auto depth : std::vector<unsigned char>{0, 8, 10, 11, 13, 255}) {
        sensor().setPixelDepth(depth);
        EXPECT_EQ(sensor().setAGainFine(1), 0U);
        EXPECT_EQ(sensor().setAGainCourse(tc3U5MGXS::eAGain1), 0U);
    }
    sensor().setPixelDepth(12);
    EXPECT_EQ(sensor().setAGainFine(1), 4U);
    EXPECT_EQ(sensor().setAGainCourse(tc3U5MGXS::eAGain1), 4U);
}

// ---- Digital gain

TEST_F(Features, DigitalCoarseIsInBits1To0InBothDepths) {
    for (const auto depth : std::vector<unsigned char>{10, 12}) {
        sensor().setPixelDepth(depth);
        fill();
        EXPECT_THAT(trace([&] {
                        sensor().setDGainCourse(tc3U5MGXS::teDGainCoarse(0));
                        EXPECT_EQ(sensor().getDGainCourse(), 0U);
                        sensor().setDGainCourse(tc3U5MGXS::teDGainCoarse(1));
                        EXPECT_EQ(sensor().getDGainCourse(), 1U);
                        sensor().setDGainCourse(tc3U5MGXS::teDGainCoarse(2));
                        EXPECT_EQ(sensor().getDGainCourse(), 2U);
                        sensor().setDGainCourse(tc3U5MGXS::teDGainCoarse(3));
                        EXPECT_EQ(sensor().getDGainCourse(), 3U);
                        sensor().setDGainCourse(tc3U5MGXS::teDGainCoarse(4));
                        EXPECT_EQ(sensor().getDGainCourse(), 0U);
                    }),
                    ElementsAre("SPI FC FF BF 10", "SPI FD FF BF 10", "SPI FE FF BF 10",
                                "SPI FF FF BF 10", "SPI FC FF BF 10"));
    }
}

TEST_F(Features, DigitalFineIsInBits7To4InBothDepths) {
    for (const auto depth : std::vector<unsigned char>{10, 12}) {
        sensor().setPixelDepth(depth);
        fill();
        EXPECT_THAT(trace([&] {
                        sensor().setDGainFine(0);
                        EXPECT_EQ(sensor().getDGainFine(), 0);
                        sensor().setDGainFine(0xA);
                        EXPECT_EQ(sensor().getDGainFine(), 10);
                        sensor().setDGainFine(0x1F);
                        EXPECT_EQ(sensor().getDGainFine(), 15);
                    }),
                    ElementsAre("SPI 0F FF BF 10", "SPI AF FF BF 10", "SPI FF FF BF 10"));
    }
}

TEST_F(Features, TheGainsOfAFreshDriverAreZero) {
    EXPECT_EQ(sensor().getAGainCourse(), 0);
    EXPECT_EQ(sensor().getAGainFine(), 0);
    EXPECT_EQ(sensor().getDGainCourse(), 0U);
    EXPECT_EQ(sensor().getDGainFine(), 0);
}

// ---- Test images

TEST_F(Features, TestPatternIsInBits18To16) {
    fill();
    EXPECT_THAT(trace([&] {
                    sensor().setTestPattern(tc3U5MGXS::teTestPattern(0));
                    sensor().setTestPattern(tc3U5MGXS::teTestPattern(3));
                    sensor().setTestPattern(tc3U5MGXS::teTestPattern(4));
                    sensor().setTestPattern(tc3U5MGXS::teTestPattern(7));
                    sensor().setTestPattern(tc3U5MGXS::teTestPattern(9));
                }),
                ElementsAre("SPI FF FF 38 C0", "SPI FF FF 3B C0", "SPI FF FF 3C C0",
                            "SPI FF FF 3F C0", "SPI FF FF 39 C0"));
}

TEST_F(Features, TestSignalIsAWholeRegister) {
    sensor().writeRegister(0x201, 0x3FFFFF);
    EXPECT_THAT(trace([&] {
                    EXPECT_EQ(sensor().setTestSigEnable(true), 0);
                    EXPECT_EQ(sensor().setTestSigEnable(false), 0);
                }),
                ElementsAre("SPI 03 02 40 80", "SPI 00 00 40 80"));
    EXPECT_EQ(shadow(0x201), 0U);
}

// ---- Readout areas

TEST_F(Features, ResettingTheAreasMakesArea0TheWholeArrayAndSwitchesTheOthersOff) {
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().resetROIAreas(), 0); }),
                ElementsAre("SPI 00 18 20 25", "SPI 00 F0 5A 25", // 0x94, 0x95
                            "SPI FF FF BF 25", "SPI FF F1 DF 25", // 0x96, 0x97
                            "SPI FF FF 3F 26", "SPI FF F1 5F 26", // 0x98, 0x99
                            "SPI FF FF BF 26", "SPI FF F1 DF 26", // 0x9A, 0x9B
                            "SPI FF FF 3F 27", "SPI FF F1 5F 27", // 0x9C, 0x9D
                            "SPI FF FF BF 27", "SPI FF F1 DF 27", // 0x9E, 0x9F
                            "SPI FF FF 3F 28", "SPI FF F1 5F 28", // 0xA0, 0xA1
                            "SPI FF FF BF 28", "SPI FF F1 DF 28"  // 0xA2, 0xA3
                            ));
    EXPECT_EQ(shadow(0x94), 0x201800U);
    EXPECT_EQ(shadow(0x95), 0x1AF000U);
    EXPECT_EQ(shadow(0xA2), 0x3FFFFFU);
    EXPECT_EQ(shadow(0xA3), 0x1FF1FFU);
    EXPECT_EQ(shadow(0xA4), std::nullopt);
}

TEST_F(Features, TheResetAreaDecodesAsTheWholeArray) {
    sensor().resetROIAreas();
    EXPECT_EQ(sensor().getRegisterField(0x94, 0x7FF, 0), 0U);
    EXPECT_EQ(sensor().getRegisterField(0x94, 0x7FF, 11), 1027U);
    EXPECT_EQ(sensor().getRegisterField(0x95, 0x1FF, 0), 0U);
    EXPECT_EQ(sensor().getRegisterField(0x95, 0x1FF, 12), 431U);
}

struct tsArea {
    const char* name;
    unsigned char num;
    unsigned short rowStart, rowEnd, colStart, colEnd;
    const char* log;
    std::vector<std::string> frames;
};

class RoiArea : public Features, public testing::WithParamInterface<tsArea> {};

TEST_P(RoiArea, IsLoggedAndWritten) {
    const tsArea& area = GetParam();
    const auto lines = trace([&] {
        EXPECT_EQ(
            sensor().setROIArea(area.num, area.rowStart, area.rowEnd, area.colStart, area.colEnd),
            0);
    });
    std::vector<std::string> expected{std::string("NOTE OUT ") + area.log + "\\n"};
    expected.insert(expected.end(), area.frames.begin(), area.frames.end());
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(out().textWithFlushes(), std::string(area.log) + "\n<flush>");
    EXPECT_EQ(err().text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Area, RoiArea,
    testing::Values(
        // rows 0..2055: pairs 0..1027; columns 0..2591: units 0..431
        tsArea{"WholeArray",
               0,
               0,
               2055,
               0,
               2591,
               "setROIArea Num: 0 RowS: 0 RowE: 2055 ColS: 0 ColE: 2591",
               {"SPI 00 18 20 25", "SPI 00 F0 5A 25"}},
        // pair 50 = 0x32, pair 149 = 0x95: 0x95 << 11 | 0x32 = 0x4A832; units 10 and 99: 0x6300A
        tsArea{"Inside",
               1,
               100,
               299,
               60,
               599,
               "setROIArea Num: 1 RowS: 100 RowE: 299 ColS: 60 ColE: 599",
               {"SPI 32 A8 84 25", "SPI 0A 30 C6 25"}},
        // row 101 is in pair 50, row 298 in pair 149; columns 65 and 594 are in units 10 and 99
        tsArea{"OddNumbers",
               7,
               101,
               298,
               65,
               594,
               "setROIArea Num: 7 RowS: 101 RowE: 298 ColS: 65 ColE: 594",
               {"SPI 32 A8 84 28", "SPI 0A 30 C6 28"}},
        tsArea{"Nothing",
               3,
               0,
               0,
               0,
               0,
               "setROIArea Num: 3 RowS: 0 RowE: 0 ColS: 0 ColE: 0",
               {"SPI 00 00 80 26", "SPI 00 00 C0 26"}},
        // 65535: pair 2047 of 11 bits; unit 10922 = 0x2AAA, 9 bits of it 0xAA
        tsArea{"Largest",
               2,
               65535,
               65535,
               65535,
               65535,
               "setROIArea Num: 2 RowS: 65535 RowE: 65535 ColS: 65535 ColE: 65535",
               {"SPI FF FF 3F 26", "SPI AA A0 4A 26"}},
        // 4096 and 4098 have 12 bits of 0 and 2; units 512 and 513 have 9 bits of 0 and 1
        tsArea{"BeyondTheFields",
               4,
               4096,
               4098,
               3072,
               3078,
               "setROIArea Num: 4 RowS: 4096 RowE: 4098 ColS: 3072 ColE: 3078",
               {"SPI 00 08 00 27", "SPI 00 10 40 27"}},
        // 12 bits of 4098 are 2; 9 bits of unit 513 are 1
        tsArea{"StartBeyondTheFields",
               0,
               4098,
               0,
               3078,
               0,
               "setROIArea Num: 0 RowS: 4098 RowE: 0 ColS: 3078 ColE: 0",
               {"SPI 01 00 00 25", "SPI 01 00 40 25"}},
        // 12 bits of 65534 are 4094; 9 bits of unit 10922 are 0xAA
        tsArea{"EndBeyondTheFields",
               0,
               0,
               65535,
               0,
               65535,
               "setROIArea Num: 0 RowS: 0 RowE: 65535 ColS: 0 ColE: 65535",
               {"SPI 00 F8 3F 25", "SPI 00 A0 4A 25"}},
        // 4095: pair 2047; 3071: unit 511
        tsArea{"TopOfTheFields",
               5,
               4095,
               4095,
               3071,
               3071,
               "setROIArea Num: 5 RowS: 4095 RowE: 4095 ColS: 3071 ColE: 3071",
               {"SPI FF FF BF 27", "SPI FF F1 DF 27"}},
        tsArea{"StartAndEndAreNotMixed",
               6,
               2,
               0,
               6,
               0,
               "setROIArea Num: 6 RowS: 2 RowE: 0 ColS: 6 ColE: 0",
               {"SPI 01 00 00 28", "SPI 01 00 40 28"}},
        tsArea{"EndAlone",
               6,
               0,
               2,
               0,
               6,
               "setROIArea Num: 6 RowS: 0 RowE: 2 ColS: 0 ColE: 6",
               {"SPI 00 08 00 28", "SPI 00 10 40 28"}},
        tsArea{"Area8",
               8,
               0,
               2055,
               0,
               2591,
               "setROIArea Num: 8 RowS: 0 RowE: 2055 ColS: 0 ColE: 2591",
               {}},
        tsArea{
            "Area255", 255, 1, 2, 3, 4, "setROIArea Num: 255 RowS: 1 RowE: 2 ColS: 3 ColE: 4", {}}),
    [](const auto& area) { return area.param.name; });

TEST_F(Features, AnAreaReplacesItsRegistersWhole) {
    sensor().resetROIAreas();
    EXPECT_THAT(trace([&] { sensor().setROIArea(1, 0, 0, 0, 0); }, sim::teEventKind::spi),
                ElementsAre("SPI 00 00 80 25", "SPI 00 00 C0 25"));
}

TEST_F(Features, Area8AddsNoRegister) {
    sensor().setROIArea(8, 0, 2055, 0, 2591);
    EXPECT_EQ(shadow(0xA4), std::nullopt);
    EXPECT_EQ(shadow(0xA5), std::nullopt);
}

} // namespace

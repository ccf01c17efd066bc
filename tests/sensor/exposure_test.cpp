// Every way through setExposure, with what it logs, writes, stores and returns.

#include <chrono>
#include <limits>

#include "tests/sensor/sensor_fixture.h"

using std::chrono::microseconds;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

using tcLines = std::vector<std::string>;
using tcAddresses = std::vector<unsigned short>;

/// 36 MHz, 900 clocks a line: 25 us a line; 1000 lines a frame.
class Exposure : public tcSensorFixture {
protected:
    Exposure() {
        makeSensor();
        sensor().setMClockMhz(36.0F);
        sensor().writeRegister(0xB0, 899);
        sensor().writeRegister(0x12, 1000);
        sensor().writeRegister(0x10, 0);
    }

    tcLines set(std::int64_t exposure, int result = 0) {
        return trace([&] { EXPECT_EQ(sensor().setExposure(microseconds(exposure)), result); });
    }

    /// What comes before the first log line in exposure mode 0.
    tcLines single(unsigned int gsPos1, unsigned int gresPos) {
        return {
            "SPI FF 3F 00 05", // 0x14
            "SPI FF 3F 40 05", // 0x15
            "SPI 00 00 80 06", // 0x1A
            "SPI FF 3F C0 0E", // 0x3B
            "SPI FF 3F 00 07", // 0x1C
            registerWrite(0x1B, gsPos1), registerWrite(0x16, gresPos),
        };
    }

    /// What comes before the first log line in exposure mode 1.
    tcLines dual(unsigned int gsPos2) {
        return {
            "SPI FF 3F 00 05", // 0x14
            "SPI FF 3F 40 05", // 0x15
            "SPI 00 00 80 06", // 0x1A
            "SPI FF 3F C0 0E", // 0x3B
            registerWrite(0x1C, gsPos2),
        };
    }

    static std::string log(const std::string& text) {
        return "NOTE OUT tc3U5MGXS::setExposure" + text + "\\n";
    }

    std::int64_t stored() { return sensor().getExposure().count(); }
};

// ---- Exposure mode 0

TEST_F(Exposure, Mode0ProgramsTheEndOfTheFrameAndTheStart) {
    EXPECT_THAT(set(10000),
                ElementsAre("SPI FF 3F 00 05", "SPI FF 3F 40 05", "SPI 00 00 80 06",
                            "SPI FF 3F C0 0E", "SPI FF 3F 00 07",
                            "SPI E6 03 C0 06", // gs_pos1 998
                            "SPI E4 03 80 05", // gres_pos 996
                            "NOTE OUT tc3U5MGXS::setExposure: hd_prd: 899, gs_pos1: 998, "
                            "acc_fpos: 598\\n",
                            "SPI 56 02 40 06", // acc_fpos 598
                            "NOTE OUT tc3U5MGXS::setExposure after: 10000\\n"));
    EXPECT_EQ(stored(), 10000);
    EXPECT_EQ(err().text(), "");
}

TEST_F(Exposure, Mode0LinesEndWithoutAFlush) {
    forget();
    sensor().setExposure(microseconds(10000));
    EXPECT_EQ(out().textWithFlushes(),
              "tc3U5MGXS::setExposure: hd_prd: 899, gs_pos1: 998, acc_fpos: 598\n"
              "tc3U5MGXS::setExposure after: 10000\n");
}

TEST_F(Exposure, Mode0RaisesZeroToOneLine) {
    EXPECT_THAT(set(0),
                ElementsAreArray(single(998, 996) +
                                 tcLines{log(": hd_prd: 899, gs_pos1: 998, acc_fpos: 998"),
                                         log(" Increasing exposure: acc_fpos: 998, gs_pos1: 998"),
                                         "SPI E5 03 40 06", // 997
                                         log(" after: 25")}));
    EXPECT_EQ(stored(), 25);
}

TEST_F(Exposure, Mode0RaisesAlmostALineToOneLine) {
    EXPECT_THAT(set(24),
                ElementsAreArray(single(998, 996) +
                                 tcLines{log(": hd_prd: 899, gs_pos1: 998, acc_fpos: 998"),
                                         log(" Increasing exposure: acc_fpos: 998, gs_pos1: 998"),
                                         registerWrite(0x19, 997), log(" after: 25")}));
}

TEST_F(Exposure, Mode0TakesOneLineAsItIs) {
    EXPECT_THAT(set(25), ElementsAreArray(single(998, 996) +
                                          tcLines{log(": hd_prd: 899, gs_pos1: 998, acc_fpos: 997"),
                                                  registerWrite(0x19, 997), log(" after: 25")}));
    EXPECT_EQ(stored(), 25);
}

TEST_F(Exposure, Mode0CutsDownToWholeLines) {
    EXPECT_THAT(set(10024),
                ElementsAreArray(single(998, 996) +
                                 tcLines{log(": hd_prd: 899, gs_pos1: 998, acc_fpos: 598"),
                                         registerWrite(0x19, 598), log(" after: 10000")}));
    EXPECT_EQ(stored(), 10000);
}

TEST_F(Exposure, Mode0TakesTheWholeFrameAsItIs) {
    EXPECT_THAT(
        set(24950),
        ElementsAreArray(single(998, 996) + tcLines{log(": hd_prd: 899, gs_pos1: 998, acc_fpos: 0"),
                                                    "SPI 00 00 40 06", log(" after: 24950")}));
    EXPECT_EQ(stored(), 24950);
}

TEST_F(Exposure, Mode0LimitsOneLineMoreToTheWholeFrame) {
    EXPECT_THAT(
        set(24975),
        ElementsAreArray(single(998, 996) +
                         tcLines{log(": Limiting exposure: exposure duration: 999, gs_pos1: 998"),
                                 log(": hd_prd: 899, gs_pos1: 998, acc_fpos: 0"),
                                 registerWrite(0x19, 0), log(" after: 24950")}));
    EXPECT_EQ(stored(), 24950);
}

TEST_F(Exposure, Mode0LimitsWhatNoCountHolds) {
    EXPECT_THAT(set(std::numeric_limits<std::int64_t>::max()),
                ElementsAreArray(
                    single(998, 996) +
                    tcLines{log(": Limiting exposure: exposure duration: 4294967295, gs_pos1: 998"),
                            log(": hd_prd: 899, gs_pos1: 998, acc_fpos: 0"), registerWrite(0x19, 0),
                            log(" after: 24950")}));
}

TEST_F(Exposure, Mode0TakesATimeBelowZeroForZero) {
    for (const std::int64_t time :
         {std::int64_t{-1}, std::int64_t{-100000}, std::numeric_limits<std::int64_t>::min()}) {
        EXPECT_THAT(set(time), ElementsAreArray(
                                   single(998, 996) +
                                   tcLines{log(": hd_prd: 899, gs_pos1: 998, acc_fpos: 998"),
                                           log(" Increasing exposure: acc_fpos: 998, gs_pos1: 998"),
                                           registerWrite(0x19, 997), log(" after: 25")}));
    }
}

TEST_F(Exposure, Mode0TruncatesTheStoredTime) {
    sensor().writeRegister(0xB0, 898); // 899 clocks: 10000 us are 400.4 lines, 400 are 9988.9 us
    EXPECT_THAT(set(10000),
                ElementsAreArray(single(998, 996) +
                                 tcLines{log(": hd_prd: 898, gs_pos1: 998, acc_fpos: 598"),
                                         registerWrite(0x19, 598), log(" after: 9988")}));
    EXPECT_EQ(stored(), 9988);
}

TEST_F(Exposure, Mode0CountsInSinglePrecision) {
    sensor().setMClockMhz(35.99F);
    sensor().writeRegister(0x12, 16383);
    // 10803 * 35.99 / 900 = 431.99997 in higher precision; 432 * 900 / 35.99 = 10803.0008
    set(10803);
    EXPECT_EQ(shadow(0x19), 15949U); // 16381 - 432
    EXPECT_EQ(stored(), 10803);
    // 3743 * 900 / 35.99 = 93601.0003 in higher precision
    set(93620);
    EXPECT_EQ(shadow(0x19), 12638U); // 16381 - 3743
    EXPECT_EQ(stored(), 93600);
}

TEST_F(Exposure, Mode0KeepsTheOtherBitsOfEveryRegister) {
    for (const auto address : tcAddresses{0x14, 0x15, 0x16, 0x19, 0x1A, 0x1B, 0x1C, 0x3B}) {
        sensor().writeRegister(address, 0x3FFFFF);
    }
    sensor().writeRegister(0x12, 0x3FC000 | 1000);
    sensor().writeRegister(0xB0, 0x3FF000 | 899);
    EXPECT_THAT(trace([&] { sensor().setExposure(microseconds(10000)); }, sim::teEventKind::spi),
                ElementsAre(registerWrite(0x14, 0x3FFFFF), registerWrite(0x15, 0x3FFFFF),
                            registerWrite(0x1A, 0x3FC000), registerWrite(0x3B, 0x3FFFFF),
                            registerWrite(0x1C, 0x3FFFFF), registerWrite(0x1B, 0x3FC000 | 998),
                            registerWrite(0x16, 0x3FC000 | 996),
                            registerWrite(0x19, 0x3FC000 | 598)));
    EXPECT_EQ(stored(), 10000);
}

TEST_F(Exposure, Mode0WithTheShortestFramesWrapsItsPositions) {
    sensor().writeRegister(0x12, 4); // gs_pos1 2, gres_pos 0
    EXPECT_THAT(set(25), ElementsAreArray(single(2, 0) +
                                          tcLines{log(": hd_prd: 899, gs_pos1: 2, acc_fpos: 1"),
                                                  registerWrite(0x19, 1), log(" after: 25")}));
    sensor().writeRegister(0x12, 3); // gs_pos1 1, gres_pos -1
    EXPECT_THAT(set(25), ElementsAreArray(single(1, 0x3FFF) +
                                          tcLines{log(": hd_prd: 899, gs_pos1: 1, acc_fpos: 0"),
                                                  registerWrite(0x19, 0), log(" after: 25")}));
}

TEST_F(Exposure, Mode0WithAFrameOfTwoLinesStartsBeforeLineZero) {
    sensor().writeRegister(0x12, 2); // gs_pos1 0, gres_pos -2
    EXPECT_THAT(set(0),
                ElementsAreArray(single(0, 0x3FFE) +
                                 tcLines{log(": hd_prd: 899, gs_pos1: 0, acc_fpos: 0"),
                                         log(" Increasing exposure: acc_fpos: 0, gs_pos1: 0"),
                                         registerWrite(0x19, 0x3FFF), log(" after: 25")}));
    EXPECT_EQ(stored(), 25);
    EXPECT_THAT(set(25), ElementsAreArray(
                             single(0, 0x3FFE) +
                             tcLines{log(": Limiting exposure: exposure duration: 1, gs_pos1: 0"),
                                     log(": hd_prd: 899, gs_pos1: 0, acc_fpos: 0"),
                                     log(" Increasing exposure: acc_fpos: 0, gs_pos1: 0"),
                                     registerWrite(0x19, 0x3FFF), log(" after: 25")}));
}

TEST_F(Exposure, Mode0WithoutAFrameLengthCountsFrom16Bits) {
    sensor().writeRegister(0x12, 1); // gs_pos1 65535, gres_pos 65533
    EXPECT_THAT(set(10000),
                ElementsAreArray(single(0x3FFF, 0x3FFD) +
                                 tcLines{log(": hd_prd: 899, gs_pos1: 65535, acc_fpos: 65135"),
                                         registerWrite(0x19, 0x3E6F), log(" after: 10000")}));
    sensor().writeRegister(0x12, 0); // gs_pos1 65534, gres_pos 65532
    EXPECT_THAT(set(10000),
                ElementsAreArray(single(0x3FFE, 0x3FFC) +
                                 tcLines{log(": hd_prd: 899, gs_pos1: 65534, acc_fpos: 65134"),
                                         registerWrite(0x19, 0x3E6E), log(" after: 10000")}));
}

TEST_F(Exposure, Mode0OfAFreshDriverReadsZerosAndAddsTheRegisters) {
    makeSensor();
    EXPECT_EQ(sensor().getExposure().count(), 0);
    sensor().setMClockMhz(36.0F);
    EXPECT_EQ(sensor().setExposure(microseconds(100)), 0); // 3600 lines of one clock
    EXPECT_EQ(stored(), 100);
    EXPECT_EQ(shadow(0x10), 0U);
    EXPECT_EQ(shadow(0x12), 0U);
    EXPECT_EQ(shadow(0xB0), 0U);
    EXPECT_EQ(shadow(0x19), 12782U); // 65534 - 3600 = 61934, 14 bits of it
}

TEST_F(Exposure, Mode0WithTheLongestFrameAndLine) {
    sensor().writeRegister(0x12, 0x3FFF);
    sensor().writeRegister(0xB0, 0xFFF);
    // 16381 lines of 4096 clocks: 67096576 / 36 = 1863793.8, in single precision 1863793.75
    EXPECT_THAT(set(100000000),
                ElementsAreArray(
                    single(16381, 16379) +
                    tcLines{log(": Limiting exposure: exposure duration: 878906, gs_pos1: 16381"),
                            log(": hd_prd: 4095, gs_pos1: 16381, acc_fpos: 0"),
                            registerWrite(0x19, 0), log(" after: 1863793")}));
}

// ---- Exposure mode 1

class DualExposure : public Exposure {
protected:
    DualExposure() { sensor().setExposureMode(tc3U5MGXS::teExposureMode(1)); }
};

TEST_F(DualExposure, ProgramsTwoEqualHalves) {
    EXPECT_THAT(set(10000),
                ElementsAre("SPI FF 3F 00 05", "SPI FF 3F 40 05", "SPI 00 00 80 06",
                            "SPI FF 3F C0 0E",
                            "SPI E6 03 00 07", // gs_pos2 998
                            "NOTE OUT tc3U5MGXS::setExposure: hd_prd: 899, gs_pos2: 998, "
                            "acc_fpos: 598\\n",
                            "SPI 56 02 40 06", // acc_fpos 598
                            "SPI 1E 03 C0 06", // gs_pos1 798
                            "SPI 1C 03 80 05", // gres_pos 796
                            "NOTE OUT tc3U5MGXS::setExposure: gs_pos1: 798, gres_pos: 796\\n",
                            "NOTE OUT tc3U5MGXS::setExposure after: 10000\\n"));
    EXPECT_EQ(stored(), 10000);
    EXPECT_EQ(out().textWithFlushes().find("<flush>"), std::string::npos);
}

TEST_F(DualExposure, ProgramsAnOddCountOneLineShorter) {
    EXPECT_THAT(
        set(10025),
        ElementsAreArray(
            dual(998) +
            tcLines{log(": hd_prd: 899, gs_pos2: 998, acc_fpos: 597"),
                    log(" Increasing exposure to make even: acc_fpos: 597, gs_pos2: 998"),
                    registerWrite(0x19, 598), registerWrite(0x1B, 798), registerWrite(0x16, 796),
                    log(": gs_pos1: 798, gres_pos: 796"), log(" after: 10000")}));
    EXPECT_EQ(stored(), 10000);
}

TEST_F(DualExposure, RaisesZeroToTwoLines) {
    EXPECT_THAT(set(0),
                ElementsAreArray(dual(998) +
                                 tcLines{log(": hd_prd: 899, gs_pos2: 998, acc_fpos: 998"),
                                         log(" Increasing exposure: acc_fpos: 998, gs_pos2: 998"),
                                         registerWrite(0x19, 996), registerWrite(0x1B, 997),
                                         registerWrite(0x16, 995),
                                         log(": gs_pos1: 997, gres_pos: 995"), log(" after: 50")}));
    EXPECT_EQ(stored(), 50);
}

TEST_F(DualExposure, ShortensOneLineToNone) {
    EXPECT_THAT(
        set(25),
        ElementsAreArray(
            dual(998) +
            tcLines{log(": hd_prd: 899, gs_pos2: 998, acc_fpos: 997"),
                    log(" Increasing exposure to make even: acc_fpos: 997, gs_pos2: 998"),
                    registerWrite(0x19, 998), registerWrite(0x1B, 998), registerWrite(0x16, 996),
                    log(": gs_pos1: 998, gres_pos: 996"), log(" after: 0")}));
    EXPECT_EQ(stored(), 0);
}

TEST_F(DualExposure, TakesTwoLinesAsTheyAre) {
    EXPECT_THAT(set(50),
                ElementsAreArray(dual(998) +
                                 tcLines{log(": hd_prd: 899, gs_pos2: 998, acc_fpos: 996"),
                                         registerWrite(0x19, 996), registerWrite(0x1B, 997),
                                         registerWrite(0x16, 995),
                                         log(": gs_pos1: 997, gres_pos: 995"), log(" after: 50")}));
}

TEST_F(DualExposure, TakesTheWholeFrameAsItIs) {
    EXPECT_THAT(set(24950),
                ElementsAreArray(
                    dual(998) +
                    tcLines{log(": hd_prd: 899, gs_pos2: 998, acc_fpos: 0"), registerWrite(0x19, 0),
                            registerWrite(0x1B, 499), registerWrite(0x16, 497),
                            log(": gs_pos1: 499, gres_pos: 497"), log(" after: 24950")}));
}

TEST_F(DualExposure, LimitsOneLineMoreAndNamesTheOtherPosition) {
    EXPECT_THAT(set(24975),
                ElementsAreArray(
                    dual(998) +
                    tcLines{log(": Limiting exposure: exposure duration: 999, gs_pos1: 998"),
                            log(": hd_prd: 899, gs_pos2: 998, acc_fpos: 0"), registerWrite(0x19, 0),
                            registerWrite(0x1B, 499), registerWrite(0x16, 497),
                            log(": gs_pos1: 499, gres_pos: 497"), log(" after: 24950")}));
    EXPECT_EQ(stored(), 24950);
}

TEST_F(DualExposure, LimitsAnOddFrameToOneLineLess) {
    sensor().writeRegister(0x12, 1001);
    EXPECT_THAT(
        set(1000000),
        ElementsAreArray(
            dual(999) + tcLines{log(": Limiting exposure: exposure duration: 40000, gs_pos1: 999"),
                                log(": hd_prd: 899, gs_pos2: 999, acc_fpos: 0"),
                                log(" Increasing exposure to make even: acc_fpos: 0, gs_pos2: 999"),
                                registerWrite(0x19, 1), registerWrite(0x1B, 500),
                                registerWrite(0x16, 498), log(": gs_pos1: 500, gres_pos: 498"),
                                log(" after: 24950")}));
    EXPECT_EQ(stored(), 24950);
}

TEST_F(DualExposure, TakesATimeBelowZeroForZero) {
    set(-1);
    EXPECT_EQ(stored(), 50);
}

TEST_F(DualExposure, TruncatesTheStoredTime) {
    sensor().writeRegister(0xB0, 898);
    set(10000);
    EXPECT_EQ(stored(), 9988);
}

TEST_F(DualExposure, WithAFrameOfTwoLinesStartsBeforeLineZero) {
    sensor().writeRegister(0x12, 2); // gs_pos2 0
    EXPECT_THAT(set(0), ElementsAreArray(
                            dual(0) + tcLines{log(": hd_prd: 899, gs_pos2: 0, acc_fpos: 0"),
                                              log(" Increasing exposure: acc_fpos: 0, gs_pos2: 0"),
                                              registerWrite(0x19, 0x3FFE), // -2
                                              registerWrite(0x1B, 0x3FFF), // -1
                                              registerWrite(0x16, 0x3FFD), // -3
                                              log(": gs_pos1: 65535, gres_pos: 65533"),
                                              log(" after: 50")}));
    EXPECT_EQ(stored(), 50);
}

TEST_F(DualExposure, WithAFrameOfThreeLines) {
    sensor().writeRegister(0x12, 3); // gs_pos2 1
    EXPECT_THAT(set(0),
                ElementsAreArray(dual(1) +
                                 tcLines{log(": hd_prd: 899, gs_pos2: 1, acc_fpos: 1"),
                                         log(" Increasing exposure: acc_fpos: 1, gs_pos2: 1"),
                                         registerWrite(0x19, 0x3FFF),                         // -1
                                         registerWrite(0x1B, 0), registerWrite(0x16, 0x3FFE), // -2
                                         log(": gs_pos1: 0, gres_pos: 65534"), log(" after: 50")}));
    EXPECT_THAT(set(25),
                ElementsAreArray(dual(1) +
                                 tcLines{log(": hd_prd: 899, gs_pos2: 1, acc_fpos: 0"),
                                         log(" Increasing exposure to make even: acc_fpos: 0, "
                                             "gs_pos2: 1"),
                                         registerWrite(0x19, 1), registerWrite(0x1B, 1),
                                         registerWrite(0x16, 0x3FFF), // -1
                                         log(": gs_pos1: 1, gres_pos: 65535"), log(" after: 0")}));
}

TEST_F(DualExposure, WithoutAFrameLengthCountsFrom16Bits) {
    sensor().writeRegister(0x12, 0); // gs_pos2 65534
    EXPECT_THAT(
        set(10000),
        ElementsAreArray(dual(0x3FFE) +
                         tcLines{log(": hd_prd: 899, gs_pos2: 65534, acc_fpos: 65134"),
                                 registerWrite(0x19, 0x3E6E), registerWrite(0x1B, 0x3F36), // 65334
                                 registerWrite(0x16, 0x3F34),
                                 log(": gs_pos1: 65334, gres_pos: 65332"), log(" after: 10000")}));
}

TEST_F(DualExposure, KeepsTheOtherBitsOfEveryRegister) {
    for (const auto address : tcAddresses{0x14, 0x15, 0x16, 0x19, 0x1A, 0x1B, 0x1C, 0x3B}) {
        sensor().writeRegister(address, 0x3FFFFF);
    }
    EXPECT_THAT(
        trace([&] { sensor().setExposure(microseconds(10000)); }, sim::teEventKind::spi),
        ElementsAre(registerWrite(0x14, 0x3FFFFF), registerWrite(0x15, 0x3FFFFF),
                    registerWrite(0x1A, 0x3FC000), registerWrite(0x3B, 0x3FFFFF),
                    registerWrite(0x1C, 0x3FC000 | 998), registerWrite(0x19, 0x3FC000 | 598),
                    registerWrite(0x1B, 0x3FC000 | 798), registerWrite(0x16, 0x3FC000 | 796)));
}

// ---- Other exposure modes

TEST_F(Exposure, Mode2IsNotSupported) {
    set(10000);
    sensor().setExposureMode(tc3U5MGXS::teExposureMode(2));
    EXPECT_THAT(set(5000, 4), IsEmpty());
    EXPECT_EQ(stored(), 10000);
}

TEST_F(Exposure, OtherModesDoNothing) {
    set(10000);
    for (const unsigned int mode : {3U, 4U, 255U, 256U, 0xFFFFFFFFU}) {
        sensor().setExposureMode(tc3U5MGXS::teExposureMode(mode));
        EXPECT_EQ(sensor().getExposureMode(), mode);
        EXPECT_THAT(set(5000, 0), IsEmpty());
        EXPECT_EQ(stored(), 10000);
    }
}

TEST_F(Exposure, StoringTheModeAloneDoesNothing) {
    set(10000);
    EXPECT_THAT(
        trace([&] { sensor().setExposureMode(tc3U5MGXS::eExposureDual); }, sim::tcKinds::all()),
        IsEmpty());
    EXPECT_EQ(sensor().getExposureMode(), 1U);
    EXPECT_EQ(stored(), 10000);
}

TEST_F(Exposure, GettingTheExposureTouchesNothing) {
    set(10000);
    EXPECT_THAT(
        trace([&] { EXPECT_EQ(sensor().getExposure(), microseconds(10000)); }, sim::tcKinds::all()),
        IsEmpty());
}

// ---- Frame-control modes

TEST_F(Exposure, FrameControlMode1IsFixedWhateverIsAsked) {
    set(10000);
    sensor().writeRegister(0x10, 0x100);
    for (const unsigned int mode : {0U, 1U, 2U, 3U}) {
        sensor().setExposureMode(tc3U5MGXS::teExposureMode(mode));
        EXPECT_THAT(set(5000), ElementsAre("SPI 3E 04 80 04",   // 0x12: 1086
                                           "SPI 64 00 00 05",   // 0x14: 100
                                           "SPI 00 00 40 05",   // 0x15: 0
                                           "SPI 00 00 80 05")); // 0x16: 0
        EXPECT_EQ(stored(), 10000);
    }
}

TEST_F(Exposure, FrameControlMode2DoesNothing) {
    set(10000);
    sensor().writeRegister(0x10, 0x200);
    for (const unsigned int mode : {0U, 1U, 2U, 3U}) {
        sensor().setExposureMode(tc3U5MGXS::teExposureMode(mode));
        EXPECT_THAT(set(5000), IsEmpty());
        EXPECT_EQ(stored(), 10000);
    }
}

TEST_F(Exposure, AFrameControlModeAddsOnlyTheRegistersThatItUses) {
    // Of a driver without clock: the shortest exposure, 2 lines.
    const auto copyAfterExposure = [&](tc3U5MGXS::teCtrlMode mode) {
        makeSensor();
        sensor().setFrameControlMode(mode);
        sensor().setExposure(microseconds(10000));
        return trace([&] { sensor().dumpRegisterMap(); });
    };
    EXPECT_THAT(copyAfterExposure(tc3U5MGXS::eCtrlExternalExposure),
                ElementsAre("NOTE OUT SPI: 16    :    256\\n",  // 0x10
                            "NOTE OUT SPI: 18    :    1086\\n", // 0x12
                            "NOTE OUT SPI: 20    :    100\\n",  // 0x14
                            "NOTE OUT SPI: 21    :    0\\n",    // 0x15
                            "NOTE OUT SPI: 22    :    0\\n"));  // 0x16
    EXPECT_THAT(copyAfterExposure(tc3U5MGXS::eCtrlReserved),
                ElementsAre("NOTE OUT SPI: 16    :    512\\n"));
    EXPECT_THAT(copyAfterExposure(tc3U5MGXS::eCtrlExternalTrigger),
                ElementsAre("NOTE OUT SPI: 16    :    768\\n", "NOTE OUT SPI: 18    :    1086\\n",
                            "NOTE OUT SPI: 20    :    2\\n", "NOTE OUT SPI: 21    :    50\\n",
                            "NOTE OUT SPI: 22    :    0\\n",
                            "NOTE OUT SPI: 176    :    0\\n")); // 0xB0: the horizontal period
}

struct tsTriggered {
    const char* name;
    std::int64_t time;
    bool limited;
    const char* count; // frame of register 0x14
    const char* end;   // frame of register 0x16
};

class TriggeredExposure : public Exposure, public testing::WithParamInterface<tsTriggered> {};

TEST_P(TriggeredExposure, ProgramsCountAndEnd) {
    set(10000);
    sensor().writeRegister(0x10, 0x300);
    tcLines expected;
    if (GetParam().limited) {
        expected.push_back(log(": Limiting exposure: exposure duration: 16383"));
    }
    expected =
        expected + tcLines{"SPI 3E 04 80 04", GetParam().count, "SPI 32 00 40 05", GetParam().end};
    for (const unsigned int mode : {0U, 1U, 2U, 3U}) {
        sensor().setExposureMode(tc3U5MGXS::teExposureMode(mode));
        EXPECT_THAT(set(GetParam().time), ElementsAreArray(expected));
        EXPECT_EQ(stored(), 10000);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Time, TriggeredExposure,
    testing::Values(
        tsTriggered{"Usual", 5000, false, "SPI C8 00 00 05", "SPI C6 00 80 05"}, // 200, 198
        tsTriggered{"Zero", 0, false, "SPI 02 00 00 05", "SPI 00 00 80 05"},
        tsTriggered{"Negative", -1, false, "SPI 02 00 00 05", "SPI 00 00 80 05"},
        tsTriggered{"OneLine", 25, false, "SPI 02 00 00 05", "SPI 00 00 80 05"},
        tsTriggered{"TwoLines", 50, false, "SPI 02 00 00 05", "SPI 00 00 80 05"},
        tsTriggered{"ThreeLines", 75, false, "SPI 03 00 00 05", "SPI 01 00 80 05"},
        tsTriggered{"Longest", 409575, false, "SPI FF 3F 00 05", "SPI FD 3F 80 05"},
        tsTriggered{"LongerByLessThanALine", 409599, false, "SPI FF 3F 00 05", "SPI FD 3F 80 05"},
        tsTriggered{"TooLong", 409600, true, "SPI FF 3F 00 05", "SPI FD 3F 80 05"},
        tsTriggered{"Huge", std::numeric_limits<std::int64_t>::max(), true, "SPI FF 3F 00 05",
                    "SPI FD 3F 80 05"}),
    [](const auto& time) { return time.param.name; });

TEST_F(Exposure, TriggeredFieldsKeepTheRegistersOtherBits) {
    for (const auto address : tcAddresses{0x12, 0x14, 0x15, 0x16}) {
        sensor().writeRegister(address, 0x3FFFFF);
    }
    sensor().writeRegister(0x10, 0x300);
    EXPECT_THAT(trace([&] { sensor().setExposure(microseconds(5000)); }, sim::teEventKind::spi),
                ElementsAre(registerWrite(0x12, 0x3FC000 | 1086),
                            registerWrite(0x14, 0x3FC000 | 200), registerWrite(0x15, 0x3FC000 | 50),
                            registerWrite(0x16, 0x3FC000 | 198)));
    sensor().writeRegister(0x10, 0x100);
    EXPECT_THAT(trace([&] { sensor().setExposure(microseconds(5000)); }, sim::teEventKind::spi),
                ElementsAre(registerWrite(0x12, 0x3FC000 | 1086),
                            registerWrite(0x14, 0x3FC000 | 100), registerWrite(0x15, 0x3FC000),
                            registerWrite(0x16, 0x3FC000)));
}

TEST_F(Exposure, ALimitedTriggeredExposureIsLoggedAsALineBeforeTheWrites) {
    sensor().writeRegister(0x10, 0x300);
    forget();
    sensor().setExposure(microseconds(409600));
    EXPECT_EQ(out().textWithFlushes(),
              "tc3U5MGXS::setExposure: Limiting exposure: exposure duration: 16383\n");
}

TEST_F(Exposure, FollowsTheFrameLengthThatSetHdMaxPrograms) {
    sensor().setHDMax(microseconds(50000)); // 2000 lines
    set(1000000);
    EXPECT_EQ(stored(), 49950);
}

} // namespace

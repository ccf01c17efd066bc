// Horizontal period, frame readout time, frame length.

#include <chrono>
#include <limits>

#include "tests/sensor/sensor_fixture.h"

using std::chrono::microseconds;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// 36 MHz and 900 clocks a line: 25 us a line.
class Readout : public tcSensorFixture {
protected:
    Readout() {
        makeSensor();
        sensor().setMClockMhz(36.0F);
        sensor().writeRegister(0xB0, 899);
        sensor().resetROIAreas();
    }

    /// \return the readout time with this many rows since the last reset
    std::int64_t timeFor(unsigned short rows) {
        sensor().resetROIAreas();
        sensor().setROIArea(0, 0, rows, 0, 2591);
        return sensor().getFrameReadoutTime().count();
    }
};

// ---- Horizontal period

TEST_F(Readout, HorizontalPeriodIsTheFieldPlusOne) {
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().getHorizontalPeriod(), 900); }), IsEmpty());
}

TEST_F(Readout, HorizontalPeriodIsTheLow12BitsOfItsRegister) {
    sensor().writeRegister(0xB0, 0x3FFFFF);
    EXPECT_EQ(sensor().getHorizontalPeriod(), 4096);
    sensor().writeRegister(0xB0, 0x3FF000);
    EXPECT_EQ(sensor().getHorizontalPeriod(), 1);
}

TEST_F(Readout, HorizontalPeriodOfAFreshDriverIs1AndAddsTheRegister) {
    makeSensor();
    EXPECT_EQ(sensor().getHorizontalPeriod(), 1);
    EXPECT_EQ(shadow(0xB0), 0U);
}

// ---- Readout time

TEST_F(Readout, TimeOfTheWholeArray) {
    sensor().setROIArea(0, 0, 2056, 0, 2591);
    forget();
    EXPECT_EQ(sensor().getFrameReadoutTime(), microseconds(27125)); // (1028 + 57) * 900 / 36
    EXPECT_EQ(out().textWithFlushes(), "getFrameReadoutTime(): 27125 uS\n");
    EXPECT_THAT(head().lines(), ElementsAre("NOTE OUT getFrameReadoutTime(): 27125 uS\\n"));
}

TEST_F(Readout, TimeDoublesInExposureMode1Only) {
    sensor().setROIArea(0, 0, 2056, 0, 2591);
    sensor().setExposureMode(tc3U5MGXS::teExposureMode(1));
    forget();
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 54250);
    EXPECT_EQ(out().text(), "getFrameReadoutTime(): 54250 uS\n");
    sensor().setExposureMode(tc3U5MGXS::teExposureMode(2));
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 27125);
    sensor().setExposureMode(tc3U5MGXS::teExposureMode(3));
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 27125);
    sensor().setExposureMode(tc3U5MGXS::teExposureMode(0));
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 27125);
}

TEST_F(Readout, TheTruncatedTimeIsDoubled) {
    sensor().writeRegister(0xB0, 0); // one clock a line: 57 / 36 = 1.58 us
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 1);
    sensor().setExposureMode(tc3U5MGXS::eExposureDual);
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 2); // not 3.17
}

TEST_F(Readout, RowsCountInPairsRoundedDown) {
    EXPECT_EQ(timeFor(0), 1425);
    EXPECT_EQ(timeFor(1), 1425);
    EXPECT_EQ(timeFor(2), 1450);
    EXPECT_EQ(timeFor(3), 1450);
    EXPECT_EQ(timeFor(2057), 27125);
}

TEST_F(Readout, RowsOfAllAreasAddUpUntilTheReset) {
    sensor().setROIArea(0, 0, 100, 0, 2591);
    sensor().setROIArea(1, 200, 301, 0, 2591);
    sensor().setROIArea(1, 400, 601, 0, 2591);               // the same area again counts again
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 6450); // 402 rows: (201 + 57) * 25
    sensor().resetROIAreas();
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 1425);
}

TEST_F(Readout, AnAreaThatDoesNotExistHasNoRows) {
    sensor().setROIArea(8, 0, 2056, 0, 2591);
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 1425);
}

TEST_F(Readout, AnAreaThatEndsBeforeItStartsTakesRowsAway) {
    sensor().setROIArea(0, 0, 2056, 0, 2591);
    sensor().setROIArea(1, 1000, 0, 0, 2591);
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 14625); // 1056 rows: (528 + 57) * 25
}

TEST_F(Readout, RowsBelowZeroWrapAs32Bits) {
    sensor().setROIArea(0, 10, 0, 0, 2591);
    // 4294967286 rows are 2147483643 pairs; 2147483700 * 900 = 1932735330000, in single precision
    // 1932735283200
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 53687091200);
}

TEST_F(Readout, TheSumOfPairsAndOverheadIsNotCutTo32Bits) {
    sensor().setROIArea(0, 1, 0, 0, 2591); // 4294967295 rows
    sensor().writeRegister(0xB0, 0xFFF);
    // (2147483647 + 57) * 4096 = 8796093255680, in single precision 8796093022208 (2^43)
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 244335919104); // 2^43 / 36, single precision
}

TEST_F(Readout, TimeInSinglePrecision) {
    // 24 MHz, 1085 lines of 4096 clocks: 4444160 / 24 = 185173.33
    sensor().setMClockMhz(24.0F);
    sensor().writeRegister(0xB0, 0xFFF);
    EXPECT_EQ(timeFor(2056), 185173);
    // (3542 + 57) * 900 / 35.99 = 90000.00 in higher precision
    sensor().setMClockMhz(35.99F);
    sensor().writeRegister(0xB0, 899);
    EXPECT_EQ(timeFor(7084), 89999);
}

TEST_F(Readout, TimeWithoutAClockIsTheLargestCount) {
    sensor().setMClockMhz(0.0F);
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), -1);
    EXPECT_THAT(out().text(), testing::EndsWith("getFrameReadoutTime(): -1 uS\n"));
    sensor().setExposureMode(tc3U5MGXS::eExposureDual);
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), -2);
}

TEST_F(Readout, TimeWithAClockBelowZeroIsZero) {
    sensor().setMClockMhz(-36.0F);
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 0);
}

TEST_F(Readout, TimeAddsThePeriodsRegister) {
    makeSensor();
    sensor().getFrameReadoutTime();
    EXPECT_EQ(shadow(0xB0), 0U);
}

// ---- Frame length

struct tsFrameTime {
    const char* name;
    std::int64_t time;
    const char* log;
    const char* frame;
};

class FrameLength : public Readout, public testing::WithParamInterface<tsFrameTime> {};

TEST_P(FrameLength, IsLoggedAndWritten) {
    EXPECT_THAT(
        trace([&] { EXPECT_EQ(sensor().setHDMax(microseconds(GetParam().time)), 0); }),
        ElementsAre(std::string("NOTE OUT tc3U5MGXS::setHDMax: hd_max: ") + GetParam().log + "\\n",
                    GetParam().frame));
    EXPECT_EQ(out().textWithFlushes(),
              std::string("tc3U5MGXS::setHDMax: hd_max: ") + GetParam().log + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Time, FrameLength,
    testing::Values(tsFrameTime{"Usual", 100000, "4000", "SPI A0 0F 80 04"},
                    tsFrameTime{"Zero", 0, "0", "SPI 00 00 80 04"},
                    tsFrameTime{"BelowOneLine", 24, "0", "SPI 00 00 80 04"},
                    tsFrameTime{"OneLine", 25, "1", "SPI 01 00 80 04"},
                    tsFrameTime{"AlmostTwoLines", 49, "1", "SPI 01 00 80 04"},
                    tsFrameTime{"BelowTheLimit", 409550, "16382", "SPI FE 3F 80 04"},
                    tsFrameTime{"TheLimit", 409575, "16383", "SPI FF 3F 80 04"},
                    tsFrameTime{"AboveTheLimit", 409600, "16383", "SPI FF 3F 80 04"},
                    tsFrameTime{"Last16Bits", 1638375, "16383", "SPI FF 3F 80 04"},
                    // 65536 lines: the low 16 bits are 0
                    tsFrameTime{"First17Bits", 1638400, "0", "SPI 00 00 80 04"},
                    tsFrameTime{"Second17Bits", 1638425, "1", "SPI 01 00 80 04"},
                    // 4294967295 lines and more: the low 16 bits are ones
                    tsFrameTime{"Huge", std::numeric_limits<std::int64_t>::max(), "16383",
                                "SPI FF 3F 80 04"},
                    tsFrameTime{"Negative", -1, "0", "SPI 00 00 80 04"},
                    tsFrameTime{"MostNegative", std::numeric_limits<std::int64_t>::min(), "0",
                                "SPI 00 00 80 04"}),
    [](const auto& time) { return time.param.name; });

TEST_F(Readout, FrameLengthKeepsTheRegistersOtherBits) {
    sensor().writeRegister(0x12, 0x3FFFFF);
    EXPECT_THAT(trace([&] { sensor().setHDMax(microseconds(25)); }, sim::teEventKind::spi),
                ElementsAre("SPI 01 C0 BF 04"));
}

TEST_F(Readout, FrameLengthIsLeftAloneInEveryOtherFrameControlMode) {
    for (const unsigned int mode : {1U, 2U, 3U}) {
        sensor().writeRegister(0x10, mode << 8);
        EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().setHDMax(microseconds(100000)), 0); },
                          sim::tcKinds::all()),
                    IsEmpty());
        EXPECT_EQ(shadow(0x12), std::nullopt);
    }
}

TEST_F(Readout, FrameLengthInSinglePrecision) {
    sensor().setMClockMhz(35.99F);
    // 10803 * 35.99 / 900 = 431.99997 in higher precision
    EXPECT_THAT(trace([&] { sensor().setHDMax(microseconds(10803)); }, sim::teEventKind::spi),
                ElementsAre("SPI B0 01 80 04"));
}

TEST_F(Readout, FrameLengthWithoutAClockIsZero) {
    sensor().setMClockMhz(0.0F);
    EXPECT_THAT(trace([&] { sensor().setHDMax(microseconds(100000)); }, sim::teEventKind::spi),
                ElementsAre("SPI 00 00 80 04"));
}

} // namespace

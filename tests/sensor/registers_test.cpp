// Shadow copy, fields and the register dump.

#include <cerrno>
#include <cmath>

#include "tests/sensor/sensor_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Registers : public tcSensorFixture {
protected:
    Registers() { makeSensor(); }
};

TEST_F(Registers, AReadAfterConstructionFindsNothing) {
    for (unsigned int address = 0; address <= 0xFFFF; ++address) {
        unsigned int value = 0x55AA;
        ASSERT_EQ(sensor().readShadowRegister(static_cast<unsigned short>(address), value), -1);
        ASSERT_EQ(value, 0x55AAU);
    }
    sensor().dumpRegisterMap();
    EXPECT_EQ(out().text(), "");
}

TEST_F(Registers, AReadOfAnAbsentRegisterAddsNothingAndLeavesTheValue) {
    unsigned int value = 77;
    EXPECT_EQ(sensor().readShadowRegister(0x31, value), -1);
    EXPECT_EQ(value, 77U);
    EXPECT_EQ(sensor().readShadowRegister(0x31, value), -1);
    EXPECT_THAT(trace([&] { sensor().dumpRegisterMap(); }), IsEmpty());
}

TEST_F(Registers, AReadGivesTheLastValueWithoutTraffic) {
    sensor().writeRegister(0x31, 1);
    sensor().writeRegister(0x31, 0xFFFFFFFF);
    unsigned int value = 0;
    EXPECT_THAT(
        trace([&] { EXPECT_EQ(sensor().readShadowRegister(0x31, value), 0); }, sim::tcKinds::all()),
        IsEmpty());
    EXPECT_EQ(value, 0xFFFFFFFFU);
}

TEST_F(Registers, AReadGivesAZeroThatWasWritten) {
    sensor().writeRegister(0x31, 0);
    EXPECT_EQ(shadow(0x31), 0U);
}

TEST_F(Registers, TheFirstAndTheLastAddressHaveTheirPlace) {
    sensor().writeRegister(0x0000, 5);
    sensor().writeRegister(0xFFFF, 6);
    EXPECT_EQ(shadow(0x0000), 5U);
    EXPECT_EQ(shadow(0xFFFF), 6U);
    EXPECT_EQ(shadow(0x0001), std::nullopt);
    EXPECT_EQ(shadow(0xFFFE), std::nullopt);
}

// ---- Fields

TEST_F(Registers, SettingAFieldKeepsTheOtherBits) {
    sensor().writeRegister(0x90, 0x2AAAAA);
    // bits 7..4: 1010 becomes 0101
    EXPECT_THAT(trace([&] { sensor().setRegisterField(0x90, 0x5, 0xF, 4); }),
                ElementsAre("SPI 5A AA 2A 24"));
    EXPECT_EQ(shadow(0x90), 0x2AAA5AU);
}

TEST_F(Registers, SettingAFieldDropsValueBitsThatTheMaskDoesNotHave) {
    EXPECT_THAT(trace([&] { sensor().setRegisterField(0x41, 0xFFFFFFFF, 0x7, 4); }),
                ElementsAre("SPI 70 00 40 10"));
    EXPECT_EQ(shadow(0x41), 0x70U);
}

TEST_F(Registers, SettingAFieldClearsOnlyItsMask) {
    sensor().writeRegister(0x41, 0xFFFFFFFF);
    // mask 101: the bit between stays
    EXPECT_THAT(trace([&] { sensor().setRegisterField(0x41, 0x0, 0x5, 8); }),
                ElementsAre("SPI FF FA 7F 10"));
    EXPECT_EQ(shadow(0x41), 0xFFFFFAFFU);
}

TEST_F(Registers, SettingAFieldOfAnAbsentRegisterStartsFromZeroWithoutAWarning) {
    EXPECT_THAT(trace([&] { sensor().setRegisterField(0x300, 4, 7, 16); }),
                ElementsAre("SPI 00 00 04 C0"));
    EXPECT_EQ(shadow(0x300), 0x40000U);
    EXPECT_EQ(err().text(), "");
}

TEST_F(Registers, SettingAFieldWritesEvenWhenNothingChanges) {
    sensor().writeRegister(0x41, 0x70);
    EXPECT_THAT(trace([&] { sensor().setRegisterField(0x41, 7, 7, 4); }),
                ElementsAre("SPI 70 00 40 10"));
}

TEST_F(Registers, AFieldAtBit31ReachesTheShadowCopyOnly) {
    sensor().setRegisterField(0x41, 1, 1, 31);
    EXPECT_EQ(shadow(0x41), 0x80000000U);
    EXPECT_EQ(sensor().getRegisterField(0x41, 1, 31), 1U);
}

TEST_F(Registers, AFieldKeepsNothingOfWhatTheShiftPushesOut) {
    sensor().setRegisterField(0x41, 0xFF, 0xFF, 28);
    EXPECT_EQ(shadow(0x41), 0xF0000000U);
    EXPECT_EQ(sensor().getRegisterField(0x41, 0xFF, 28), 0xFU);
}

class FarShift : public Registers, public testing::WithParamInterface<int> {
protected:
    static unsigned char shift() { return static_cast<unsigned char>(GetParam()); }
};

TEST_P(FarShift, WritesTheOldValueBack) {
    sensor().writeRegister(0x41, 0x00123456);
    EXPECT_THAT(trace([&] { sensor().setRegisterField(0x41, 0xFFFFFFFF, 0xFFFFFFFF, shift()); }),
                ElementsAre("SPI 56 34 52 10"));
    EXPECT_EQ(shadow(0x41), 0x00123456U);
}

TEST_P(FarShift, WritesZeroToAnAbsentRegister) {
    EXPECT_THAT(trace([&] { sensor().setRegisterField(0x41, 1, 1, shift()); }),
                ElementsAre("SPI 00 00 40 10"));
    EXPECT_EQ(shadow(0x41), 0U);
}

TEST_P(FarShift, ReadsZero) {
    sensor().writeRegister(0x41, 0xFFFFFFFF);
    EXPECT_EQ(sensor().getRegisterField(0x41, 0xFFFFFFFF, shift()), 0U);
}

INSTANTIATE_TEST_SUITE_P(Shift, FarShift, testing::Values(32, 33, 63, 64, 96, 128, 255));

TEST_F(Registers, AFieldReadShiftsAndMasksWithoutTraffic) {
    sensor().writeRegister(0x90, 0x0C5A31);
    EXPECT_THAT(trace(
                    [&] {
                        EXPECT_EQ(sensor().getRegisterField(0x90, 0xF, 4), 0x3U);
                        EXPECT_EQ(sensor().getRegisterField(0x90, 0x3, 18), 0x3U);
                        EXPECT_EQ(sensor().getRegisterField(0x90, 0x5, 8), 0x0U);
                        EXPECT_EQ(sensor().getRegisterField(0x90, 0xA, 8), 0xAU);
                        EXPECT_EQ(sensor().getRegisterField(0x90, 0xFFFFFFFF, 0), 0x0C5A31U);
                    },
                    sim::tcKinds::all()),
                IsEmpty());
}

TEST_F(Registers, AFieldReadSeesBitsThatTheWireDropped) {
    sensor().writeRegister(0x90, 0xC0000000);
    EXPECT_EQ(sensor().getRegisterField(0x90, 0x3, 30), 3U);
}

TEST_F(Registers, AFieldReadOfAnAbsentRegisterGivesZeroAndAddsItWithoutAWarning) {
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().getRegisterField(0x31, 0xFF, 0), 0U); },
                      sim::tcKinds::all()),
                IsEmpty());
    EXPECT_EQ(shadow(0x31), 0U);
    EXPECT_THAT(trace([&] { sensor().dumpRegisterMap(); }),
                ElementsAre("NOTE OUT SPI: 49    :    0\\n"));
    EXPECT_EQ(err().text(), "");
}

TEST_F(Registers, AFarFieldReadOfAnAbsentRegisterAddsItToo) {
    EXPECT_EQ(sensor().getRegisterField(0x31, 0xFF, 32), 0U);
    EXPECT_EQ(shadow(0x31), 0U);
}

// ---- Dump

TEST_F(Registers, TheDumpIsInAscendingOrderInDecimalAndNotFlushed) {
    sensor().writeRegister(0x300, 0x70000);
    sensor().writeRegister(0x10, 3);
    sensor().writeRegister(0xFFFF, 0xFFFFFFFF);
    sensor().writeRegister(0x20, 0);
    sensor().writeRegister(0x1F, 9);
    sensor().writeRegister(0x0, 10);
    forget();
    sensor().dumpRegisterMap();
    EXPECT_EQ(out().textWithFlushes(), "SPI: 0    :    10\n"
                                       "SPI: 16    :    3\n"
                                       "SPI: 31    :    9\n"
                                       "SPI: 32    :    0\n"
                                       "SPI: 768    :    458752\n"
                                       "SPI: 65535    :    4294967295\n");
    EXPECT_EQ(err().text(), "");
}

// ---- Master clock

TEST_F(Registers, AClockOf36MhzSelectsTheUpperRange) {
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().setMClockMhz(36.0F), 0); }),
                ElementsAre("SPI 0F D9 02 36"));
    EXPECT_EQ(shadow(0xD8), 186639U);
}

TEST_F(Registers, AClockBelow36MhzSelectsTheLowerRange) {
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().setMClockMhz(35.99F), 0); }),
                ElementsAre("SPI 0F B9 04 36"));
    EXPECT_EQ(shadow(0xD8), 309519U);
}

TEST_F(Registers, TheClockRangeChangesJustAt36) {
    EXPECT_THAT(trace([&] {
                    sensor().setMClockMhz(std::nextafter(36.0F, 0.0F));
                    sensor().setMClockMhz(std::nextafter(36.0F, 100.0F));
                    sensor().setMClockMhz(24.0F);
                    sensor().setMClockMhz(0.0F);
                    sensor().setMClockMhz(-36.0F);
                    sensor().setMClockMhz(std::nanf(""));
                }),
                ElementsAre("SPI 0F B9 04 36", "SPI 0F D9 02 36", "SPI 0F B9 04 36",
                            "SPI 0F B9 04 36", "SPI 0F B9 04 36", "SPI 0F B9 04 36"));
}

TEST_F(Registers, TheShadowCopyOutlivesAPowerCycle) {
    sensor().writeRegister(0x31, 0x77);
    ASSERT_EQ(sensor().powerUp(), 0);
    EXPECT_EQ(shadow(0x31), 0x77U);
    sensor().powerDown();
    EXPECT_EQ(shadow(0x31), 0x77U);
    EXPECT_EQ(shadow(0x10), 0U);
}

} // namespace

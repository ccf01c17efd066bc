// One register write is one frame of four bytes.

#include <cerrno>

#include "tests/sensor/sensor_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct tsFrame {
    const char* name;
    unsigned short address;
    unsigned int value;
    const char* line;
};

class SpiFrame : public tcSensorFixture, public testing::WithParamInterface<tsFrame> {};

TEST_P(SpiFrame, CarriesAddressAboveValueLowestByteFirst) {
    makeSensor();
    EXPECT_THAT(
        trace([&] { EXPECT_EQ(sensor().writeRegister(GetParam().address, GetParam().value), 0); }),
        ElementsAre(GetParam().line));
}

TEST_P(SpiFrame, IsTheSameForACallerThatHoldsTheLock) {
    makeSensor();
    EXPECT_THAT(
        trace([&] { sensor().writeRegisterUnlocked(GetParam().address, GetParam().value); }),
        ElementsAre(GetParam().line));
}

TEST_P(SpiFrame, LeavesTheWholeValueUnderTheWholeAddress) {
    makeSensor();
    sensor().writeRegister(GetParam().address, GetParam().value);
    EXPECT_EQ(shadow(GetParam().address), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Wire, SpiFrame,
                         testing::Values(
                             // address 0011011000, value 00 0100 1011 1001 0000 1111
                             tsFrame{"ClockRange", 0x0D8, 0x4B90F, "SPI 0F B9 04 36"},
                             tsFrame{"Nothing", 0, 0, "SPI 00 00 00 00"},
                             tsFrame{"EveryAddressBit", 0x3FF, 0, "SPI 00 00 C0 FF"},
                             tsFrame{"EveryValueBit", 0, 0x3FFFFF, "SPI FF FF 3F 00"},
                             tsFrame{"Everything", 0x3FF, 0x3FFFFF, "SPI FF FF FF FF"},
                             tsFrame{"LowestAddressBit", 0x001, 0, "SPI 00 00 40 00"},
                             tsFrame{"SecondAddressBit", 0x002, 0, "SPI 00 00 80 00"},
                             tsFrame{"ThirdAddressBit", 0x004, 0, "SPI 00 00 00 01"},
                             tsFrame{"HighestAddressBit", 0x200, 0, "SPI 00 00 00 80"},
                             tsFrame{"LowestValueBit", 0, 1, "SPI 01 00 00 00"},
                             tsFrame{"HighestValueBit", 0, 0x200000, "SPI 00 00 20 00"},
                             tsFrame{"ValueBit22IsDropped", 0, 0x400000, "SPI 00 00 00 00"},
                             tsFrame{"ValueBit31IsDropped", 0x10, 0x80000001, "SPI 01 00 00 04"},
                             tsFrame{"EveryValueBitAndMore", 0, 0xFFFFFFFF, "SPI FF FF 3F 00"},
                             tsFrame{"AddressBit10IsDropped", 0x400, 0x5, "SPI 05 00 00 00"},
                             tsFrame{"AddressBit15IsDropped", 0x8010, 0x123456, "SPI 56 34 12 04"},
                             tsFrame{"EveryAddressBitAndMore", 0xFFFF, 0x123456,
                                     "SPI 56 34 D2 FF"}),
                         [](const auto& frame) { return frame.param.name; });

class SpiFrames : public tcSensorFixture {};

TEST_F(SpiFrames, AnAddressAboveTheWiresIsAnEntryOfItsOwn) {
    makeSensor();
    sensor().writeRegister(0x410, 7);
    EXPECT_EQ(shadow(0x410), 7U);
    EXPECT_EQ(shadow(0x010), std::nullopt);
}

TEST_F(SpiFrames, TheSensorReceivesWhatTheWireCarries) {
    makePoweredSensor();
    sensor().writeRegister(0x0D8, 0x4B90F);
    sensor().writeRegister(0x0123, 0xFFC12345);
    EXPECT_EQ(head().sensorRegister(0x0D8), 0x4B90FU);
    EXPECT_EQ(head().sensorRegister(0x123), 0x012345U);
    EXPECT_THAT(head().violations(), IsEmpty());
}

TEST_F(SpiFrames, AFailedTransferIsNotDetectedAndTheShadowCopyHoldsTheValueAllTheSame) {
    useHead(sim::aVirtualHead().withSpiTransfersFailing(1, EIO));
    makeSensor();
    EXPECT_THAT(
        trace([&] { EXPECT_EQ(sensor().writeRegister(0x20, 0x12), 0); }, sim::teEventKind::spi),
        ElementsAre("SPI 12 00 00 08 failed EIO"));
    EXPECT_EQ(shadow(0x20), 0x12U);
}

TEST_F(SpiFrames, AMissingDeviceIsNotDetectedByAWrite) {
    useHead(sim::aVirtualHead().withoutSpiDevice());
    makeSensor();
    EXPECT_EQ(sensor().writeRegister(0x20, 0x12), 0);
    EXPECT_EQ(shadow(0x20), 0x12U);
}

TEST_F(SpiFrames, GoToTheDeviceThatTheDriverWasBuiltOn) {
    useHead(sim::aVirtualHead().withSpiDevice("/dev/spidev32765.1"));
    makeSensor("/dev/spidev32765.1");
    EXPECT_THAT(trace([&] { sensor().writeRegister(0x20, 0x12); }), ElementsAre("SPI 12 00 00 08"));
}

} // namespace

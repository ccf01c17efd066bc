// Construction and destruction of the driver, and the look-up of its control lines.

#include <cerrno>
#include <limits>
#include <type_traits>

#include "tests/sensor/sensor_fixture.h"
#include "tests/support/gpio_spy.h"

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

static_assert(std::has_virtual_destructor_v<tc3U5MGXS>);

class Construction : public tcSensorFixture {
protected:
    ~Construction() override { gpioSpy() = {}; }
};

TEST_F(Construction, RequestsTheLinesLowAndSetsTheAdcUpInThisOrder) {
    EXPECT_THAT(trace([&] { const tc3U5MGXS sensor("/dev/spidev1.0"); }),
                ElementsAre("NOTE OUT tc3U5MGXS::tc3U5MGXS: Constructing tc3U5MGXS\\n",
                            "NOTE OUT tc3U5MGXS::tc3U5MGXS: Exporting/configuring 3U5MGXS control "
                            "GPIOs\\n",
                            "NOTE OUT GPIO PS_1.2V_EN\t\t5\\n", "GPIO PS_1.2V_EN out 0",
                            "NOTE OUT GPIO PS_3.3SVDD_EN\t\t6\\n", "GPIO PS_3.3SVDD_EN out 0",
                            "NOTE OUT GPIO PS_3.3AVDDH_EN\t\t7\\n", "GPIO PS_3.3AVDDH_EN out 0",
                            "NOTE OUT GPIO RESET_B\t\t11\\n", "GPIO RESET_B out 0",
                            "NOTE OUT tc3U5MGXS::tc3U5MGXS: Configuring voltage check ADC...\\n",
                            "ADC-COMMAND 0x8C", "NOTE OUT tc3U5MGXS::tc3U5MGXS: Done!\\n",
                            // destruction, last made first
                            "GPIO RESET_B released", "GPIO PS_3.3AVDDH_EN released",
                            "GPIO PS_3.3SVDD_EN released", "GPIO PS_1.2V_EN released"));
    EXPECT_EQ(err().text(), "");
    EXPECT_THAT(head().violations(), IsEmpty());
}

TEST_F(Construction, OpensTheAdcBeforeTheSpiDeviceAndClosesItAfter) {
    const auto lines = trace([&] { const tc3U5MGXS sensor("/dev/spidev1.0"); },
                             sim::teEventKind::device | sim::teEventKind::note);
    std::vector<std::string> kept;
    for (const std::string& line : lines) {
        if (line.find("gpiochip") == std::string::npos && line.find("GPIO") == std::string::npos) {
            kept.push_back(line);
        }
    }
    EXPECT_THAT(kept,
                ElementsAre("OPEN /dev/i2c-1", "OPEN /dev/spidev1.0",
                            "NOTE OUT tc3U5MGXS::tc3U5MGXS: Constructing tc3U5MGXS\\n",
                            "NOTE OUT tc3U5MGXS::tc3U5MGXS: Configuring voltage check ADC...\\n",
                            "NOTE OUT tc3U5MGXS::tc3U5MGXS: Done!\\n", "CLOSE /dev/spidev1.0",
                            "CLOSE /dev/i2c-1"));
}

TEST_F(Construction, DoesNotConfigureThePort) {
    EXPECT_THAT(trace([&] { makeSensor(); }, sim::teEventKind::spi | sim::teEventKind::spiSetting),
                IsEmpty());
}

TEST_F(Construction, LeavesTheSensorOff) {
    makeSensor();
    EXPECT_EQ(head().line("PS_1.2V_EN"), 0);
    EXPECT_EQ(head().line("PS_3.3SVDD_EN"), 0);
    EXPECT_EQ(head().line("PS_3.3AVDDH_EN"), 0);
    EXPECT_EQ(head().line("RESET_B"), 0);
    EXPECT_FALSE(head().sensorAlive());
}

TEST_F(Construction, StartsIn12BitMode) {
    makeSensor();
    EXPECT_EQ(sensor().setAGainFine(1), 4U);
}

TEST_F(Construction, StartsInExposureMode0) {
    makeSensor();
    EXPECT_EQ(sensor().getExposureMode(), 0U);
}

TEST_F(Construction, StartsWithNoReadoutRowsAndAClockOf0Mhz) {
    makeSensor();
    sensor().writeRegister(0xB0, 899);
    sensor().setMClockMhz(36.0F);
    EXPECT_EQ(sensor().getFrameReadoutTime().count(), 1425); // 57 lines alone
}

TEST_F(Construction, TakesNothingFromTheLimitsFile) {
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Max]\nVDD1.2 = 0.1\n");
    makeSensor();
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Max]\nVDD1.2 = 1.3\n");
    EXPECT_EQ(sensor().powerUp(), 0);
}

TEST_F(Construction, DestructionLeavesThePowerAsItIs) {
    makePoweredSensor();
    EXPECT_THAT(trace([&] { destroySensor(); }),
                ElementsAre("GPIO RESET_B released", "GPIO PS_3.3AVDDH_EN released",
                            "GPIO PS_3.3SVDD_EN released", "GPIO PS_1.2V_EN released"));
    EXPECT_EQ(head().line("RESET_B"), 1);
    EXPECT_EQ(head().line("PS_1.2V_EN"), 1);
    EXPECT_TRUE(head().sensorAlive());
}

TEST_F(Construction, SaysWhichLineIsMissingAndGoesOn) {
    useHead(sim::aVirtualHead().withoutGpioLine("PS_3.3SVDD_EN"));
    const auto lines =
        trace([&] { const tc3U5MGXS sensor("/dev/spidev1.0"); }, sim::teEventKind::note);
    EXPECT_EQ(lines.at(3), "NOTE ERR ERROR: GPIO PS_3.3SVDD_EN not found in DT\\n");
    EXPECT_EQ(lines.back(), "NOTE OUT tc3U5MGXS::tc3U5MGXS: Done!\\n");
    EXPECT_THAT(lines, Not(Contains(HasSubstr("OUT GPIO PS_3.3SVDD_EN"))));
    EXPECT_THAT(head().lines(sim::teEventKind::gpio),
                ElementsAre("GPIO PS_1.2V_EN out 0", "GPIO PS_3.3AVDDH_EN out 0",
                            "GPIO RESET_B out 0", "GPIO RESET_B released",
                            "GPIO PS_3.3AVDDH_EN released", "GPIO PS_1.2V_EN released"));
}

TEST_F(Construction, AMissingLineIsUsedWithItsNegativeNumberAndReported) {
    gpioSpy().seen = [&](const std::string& what) { head().note(what); };
    gpioSpy().pins = {{"PS_1.2V_EN", -1},
                      {"PS_3.3SVDD_EN", -2},
                      {"PS_3.3AVDDH_EN", -38},
                      {"RESET_B", std::numeric_limits<int>::min()}};
    EXPECT_THAT(
        trace([&] { const tc3U5MGXS sensor("/dev/spidev1.0"); }),
        ElementsAre(
            "NOTE LINE 0", "NOTE LINE 0", "NOTE LINE 0", "NOTE LINE 0",
            "NOTE OUT tc3U5MGXS::tc3U5MGXS: Constructing tc3U5MGXS\\n",
            "NOTE OUT tc3U5MGXS::tc3U5MGXS: Exporting/configuring 3U5MGXS control GPIOs\\n",
            "NOTE ERR ERROR: GPIO PS_1.2V_EN not found in DT\\n", "NOTE LINE 4294967295",
            "NOTE DIRECTION 1 0",
            "NOTE ERR tcGpioSingle: pin -1: SetDirection: No such device (errno 19)\\n",
            "NOTE ERR ERROR: GPIO PS_3.3SVDD_EN not found in DT\\n", "NOTE LINE 4294967294",
            "NOTE DIRECTION 1 0",
            "NOTE ERR tcGpioSingle: pin -2: SetDirection: No such device (errno 19)\\n",
            "NOTE ERR ERROR: GPIO PS_3.3AVDDH_EN not found in DT\\n", "NOTE LINE 4294967258",
            "NOTE DIRECTION 1 0",
            "NOTE ERR tcGpioSingle: pin -38: SetDirection: No such device (errno 19)\\n",
            "NOTE ERR ERROR: GPIO RESET_B not found in DT\\n", "NOTE LINE 2147483648",
            "NOTE DIRECTION 1 0",
            "NOTE ERR tcGpioSingle: pin -2147483648: SetDirection: No such device (errno 19)\\n",
            "NOTE OUT tc3U5MGXS::tc3U5MGXS: Configuring voltage check ADC...\\n",
            "ADC-COMMAND 0x8C", "NOTE OUT tc3U5MGXS::tc3U5MGXS: Done!\\n"));
}

TEST_F(Construction, SurvivesAHeadWithoutAnyDevice) {
    useHead(sim::aVirtualHead().withoutGpioChip().withoutI2cBus().withoutSpiDevice());
    EXPECT_NO_THROW(makeSensor());
    EXPECT_EQ(sensor().writeRegister(0x10, 1), 0);
    EXPECT_EQ(shadow(0x10), 1U);
}

TEST_F(Construction, TheLinesOfOutputAreWhole) {
    const tc3U5MGXS sensor("/dev/spidev1.0");
    EXPECT_EQ(out().textWithFlushes(),
              "tc3U5MGXS::tc3U5MGXS: Constructing tc3U5MGXS\n"
              "tc3U5MGXS::tc3U5MGXS: Exporting/configuring 3U5MGXS control GPIOs\n"
              "GPIO PS_1.2V_EN\t\t5\n<flush>"
              "GPIO PS_3.3SVDD_EN\t\t6\n<flush>"
              "GPIO PS_3.3AVDDH_EN\t\t7\n<flush>"
              "GPIO RESET_B\t\t11\n<flush>"
              "tc3U5MGXS::tc3U5MGXS: Configuring voltage check ADC...\n"
              "tc3U5MGXS::tc3U5MGXS: Done!\n");
}

// ---- Line look-up

TEST_F(Construction, LookUpGivesThePinAndSaysSo) {
    EXPECT_EQ(GetPinFromDTName("RESET_B"), 11);
    EXPECT_EQ(out().textWithFlushes(), "GPIO RESET_B\t\t11\n<flush>");
    EXPECT_EQ(err().text(), "");
}

TEST_F(Construction, LookUpOfPin0IsNoFailure) {
    EXPECT_EQ(GetPinFromDTName("LED_STATUS"), 0);
    EXPECT_EQ(out().text(), "GPIO LED_STATUS\t\t0\n");
    EXPECT_EQ(err().text(), "");
}

TEST_F(Construction, LookUpOfAMissingLineIsNegativeAndSaysSo) {
    EXPECT_LT(GetPinFromDTName("NO_SUCH_LINE"), 0);
    EXPECT_EQ(out().text(), "");
    EXPECT_EQ(err().text(), "ERROR: GPIO NO_SUCH_LINE not found in DT\n");
}

} // namespace

// Powering up to each of its ends, and down.

#include <cerrno>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <typeinfo>

#include "tests/sensor/binning_state.h"
#include "tests/sensor/fake_adc.h"
#include "tests/sensor/sensor_fixture.h"
#include "tests/support/fed_pipe.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

const tcLines kPort = {
    "NOTE OUT tc3U5MGXS::powerUp: Opening spidev...",
    "NOTE OUT tc3U5MGXS::powerUp: Done!\\n",
    "NOTE OUT tc3U5MGXS::powerUp: Configuring spidev...",
    "SPI-MODE 0",
    "SPI-LSB 0",
    "SPI-BITS 32",
    "SPI-HZ 10000000",
    "NOTE OUT tc3U5MGXS::powerUp: Done!\\n",
};

const tcLines kSupplies = {
    "NOTE OUT tc3U5MGXS::powerUp: toggling power supplies on\\n",
    "GPIO RESET_B = 0",
    "GPIO PS_1.2V_EN = 1",
    "SLEEP 1000000 ns",
    "GPIO PS_3.3SVDD_EN = 1",
    "GPIO PS_3.3AVDDH_EN = 1",
    "SLEEP 1000 ns",
    "SLEEP 300000000 ns",
    "GPIO RESET_B = 1",
    "SLEEP 10000000 ns",
};

// 1.2 V is 1966 steps of 2.5 V / 4096, 1.65 V behind the divider is 2703.
const tcLines kVoltages = {
    "NOTE OUT tc3U5MGXS::powerUp: Verifying voltages...\\n",
    "ADC-COMMAND 0x8C",
    "ADC 0 0x7AE",
    "SLEEP 5000000 ns",
    "ADC-COMMAND 0x8C",
    "ADC 0 0x7AE",
    "NOTE OUT VDD1.2: 1.19995\\n",
    "ADC-COMMAND 0xCC",
    "ADC 1 0xA8F",
    "NOTE OUT VDD3.3AVDDH_DIV2: 3.29956\\n",
    "ADC-COMMAND 0xAC",
    "ADC 4 0xA8F",
    "NOTE OUT VDD3.3SVDD_DIV2: 3.29956\\n",
};

class Power : public tcSensorFixture {
protected:
    /// Files of both depths that write one register each.
    void writeSettings() {
        directory().write("3U5MGXS_10bit.txt", "20 10\n");
        directory().write("3U5MGXS_12bit.txt", "20 12\n");
    }
};

TEST_F(Power, UpIn12BitMode) {
    writeSettings();
    makeSensor();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }, sim::tcKinds::all()),
                ElementsAreArray(
                    kPort + kSupplies + kVoltages +
                    tcLines{"NOTE OUT tc3U5MGXS::powerUp: Configuring initial settings 12-bit...",
                            "SPI 12 00 00 08", "NOTE OUT tc3U5MGXS::powerUp: Done!\\n",
                            "SPI 00 00 00 04"}));
    EXPECT_EQ(err().text(), "");
    EXPECT_THAT(head().violations(), IsEmpty());
    EXPECT_TRUE(head().sensorAlive());
    EXPECT_THAT(head().compareShadow({{0x20, 0x12}, {0x10, 0}}), IsEmpty());
}

TEST_F(Power, UpIn10BitMode) {
    writeSettings();
    makeSensor();
    sensor().setPixelDepth(10);
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }),
                ElementsAreArray(
                    kPort + kSupplies + kVoltages +
                    tcLines{"NOTE OUT tc3U5MGXS::powerUp: Configuring initial settings 10-bit...",
                            "SPI 10 00 00 08", "NOTE OUT tc3U5MGXS::powerUp: Done!\\n",
                            "SPI 00 00 00 04"}));
    EXPECT_THAT(head().violations(), IsEmpty());
}

TEST_F(Power, UpWithoutSettingsFilesIsSilentAboutThem) {
    makeSensor();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }),
                ElementsAreArray(
                    kPort + kSupplies + kVoltages +
                    tcLines{"NOTE OUT tc3U5MGXS::powerUp: Configuring initial settings 12-bit...",
                            "NOTE OUT tc3U5MGXS::powerUp: Done!\\n", "SPI 00 00 00 04"}));
    EXPECT_EQ(err().text(), "");
}

TEST_F(Power, TheLimitsAreReadOnceThePortIsSetAndBeforeAnySupplyIsSwitched) {
    directory().write("3u5mgxs_sensor.ini", "");
    makeSensor();
    tcFileWatch files;
    const auto noteFiles = [&] { noteEvents(files); };
    const auto lines = trace([&] {
        const tcTracedOutput out(std::cout, [&](const std::string& text) {
            noteFiles();
            note("OUT ", text);
        });
        EXPECT_EQ(sensor().powerUp(), 0);
        noteFiles();
    });
    EXPECT_THAT(lines,
                ElementsAreArray(
                    kPort +
                    tcLines{"NOTE OPENED 3u5mgxs_sensor.ini", "NOTE CLOSED 3u5mgxs_sensor.ini"} +
                    kSupplies + kVoltages +
                    tcLines{"NOTE OUT tc3U5MGXS::powerUp: Configuring initial settings 12-bit...",
                            "NOTE OUT tc3U5MGXS::powerUp: Done!\\n", "SPI 00 00 00 04"}));
}

TEST_F(Power, UpFlushesWhatItLeavesUnfinished) {
    makeSensor();
    sensor().powerUp();
    EXPECT_EQ(out().textWithFlushes(),
              "tc3U5MGXS::powerUp: Opening spidev...<flush>"
              "tc3U5MGXS::powerUp: Done!\n"
              "tc3U5MGXS::powerUp: Configuring spidev...<flush>"
              "tc3U5MGXS::powerUp: Done!\n"
              "tc3U5MGXS::powerUp: toggling power supplies on\n"
              "tc3U5MGXS::powerUp: Verifying voltages...\n"
              "VDD1.2: 1.19995\n<flush>"
              "VDD3.3AVDDH_DIV2: 3.29956\n<flush>"
              "VDD3.3SVDD_DIV2: 3.29956\n<flush>"
              "tc3U5MGXS::powerUp: Configuring initial settings 12-bit...<flush>"
              "tc3U5MGXS::powerUp: Done!\n");
}

TEST_F(Power, UpFlushesThe10BitLineToo) {
    makeSensor();
    sensor().setPixelDepth(10);
    sensor().powerUp();
    EXPECT_THAT(out().textWithFlushes(),
                testing::EndsWith("Configuring initial settings 10-bit...<flush>"
                                  "tc3U5MGXS::powerUp: Done!\n"));
}

TEST_F(Power, UpWithoutSpidevThrowsBeforeAnythingIsSwitchedOn) {
    useHead(sim::aVirtualHead().withoutSpiDevice());
    makeSensor();
    EXPECT_THAT(trace([&] {
                    try {
                        sensor().powerUp();
                        ADD_FAILURE() << "no exception";
                    } catch (const std::runtime_error& error) {
                        EXPECT_STREQ(error.what(), "Failed to open spidev");
                        EXPECT_EQ(typeid(error), typeid(std::runtime_error));
                    }
                }),
                ElementsAre("NOTE OUT tc3U5MGXS::powerUp: Opening spidev...",
                            "NOTE OUT tc3U5MGXS::powerUp: Done!\\n",
                            "NOTE OUT tc3U5MGXS::powerUp: Configuring spidev..."));
    EXPECT_EQ(out().textWithFlushes(), "tc3U5MGXS::powerUp: Opening spidev...<flush>"
                                       "tc3U5MGXS::powerUp: Done!\n"
                                       "tc3U5MGXS::powerUp: Configuring spidev...<flush>");
    EXPECT_EQ(err().text(), "");
}

TEST_F(Power, UpGives1WhenThePortRefusesItsSettingsAndSwitchesNothingOn) {
    useHead(sim::aVirtualHead().withSpiSettingsRefused());
    makeSensor();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 1); },
                      sim::teEventKind::gpio | sim::teEventKind::adc |
                          sim::teEventKind::adcCommand | sim::teEventKind::sleep |
                          sim::teEventKind::spi),
                IsEmpty());
    EXPECT_EQ(out().text(), "tc3U5MGXS::powerUp: Opening spidev..."
                            "tc3U5MGXS::powerUp: Done!\n"
                            "tc3U5MGXS::powerUp: Configuring spidev...");
}

class RefusedPortSetting : public Power, public testing::WithParamInterface<unsigned> {};

TEST_P(RefusedPortSetting, GivesOneWhicheverItIs) {
    makeSensor();
    // Four settings are fetched before four are stored.
    head().failCall(sim::teCall::ioctl, "/dev/spidev1.0",
                    head().calls(sim::teCall::ioctl, "/dev/spidev1.0") + 4 + GetParam(), EIO);
    EXPECT_EQ(sensor().powerUp(), 1);
    EXPECT_EQ(head().line("PS_1.2V_EN"), 0);
    EXPECT_EQ(sensor().powerUp(), 0); // the next try works
}

INSTANTIATE_TEST_SUITE_P(Setting, RefusedPortSetting, testing::Values(1U, 2U, 3U, 4U));

TEST_F(Power, UpSetsAPortRightThatSomebodyElseLeftWrong) {
    makeSensor();
    ASSERT_EQ(sensor().powerUp(), 0);
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }, sim::teEventKind::spiSetting),
                ElementsAre("SPI-MODE 0", "SPI-LSB 0", "SPI-BITS 32", "SPI-HZ 10000000"));
}

// ---- Binning

TEST_F(Power, UpForgetsTheBinningAtItsEnd) {
    makeSensor();
    sensor().setBin(2);
    {
        const tcTracedOutput out(std::cout, [&](const std::string& text) {
            EXPECT_EQ(binningState(sensor()), 1) << text;
        });
        EXPECT_EQ(sensor().powerUp(), 0);
        EXPECT_THAT(out.text(), testing::EndsWith("tc3U5MGXS::powerUp: Done!\n"));
    }
    EXPECT_EQ(binningState(sensor()), 0);
}

TEST_F(Power, UpThatFailsKeepsTheBinning) {
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Max]\nVDD1.2 = 1\n");
    makeSensor();
    sensor().setBin(2);
    EXPECT_EQ(sensor().powerUp(), -4);
    EXPECT_EQ(binningState(sensor()), 1);
    directory().write("3u5mgxs_sensor.ini", "");
    directory().write("3U5MGXS_12bit.txt", "nonsense\n");
    EXPECT_THROW(sensor().powerUp(), std::exception);
    EXPECT_EQ(binningState(sensor()), 1);
}

// ---- Depth

class OtherDepth : public Power, public testing::WithParamInterface<int> {};

TEST_P(OtherDepth, ThrowsOnceTheSuppliesAreOnAndVerified) {
    writeSettings();
    makeSensor();
    sensor().setPixelDepth(static_cast<unsigned char>(GetParam()));
    EXPECT_THAT(trace([&] {
                    try {
                        sensor().powerUp();
                        ADD_FAILURE() << "no exception";
                    } catch (const std::runtime_error& error) {
                        EXPECT_STREQ(error.what(), "Unknown bpp settings");
                        EXPECT_EQ(typeid(error), typeid(std::runtime_error));
                    }
                }),
                ElementsAreArray(kPort + kSupplies + kVoltages));
    EXPECT_TRUE(head().sensorAlive());
}

INSTANTIATE_TEST_SUITE_P(Bits, OtherDepth, testing::Values(0, 1, 8, 9, 11, 13, 14, 16, 128, 255));

TEST_F(Power, AnUnknownDepthIsNotReachedWhenASupplyIsOutOfLimits) {
    useHead(sim::aVirtualHead().withRail("VDD1.2", 1.0));
    makeSensor();
    sensor().setPixelDepth(8);
    EXPECT_EQ(sensor().powerUp(), -4);
}

TEST_F(Power, TheDepthInForceIsTheOneAtPowerUp) {
    writeSettings();
    makeSensor();
    sensor().setPixelDepth(8);
    sensor().setPixelDepth(10);
    EXPECT_EQ(sensor().powerUp(), 0);
    EXPECT_EQ(shadow(0x20), 0x10U);
    sensor().setPixelDepth(12);
    EXPECT_EQ(sensor().powerUp(), 0);
    EXPECT_EQ(shadow(0x20), 0x12U);
}

// ---- Settings

TEST_F(Power, AMalformedSettingsFileEndsPowerUpWithItsException) {
    directory().write("3U5MGXS_12bit.txt", "20 12\nnonsense\n21 1\n");
    makeSensor();
    EXPECT_THAT(trace([&] {
                    try {
                        sensor().powerUp();
                        ADD_FAILURE() << "no exception";
                    } catch (const std::exception& error) {
                        EXPECT_EQ(typeid(error), typeid(std::exception));
                    }
                }),
                ElementsAreArray(
                    kPort + kSupplies + kVoltages +
                    tcLines{"NOTE OUT tc3U5MGXS::powerUp: Configuring initial settings 12-bit...",
                            "SPI 12 00 00 08",
                            "NOTE ERR \\nError writing registers: 3U5MGXS_12bit.txt 2: nonsense\\n",
                            "NOTE ERR eof: 0 good: 0 fail: 1 bad: 0\\n"}));
    EXPECT_TRUE(head().sensorAlive());
}

TEST_F(Power, UpStopsTheFramesThatTheSettingsFileStarted) {
    directory().write("3U5MGXS_12bit.txt", "10 7F7B\n");
    makeSensor();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }, sim::teEventKind::spi),
                ElementsAre("SPI 7B 7F 00 04", "SPI 78 7F 00 04"));
}

TEST_F(Power, ASecondPowerUpRepeatsEverything) {
    writeSettings();
    makeSensor();
    ASSERT_EQ(sensor().powerUp(), 0);
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }),
                ElementsAreArray(
                    kPort + kSupplies + kVoltages +
                    tcLines{"NOTE OUT tc3U5MGXS::powerUp: Configuring initial settings 12-bit...",
                            "SPI 12 00 00 08", "NOTE OUT tc3U5MGXS::powerUp: Done!\\n",
                            "SPI 00 00 00 04"}));
}

TEST_F(Power, UpAfterAPowerCycleStartsFromTheValuesBeforeIt) {
    makeSensor();
    ASSERT_EQ(sensor().powerUp(), 0);
    sensor().writeRegister(0x10, 0x303);
    sensor().powerDown();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }, sim::teEventKind::spi),
                ElementsAre("SPI 00 03 00 04")); // frame state alone is cleared
}

// ---- Supply limits

struct tsSupplyCase {
    const char* name;
    const char* rail;
    double volts;
    const char* line; // what is printed
};

class SupplyOutOfLimits : public Power, public testing::WithParamInterface<tsSupplyCase> {};

TEST_P(SupplyOutOfLimits, GivesMinus4AfterAllWerePrintedAndLeavesThePowerOn) {
    writeSettings();
    useHead(sim::aVirtualHead().withRail(GetParam().rail, GetParam().volts));
    makeSensor();
    const auto lines = trace([&] { EXPECT_EQ(sensor().powerUp(), -4); });
    tcLines printed;
    for (const std::string& line : lines) {
        if (line.starts_with("NOTE OUT VDD")) {
            printed.push_back(line);
        }
    }
    ASSERT_EQ(printed.size(), 3U);
    EXPECT_THAT(printed, testing::Contains(GetParam().line));
    EXPECT_TRUE(lines.back().starts_with("NOTE OUT VDD3.3SVDD_DIV2: ")); // nothing after it
    EXPECT_EQ(lines.size(), kPort.size() + kSupplies.size() + kVoltages.size());
    EXPECT_EQ(shadow(0x20), std::nullopt);
    EXPECT_EQ(shadow(0x10), std::nullopt);
    EXPECT_EQ(head().line("PS_1.2V_EN"), 1);
    EXPECT_EQ(head().line("PS_3.3SVDD_EN"), 1);
    EXPECT_EQ(head().line("PS_3.3AVDDH_EN"), 1);
    EXPECT_EQ(head().line("RESET_B"), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Supply, SupplyOutOfLimits,
    testing::Values(
        // 2131 steps are 1.300659 V, 1802 are 1.099854 V
        tsSupplyCase{"CoreHigh", "VDD1.2", 2131 * 2.5 / 4096, "NOTE OUT VDD1.2: 1.30066\\n"},
        tsSupplyCase{"CoreLow", "VDD1.2", 1802 * 2.5 / 4096, "NOTE OUT VDD1.2: 1.09985\\n"},
        // 2786 steps are 3.400879 V, 2621 are 3.199463 V
        tsSupplyCase{"AvddhHigh", "VDD3.3AVDDH", 2786 * 5.0 / 4096,
                     "NOTE OUT VDD3.3AVDDH_DIV2: 3.40088\\n"},
        tsSupplyCase{"AvddhLow", "VDD3.3AVDDH", 2621 * 5.0 / 4096,
                     "NOTE OUT VDD3.3AVDDH_DIV2: 3.19946\\n"},
        tsSupplyCase{"SvddHigh", "VDD3.3SVDD", 2786 * 5.0 / 4096,
                     "NOTE OUT VDD3.3SVDD_DIV2: 3.40088\\n"},
        tsSupplyCase{"SvddLow", "VDD3.3SVDD", 2621 * 5.0 / 4096,
                     "NOTE OUT VDD3.3SVDD_DIV2: 3.19946\\n"}),
    [](const auto& supply) { return supply.param.name; });

class SupplyWithinLimits : public Power, public testing::WithParamInterface<tsSupplyCase> {};

TEST_P(SupplyWithinLimits, PowersUp) {
    useHead(sim::aVirtualHead().withRail(GetParam().rail, GetParam().volts));
    makeSensor();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }),
                testing::Contains(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Supply, SupplyWithinLimits,
    testing::Values(
        // 2129 steps are 1.299438 V, 1803 are 1.100464 V
        tsSupplyCase{"CoreHigh", "VDD1.2", 2129 * 2.5 / 4096, "NOTE OUT VDD1.2: 1.29944\\n"},
        tsSupplyCase{"CoreLow", "VDD1.2", 1803 * 2.5 / 4096, "NOTE OUT VDD1.2: 1.10046\\n"},
        // 2785 steps are 3.399658 V, 2622 are 3.200684 V
        tsSupplyCase{"AvddhHigh", "VDD3.3AVDDH", 2785 * 5.0 / 4096,
                     "NOTE OUT VDD3.3AVDDH_DIV2: 3.39966\\n"},
        tsSupplyCase{"AvddhLow", "VDD3.3AVDDH", 2622 * 5.0 / 4096,
                     "NOTE OUT VDD3.3AVDDH_DIV2: 3.20068\\n"},
        tsSupplyCase{"SvddHigh", "VDD3.3SVDD", 2785 * 5.0 / 4096,
                     "NOTE OUT VDD3.3SVDD_DIV2: 3.39966\\n"},
        tsSupplyCase{"SvddLow", "VDD3.3SVDD", 2622 * 5.0 / 4096,
                     "NOTE OUT VDD3.3SVDD_DIV2: 3.20068\\n"}),
    [](const auto& supply) { return supply.param.name; });

TEST_F(Power, EverySupplyIsMeasuredAfterAFailure) {
    useHead(sim::aVirtualHead().withRail("VDD1.2", 1.0).withRail("VDD3.3AVDDH", 4.0));
    makeSensor();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().powerUp(), -4); },
                      sim::teEventKind::adc | sim::teEventKind::note),
                testing::IsSupersetOf({"ADC 0 0x666", "NOTE OUT VDD1.2: 0.999756\\n", "ADC 1 0xCCD",
                                       "NOTE OUT VDD3.3AVDDH_DIV2: 4.00024\\n", "ADC 4 0xA8F",
                                       "NOTE OUT VDD3.3SVDD_DIV2: 3.29956\\n"}));
}

TEST_F(Power, ASilentAdcReadsAsNothingAndFails) {
    useHead(sim::aVirtualHead().withoutAdc());
    makeSensor();
    EXPECT_EQ(sensor().powerUp(), -4);
    EXPECT_THAT(out().text(), testing::EndsWith("VDD1.2: 0\n"
                                                "VDD3.3AVDDH_DIV2: 0\n"
                                                "VDD3.3SVDD_DIV2: 0\n"));
}

TEST_F(Power, AFailedCheckCanBeTriedAgain) {
    writeSettings();
    useHead(sim::aVirtualHead().withRail("VDD1.2", 1.0));
    directory().write("3u5mgxs_sensor.ini", "");
    makeSensor();
    EXPECT_EQ(sensor().powerUp(), -4);
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Min]\nVDD1.2 = 0.9\n");
    const auto lines = trace([&] { EXPECT_EQ(sensor().powerUp(), 0); }, sim::teEventKind::gpio);
    EXPECT_THAT(lines,
                ElementsAre("GPIO RESET_B = 0", "GPIO PS_1.2V_EN = 1", "GPIO PS_3.3SVDD_EN = 1",
                            "GPIO PS_3.3AVDDH_EN = 1", "GPIO RESET_B = 1"));
    EXPECT_EQ(shadow(0x20), 0x12U);
}

// ---- Limits to the bit

/// Three readings, by channel.
class ExactReading : public Power {
protected:
    /// \return what powerUp gives when the converter reads so
    int powerUpWith(float core, float avddh, float svdd) {
        const tcFakeAdc adc([&](int channel, bool singleEnded) {
            EXPECT_TRUE(singleEnded);
            m_channels.push_back(channel);
            return channel == 0 ? core : channel == 1 ? avddh : svdd;
        });
        makeSensor();
        return sensor().powerUp();
    }

    std::vector<int> m_channels;
};

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

TEST_F(ExactReading, TheThrowAwayReadingIsChannel0AndTheOrderAscends) {
    EXPECT_EQ(powerUpWith(1.2F, 1.65F, 1.65F), 0);
    EXPECT_THAT(m_channels, ElementsAre(0, 0, 1, 4));
}

TEST_F(ExactReading, TheThrowAwayReadingDoesNotCount) {
    int readings = 0;
    const tcFakeAdc adc([&](int channel, bool) {
        ++readings;
        return readings == 1 ? 2.5F : channel == 0 ? 1.2F : 1.65F;
    });
    makeSensor();
    EXPECT_EQ(sensor().powerUp(), 0);
    EXPECT_EQ(readings, 4);
}

TEST_F(ExactReading, HalfOf3V3IsReportedAndComparedAs3V3) {
    EXPECT_EQ(powerUpWith(1.2F, 1.65F, 1.65F), 0);
    EXPECT_THAT(out().text(), testing::HasSubstr("VDD1.2: 1.2\n"
                                                 "VDD3.3AVDDH_DIV2: 3.3\n"
                                                 "VDD3.3SVDD_DIV2: 3.3\n"));
}

TEST_F(ExactReading, AReadingEqualToItsLimitPasses) {
    EXPECT_EQ(powerUpWith(1.3F, 1.7F, 1.7F), 0);
    EXPECT_EQ(powerUpWith(1.1F, 1.6F, 1.6F), 0);
}

TEST_F(ExactReading, TheNextReadingBeyondALimitFails) {
    const float core = 1.2F;
    const float half = 1.65F;
    EXPECT_EQ(powerUpWith(std::nextafter(1.3F, 2.0F), half, half), -4);
    EXPECT_EQ(powerUpWith(std::nextafter(1.1F, 0.0F), half, half), -4);
    EXPECT_EQ(powerUpWith(core, std::nextafter(1.7F, 2.0F), half), -4);
    EXPECT_EQ(powerUpWith(core, std::nextafter(1.6F, 0.0F), half), -4);
    EXPECT_EQ(powerUpWith(core, half, std::nextafter(1.7F, 2.0F)), -4);
    EXPECT_EQ(powerUpWith(core, half, std::nextafter(1.6F, 0.0F)), -4);
}

TEST_F(ExactReading, AReadingThatIsNotANumberPasses) {
    EXPECT_EQ(powerUpWith(kNan, kNan, kNan), 0);
    EXPECT_THAT(out().text(), testing::HasSubstr("VDD1.2: nan\n"
                                                 "VDD3.3AVDDH_DIV2: nan\n"
                                                 "VDD3.3SVDD_DIV2: nan\n"));
}

// Another board-support library may leave the reading alone.
TEST_F(ExactReading, AConversionThatFailsWithoutAReadingCountsAs0Volts) {
    const tcFakeAdc adc([](int channel, bool) {
        return channel == 1 ? std::nullopt : std::optional(channel == 0 ? 1.2F : 1.65F);
    });
    makeSensor();
    EXPECT_EQ(sensor().powerUp(), -4);
    EXPECT_THAT(out().text(), testing::HasSubstr("VDD1.2: 1.2\n"
                                                 "VDD3.3AVDDH_DIV2: 0\n"
                                                 "VDD3.3SVDD_DIV2: 3.3\n"));
}

TEST_F(ExactReading, EndlessReadingsFail) {
    EXPECT_EQ(powerUpWith(kInfinity, 1.65F, 1.65F), -4);
    EXPECT_EQ(powerUpWith(1.2F, -kInfinity, 1.65F), -4);
    EXPECT_THAT(out().text(), testing::HasSubstr("VDD3.3AVDDH_DIV2: -inf\n"));
}

TEST_F(ExactReading, AReadingEqualToALimitFromTheFilePasses) {
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Max]\n"
                                            "VDD1.2 = 1.375\n"
                                            "VDD3.3AVDDH_DIV2 = 3.375\n"
                                            "VDD3.3SVDD_DIV2 = 3.5\n"
                                            "[Voltages_Min]\n"
                                            "VDD1.2 = 1.125\n"
                                            "VDD3.3AVDDH_DIV2 = 3.125\n"
                                            "VDD3.3SVDD_DIV2 = 2.25\n");
    EXPECT_EQ(powerUpWith(1.125F, 1.6875F, 1.125F), 0);
    EXPECT_EQ(powerUpWith(1.375F, 1.5625F, 1.75F), 0);
    EXPECT_EQ(powerUpWith(std::nextafter(1.125F, 0.0F), 1.6875F, 1.125F), -4);
    EXPECT_EQ(powerUpWith(1.125F, std::nextafter(1.6875F, 2.0F), 1.125F), -4);
    EXPECT_EQ(powerUpWith(1.125F, 1.6875F, std::nextafter(1.125F, 0.0F)), -4);
    EXPECT_EQ(powerUpWith(std::nextafter(1.375F, 2.0F), 1.5625F, 1.75F), -4);
    EXPECT_EQ(powerUpWith(1.375F, std::nextafter(1.5625F, 0.0F), 1.75F), -4);
    EXPECT_EQ(powerUpWith(1.375F, 1.5625F, std::nextafter(1.75F, 2.0F)), -4);
}

// A reading of single precision: the 1.7 V at the divider are 3.400000095 V, the 1.15 V of the core
// 1.149999976 V.
TEST_F(ExactReading, ALimitFromTheFileCountsWithAllItsDigits) {
    const auto powerUpWithLimits = [&](const char* most, const char* least) {
        directory().write("3u5mgxs_sensor.ini",
                          "[Voltages_Max]\nVDD3.3SVDD_DIV2 = " + std::string(most) +
                              "\n[Voltages_Min]\nVDD1.2 = " + least + "\n");
        return powerUpWith(1.15F, 1.65F, 1.7F);
    };
    EXPECT_EQ(powerUpWithLimits("3.4000001", "1.14999997"), 0);
    EXPECT_EQ(powerUpWithLimits("3.4", "1.14999997"), -4);
    EXPECT_EQ(powerUpWithLimits("3.4000001", "1.15"), -4);
    EXPECT_EQ(powerUpWithLimits("1e999", "-1e999"), 0);
    EXPECT_EQ(powerUpWithLimits("nan", "nan"), 0);
}

TEST_F(ExactReading, AKeyThatIsMissingHasItsDefault) {
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Max]\n"
                                            "VDD1.2 = 9\n");
    EXPECT_EQ(powerUpWith(8.9F, 1.7F, 1.6F), 0);
    EXPECT_EQ(powerUpWith(std::nextafter(1.1F, 0.0F), 1.7F, 1.6F), -4);
    EXPECT_EQ(powerUpWith(1.2F, std::nextafter(1.7F, 2.0F), 1.6F), -4);
}

TEST_F(ExactReading, APipeInPlaceOfTheFileIsReadLikeIt) {
    makeSensor(); // which opens the file for itself, and reads nothing from it
    const tcFedPipe pipe("3u5mgxs_sensor.ini", "[Voltages_Max]\nVDD1.2 = 2\n");
    const tcFakeAdc adc([](int channel, bool) { return channel == 0 ? 1.9F : 1.65F; });
    EXPECT_EQ(sensor().powerUp(), 0);
}

TEST_F(ExactReading, AKeyOfTheOtherSectionIsNotTaken) {
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Min]\n"
                                            "VDD1.2 = 1.0\n"
                                            "[Other]\n"
                                            "VDD3.3SVDD_DIV2 = 9\n");
    EXPECT_EQ(powerUpWith(1.0F, 1.65F, 1.65F), 0);
    EXPECT_EQ(powerUpWith(1.4F, 1.65F, 1.65F), -4);
    EXPECT_EQ(powerUpWith(1.2F, 1.65F, 2.0F), -4);
}

TEST_F(ExactReading, TheFileIsReadBeforeTheSuppliesAreMeasured) {
    const tcFakeAdc adc([&](int channel, bool) {
        directory().write("3u5mgxs_sensor.ini", "[Voltages_Max]\nVDD1.2 = 2\n"); // too late
        return channel == 0 ? 1.9F : 1.65F;
    });
    makeSensor();
    EXPECT_EQ(sensor().powerUp(), -4);
    EXPECT_EQ(sensor().powerUp(), 0);
}

TEST_F(ExactReading, TheFileIsReadAnewByEachPowerUp) {
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Max]\nVDD1.2 = 2\n");
    EXPECT_EQ(powerUpWith(1.9F, 1.65F, 1.65F), 0);
    directory().write("3u5mgxs_sensor.ini", "[Voltages_Max]\nVDD1.2 = 1.8\n");
    EXPECT_EQ(powerUpWith(1.9F, 1.65F, 1.65F), -4);
}

// ---- Down

TEST_F(Power, DownPutsTheSensorInResetAndThe12SupplyFirst) {
    makePoweredSensor();
    EXPECT_THAT(trace([&] { sensor().powerDown(); }, sim::tcKinds::all()),
                ElementsAre("NOTE OUT tc3U5MGXS::powerDown: Powering down...", "GPIO RESET_B = 0",
                            "GPIO PS_1.2V_EN = 0", "GPIO PS_3.3SVDD_EN = 0",
                            "GPIO PS_3.3AVDDH_EN = 0", "NOTE OUT Done!\\n"));
    EXPECT_EQ(out().textWithFlushes(),
              "tc3U5MGXS::powerDown: Powering down...<flush>Done!\n<flush>");
    EXPECT_FALSE(head().sensorAlive());
    EXPECT_THAT(head().violations(), IsEmpty());
}

TEST_F(Power, DownOfASensorThatIsOffDoesTheSame) {
    makeSensor();
    EXPECT_THAT(trace([&] { sensor().powerDown(); }, sim::teEventKind::gpio),
                ElementsAre("GPIO RESET_B = 0", "GPIO PS_1.2V_EN = 0", "GPIO PS_3.3SVDD_EN = 0",
                            "GPIO PS_3.3AVDDH_EN = 0"));
}

TEST_F(Power, UpAgainAfterDown) {
    writeSettings();
    makePoweredSensor();
    sensor().powerDown();
    EXPECT_EQ(sensor().powerUp(), 0);
    EXPECT_TRUE(head().sensorAlive());
    EXPECT_THAT(head().violations(), IsEmpty());
}

} // namespace

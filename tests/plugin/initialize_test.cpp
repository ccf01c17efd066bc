// Bringing the head up: in full on a healthy head, without files, and in each of its failing ends.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <thread>

#include <pthread.h>

#include "tests/plugin/core_faults.h"
#include "tests/plugin/plugin_test.h"
#include "tests/support/failing_output.h"
#include "tests/support/fed_pipe.h"

using Varnox::ROI;
using Varnox::tc3U5MGXSSensorBoard;

namespace {

class Initialize : public tcPluginTest {
protected:
    ~Initialize() override { healCores(); }

    /// A board on this head, with the shipped files.
    void makeBoardOn(sim::tcVirtualHeadBuilder& head) {
        useHead(head);
        useShippedFiles();
        makeBoard();
    }
    void makeBoardOn(sim::tcVirtualHeadBuilder&& head) { makeBoardOn(head); }
    void makeBoardWith(const std::string& settings) {
        useHead(aQuickHead().withQuietViolations());
        useShippedFiles();
        directory().write("3u5mgxs_config.ini", "[Settings]\n" + settings);
        makeBoard();
    }

    /// \return the trace of `initialize`, up to the register dump at its end
    std::string initialized(int expectedResult, sim::tcKinds kinds = sim::tcKinds::all()) {
        tsTrace all = trace([&] { EXPECT_EQ(board().initialize(), expectedResult); }, kinds);
        m_dump.clear();
        for (auto line = all.begin(); line != all.end(); ++line) {
            // The dump starts with two loads of the system id.
            if (line->rfind("READ 0xFF200000", 0) == 0) {
                m_dump.assign(line, all.end());
                all.erase(line, all.end());
                break;
            }
        }
        return shown(all);
    }

    tsTrace m_dump;
};

// ---- The steps of a healthy head, numbers from the text and the shipped files

tsTrace suppliesOn() {
    return {
        status(6, "Powering up sensor..."),
        printed("tc3U5MGXS::powerUp: Opening spidev..."),
        printed("tc3U5MGXS::powerUp: Done!\n"),
        printed("tc3U5MGXS::powerUp: Configuring spidev..."),
        "SPI-MODE 0",
        "SPI-LSB 0",
        "SPI-BITS 32",
        "SPI-HZ 10000000",
        printed("tc3U5MGXS::powerUp: Done!\n"),
        printed("tc3U5MGXS::powerUp: toggling power supplies on\n"),
        level("RESET_B", 0),
        level("PS_1.2V_EN", 1),
        slept(1000),
        level("PS_3.3SVDD_EN", 1),
        level("PS_3.3AVDDH_EN", 1),
        slept(1),
        slept(300000),
        level("RESET_B", 1),
        slept(10000),
        printed("tc3U5MGXS::powerUp: Verifying voltages...\n"),
        "ADC-COMMAND 0x8C",
        "ADC 0 0x7AE",
        slept(5000),
        "ADC-COMMAND 0x8C",
        "ADC 0 0x7AE",
        printed("VDD1.2: 1.19995\n"),
        "ADC-COMMAND 0xCC",
        "ADC 1 0xA8F",
        printed("VDD3.3AVDDH_DIV2: 3.29956\n"),
        "ADC-COMMAND 0xAC",
        "ADC 4 0xA8F",
        printed("VDD3.3SVDD_DIV2: 3.29956\n"),
    };
}

tsTrace settingsLoaded() {
    return lines({
        printed("tc3U5MGXS::powerUp: Configuring initial settings 12-bit..."),
        spi(0x10, 0),
        spi(0x20, 5),
        spi(0x50, 0xFFF),
        spi(0x51, 1),
        slept(1000),
        spi(0xB0, 899),
        spi(0x12, 4000),
        spi(0x14, 0x3FFF),
        spi(0x15, 0x3FFF),
        spi(0x16, 0xF9C),
        spi(0x19, 0xAEE),
        spi(0x1A, 0),
        spi(0x1B, 0xF9E),
        spi(0x1C, 0x3FFF),
        spi(0x3B, 0x3FFF),
        spi(0x40, 0),
        spi(0x41, 0),
        spi(0x42, 0),
        spi(0x6C, 0),
        spi(0x6D, 0),
        spi(0x90, 0),
        areasReset(),
        spi(0xD8, 0x2D90F),
        slept(10000),
        spi(0x201, 0),
        spi(0x300, 0),
        printed("tc3U5MGXS::powerUp: Done!\n"),
        spi(0x10, 0),
    });
}

tsTrace badPixelCoreReady() {
    return {
        load(0xFF215200, 0x42505231), store(0xFF215000, 0),          store(0xFF215014, 0x12000000),
        store(0xFF215008, 0),         store(0xFF21500C, 0x08080A20), store(0xFF215010, 0),
        store(0xFF212000, 1),         store(0xFF215000, 1),
    };
}

/// \param pulses word 0 of the pulse generator, before
tsTrace fpgaReady(std::uint32_t pulses = 0) {
    return lines({
        status(6, "Initializing FPGA..."),
        badPixelCoreReady(),
        store(0xFF210008, 0x5D9),
        load(0xFF211000, pulses),
        store(0xFF211000, 0x00000001),
        store(0xFF211008, 10),
        store(0xFF211004, 1200000), // 30 Hz by 36 MHz
        status(6, "FPGA Initialization done"),
        spi(0xD8, 0x2D90F),
    });
}

tsTrace intervalRestored() {
    return lines({
        frameLength(99900, 3996),
        exposure({30000, 3994, 3992, 2794, 30000}),
        store(0xFF211004, 3596400),
    });
}

/// What the region's rows come to with a binning factor.
struct tsRows {
    int last;
    std::uint32_t word; // of the sensor's area register
    int readout;        // us
};

tsTrace regionRestored(const tsRows& rows = {2055, 0x201800, 27100}) {
    const std::string readout = std::to_string(rows.readout);
    return lines({
        printed("programMultipleROI [y: 0, x: 0, width: 2592, height: 2056]\n"),
        areasReset(),
        printed("setROIArea Num: 0 RowS: 0 RowE: " + std::to_string(rows.last) +
                " ColS: 0 ColE: 2591\n"),
        spi(0x94, rows.word),
        spi(0x95, 0x1AF000),
        printed("getExposure: 30000\n"),
        exposure({30000, 3994, 3992, 2794, 30000}),
        intervalRestored(),
        printed("image[y: 0, x: 0, width: 2592, height: 2056]\n"),
        store(0xFF210020, 0x08080A20),
        store(0xFF210018, 0x040401B0),
        store(0xFF210024, 0),
        printed("getFrameReadoutTime(): " + readout + " uS\n"),
        printed("getFrameReadoutTime(): " + readout + " uS\n"),
        word(0x3C020, static_cast<std::uint32_t>(rows.readout)),
    });
}

tsTrace imagePublished() {
    return {
        word(0x3A008, 2592),
        word(0x3A00C, 2056),
        word(0x3A010, 0),
        word(0x3A014, 0),
    };
}

/// \param control word 0 of the frame-control core, before
tsTrace mirrored(std::uint32_t control = 0) {
    return {
        spi(0x90, 0x20000), spi(0x6C, 8), load(0xFF210000, control), store(0xFF210000, control | 2),
        spi(0x90, 0x30000), spi(0x6D, 1),
    };
}

tsTrace lanesAndPulsesOn() {
    return {
        spi(0x10, 4),
        load(0xFF211000, 0x00000001),
        store(0xFF211000, 0x80000001),
    };
}

/// The pulses first: the other way round than after a change of the clock.
tsTrace pulsesThenLanesOff() {
    return {
        load(0xFF211000, 0x80000001),
        store(0xFF211000, 0x00000001),
        spi(0x10, 0),
    };
}

tsTrace badPixelMapLoaded() {
    return {
        store(0xFF213000, 0x00C80064), // y 200, x 100
        store(0xFF213004, 0x0403050F), // y 1027, x 1295
        store(0xFF213008, 0x08070A1F), // y 2055, x 2591
        store(0xFF215010, 3),          store(0xFF212000, 1),  store(0xFF215008, 0),
        store(0xFF21500C, 0x08080A20), load(0xFF215000, 0x1), store(0xFF215000, 0x1),
    };
}

tsTrace depthSet() {
    return {
        status(6, "setBPP: 0"),
        load(0xFF217000, 0x80000000), // held until a capture starts
        store(0xFF217000, 0x80000000),
        packing(2),
    };
}

tsTrace statePublished() {
    return {
        word(0x3A020, 0x01080001),
        word(0x3B00C, 1),
        word(0x3D000, 0),
        word(0x3D004, 0),
    };
}

std::string statusLine(int aligned, int locked, int rgLocked, int gbLocked) {
    return printed("Status: Aligned " + std::to_string(aligned) + " Locked " +
                   std::to_string(locked) + " rgLocked " + std::to_string(rgLocked) + " gbLocked " +
                   std::to_string(gbLocked) + "\n");
}

tsTrace statusLoads(std::uint32_t value) {
    return tsTrace(4, load(0xFF210004, value));
}

std::string triesLine(int tries) {
    return printed(" tries: " + std::to_string(tries) + "\n");
}

tsTrace coreEnabled() {
    return {load(0xFF210000, 0x00000002), store(0xFF210000, 0x80000002)};
}

tsTrace dpaReset() {
    return {
        store(0xFF21002C, 0),
        store(0xFF210028, 0xFFF),
        store(0xFF210028, 0xFFF000),
        store(0xFF210028, 0),
    };
}

/// The trace of an `initialize` that is not the first.
/// \param control word 0 of the frame-control core, before
std::string repeated(const tsRows& rows, std::uint32_t control) {
    return text({
        suppliesOn(),
        settingsLoaded(),
        fpgaReady(0x00000001),
        intervalRestored(),
        regionRestored(rows),
        spi(0x90, 0),
        imagePublished(),
        mirrored(control),
        lanesAndPulsesOn(),
        quickLink(control | 2, true),
        pulsesThenLanesOff(),
        badPixelMapLoaded(),
        depthSet(),
        statePublished(),
    });
}

} // namespace

// ---- A healthy head

TEST_F(Initialize, AHealthyHeadWithTheShippedFiles) {
    makeBoardOn(aQuickHead().withSystemId(0x1234, 0x10));
    EXPECT_EQ(initialized(0), text({
                                  suppliesOn(),
                                  settingsLoaded(),
                                  fpgaReady(),
                                  intervalRestored(),
                                  regionRestored(),
                                  spi(0x90, 0),
                                  imagePublished(),
                                  mirrored(),
                                  lanesAndPulsesOn(),
                                  quickLink(0x00000002),
                                  pulsesThenLanesOff(),
                                  badPixelMapLoaded(),
                                  depthSet(),
                                  statePublished(),
                              }));
    EXPECT_TRUE(head().violations().empty());
    EXPECT_FALSE(board().isCapturing());
    EXPECT_EQ(board().getExposure(), 30000);
    EXPECT_EQ(board().getFrameInterval(), 99900);
    EXPECT_EQ(board().numberOfRegions, 1);
}

TEST_F(Initialize, TheRegistersAreDumpedAtTheEnd) {
    makeBoardOn(aQuickHead().withSystemId(0x1234, 0x10));
    initialized(0);
    tsTrace frameControl; // behind it stand the dumps of the host library's cores
    for (const std::string& line : m_dump) {
        frameControl.push_back(line);
        if (line.rfind(printed("DPA Lock:"), 0) == 0) {
            break;
        }
    }
    const std::uint32_t id = head().fpgaWord(0xFF210200);
    const std::uint32_t revision = head().fpgaWord(0xFF210204);
    const std::uint32_t capabilities = head().fpgaWord(0xFF210208);
    const auto hexadecimal = [](std::uint32_t value) {
        std::array<char, 9> text{};
        std::snprintf(text.data(), text.size(), "%x", value);
        return std::string(text.data());
    };
    const std::uint32_t flags = head().fpgaWord(0xFF210010);
    EXPECT_EQ(shown(frameControl), text({
                                       load(0xFF200000, 0x1234),
                                       load(0xFF200004, 0x10),
                                       printed("Fpga sys id: 1234.10\n"),
                                       load(0xFF204300, 0x0F0F),
                                       printed("Pll 0xC0 = 0xf0f\n"),
                                       printed("FPGA register dump\n"),
                                       load(0xFF210000, 0x80000002),
                                       printed("Core enabled:\t1\n"),
                                       load(0xFF210200, id),
                                       printed("Core ID:\t0x" + hexadecimal(id) + "\n"),
                                       load(0xFF210204, revision),
                                       printed("Core Rev:\t0x" + hexadecimal(revision) + "\n"),
                                       load(0xFF210208, capabilities),
                                       printed("Core Caps:\t0x" + hexadecimal(capabilities) + "\n"),
                                       statusLoads(0), // the sensor's lanes are off again
                                       statusLine(0, 0, 0, 0),
                                       load(0xFF210008, 0x5D9),
                                       printed("Lane Inversion:\t0x5d9\n"),
                                       load(0xFF210010, flags),
                                       printed("Irq Flags:\t0x" + hexadecimal(flags) + "\n"),
                                       load(0xFF210014, 0),
                                       printed("Irq Mask:\t0x0\n"),
                                       load(0xFF210018, 0x040401B0),
                                       printed("Roi Res Cnt Cfg:\tH: 2056 W: 2592\n"),
                                       load(0xFF210020, 0x08080A20),
                                       printed("Resol Cfg:\tH: 2056 W: 2592\n"),
                                       load(0xFF210024, 0),
                                       printed("ROI Cfg:\tx: 0 y: 0\n"),
                                       load(0xFF21003C, 0),
                                       printed("BP Cfg:\tx: 0 y: 0\n"),
                                       load(0xFF210028, 0),
                                       printed("DPA Reset:\t0x0\n"),
                                       load(0xFF210028, 0),
                                       printed("DPA Fifo Reset:\t0x0\n"),
                                       load(0xFF21002C, 0xFFF),
                                       printed("DPA Hold:\t0xfff\n"),
                                       load(0xFF210030, 0xFFF),
                                       printed("DPA Lock:\t0xfff\n"),
                                   }));
    EXPECT_THAT(out().text(), testing::ContainsRegex("DPA Lock:\t0xfff\ntcPwm at 0xFF211000: .*\n"
                                                     "tcBadPixelReplacement at 0xFF215000: .*\n$"));
}

TEST_F(Initialize, AHeadThatTakesItsTimeToLock) {
    makeBoardOn(sim::aVirtualHead());
    const std::string all = initialized(0);
    const std::string link = text({
        lanesAndPulsesOn(),
        coreEnabled(),
        statusLoads(0),
        statusLine(0, 0, 0, 0),
        triesLine(0),
        slept(10000),
        statusLoads(0x7),
        statusLine(0, 1, 1, 1),
        dpaReset(),
        load(0xFF210030, 0),
        printed("DPA Lock: 0 tries: 0\n"),
        slept(10000),
        load(0xFF210030, 0xFFF),
        printed("DPA Lock: fff\n"),
        store(0xFF210028, 0),
        store(0xFF21002C, 0xFFF),
        statusLoads(0x7),
        statusLine(0, 1, 1, 1),
        triesLine(0),
        slept(40000),
        statusLoads(0xF),
        statusLine(1, 1, 1, 1),
        pulsesThenLanesOff(),
        badPixelMapLoaded(),
    });
    EXPECT_THAT(all, testing::HasSubstr(link));
    EXPECT_TRUE(head().violations().empty());
}

TEST_F(Initialize, MayBeRepeated) {
    makeReadyBoard();
    ASSERT_EQ(board().setROI({10, 24, 240, 20}), 0);
    ASSERT_EQ(board().setExposure(10000), 0);
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(board().getROI(), (ROI{0, 0, 2592, 2056}));
    EXPECT_EQ(board().getExposure(), 30000);
}

TEST_F(Initialize, ARepeatedOneKeepsWhatTheFileDoesNotSet) {
    makeReadyBoard();
    board().setInternalExposureMode(false);
    ASSERT_EQ(board().setTestPattern(Varnox::eTestPatternSensorFirst), 0);
    ASSERT_EQ(board().setVerticalBin(2), 0);
    ASSERT_EQ(board().setMirroring(false, false), 0);
    // The region still comes with the old factor: 2055 pairs of rows and 57 lines more make 2112
    // lines of 25 us.
    EXPECT_EQ(initialized(0), repeated({4110, 0x3800, 52800}, 0x80000000));
    EXPECT_FALSE(board().getInternalExposureMode());
    EXPECT_EQ(board().getTestPattern(), 16);
    EXPECT_EQ(head().sensorState().testPattern, 0U); // the settings file's
    EXPECT_EQ(board().getTrigger(), 0);
    // The factor of the file is the one of the next region.
    EXPECT_FALSE(head().sensorState().binned);
    board().setROI({0, 0, 2592, 2056});
    EXPECT_EQ(head().sensorRegister(0x94), 0x201800U);
}

// Meant: a host that wants its triggers back sets them again.
TEST_F(Initialize, ARepeatedOneUnderAnExternalTriggerLeavesTheSensorToItsOwnFrames) {
    makeReadyBoard();
    ASSERT_EQ(board().setTrigger(Varnox::eTriggerExternal), 0);
    ASSERT_EQ(head().sensorRegister(0x10), 0x300U);
    // The settings file puts the sensor in frame-control mode 0, and no step applies the trigger.
    EXPECT_EQ(initialized(0), repeated({2055, 0x201800, 27100}, 0x80000002));
    EXPECT_EQ(board().getTrigger(), 1);
    EXPECT_TRUE(board().getInternalExposureMode());
    EXPECT_EQ(head().line("EXT_TRIG_EN"), 1);
    EXPECT_EQ(head().sensorRegister(0x10), 0U);
}

TEST_F(Initialize, WhatTheSensorHoldsIsWhatTheDriverThinks) {
    makeReadyBoard();
    std::map<std::uint16_t, std::uint32_t> shadow;
    for (int reg = 0; reg < 0x10000; ++reg) {
        int value = 0;
        if (board().peek(reg, &value) == 0) {
            shadow[static_cast<std::uint16_t>(reg)] = static_cast<std::uint32_t>(value);
        }
    }
    EXPECT_GT(shadow.size(), 30U);
    EXPECT_TRUE(head().compareShadow(shadow).empty());
}

TEST_F(Initialize, PublishesWhatSensorAndDriverHold) {
    useHead(aQuickHead());
    useShippedFiles();
    makeBoard();
    directory().write("3U5MGXS_12bit.txt", "B0 383\n42 2\n");
    board().setExposureMode(tc3U5MGXS::eExposureDual);
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(registerFile().read_word(0x3D000), 1U);
    EXPECT_EQ(registerFile().read_word(0x3D004), 2U);
    EXPECT_EQ(registerFile().read_word(0x3A020), 17301505U);
    EXPECT_EQ(registerFile().read_word(0x3B00C), 1U);
}

TEST_F(Initialize, GoesBackToOneRegion) {
    useHead(aQuickHead());
    useShippedFiles();
    makeBoard();
    board().numberOfRegions = 5;
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(board().numberOfRegions, 1);
}

TEST_F(Initialize, StandardOutputIsLeftInDecimalAndOtherwiseAsItWasFound) {
    useHead(aQuickHead());
    useShippedFiles();
    makeBoard();
    std::cout.flags(std::ios::hex | std::ios::showbase | std::ios::left | std::ios::scientific);
    std::cout.precision(3);
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(std::cout.flags(),
              std::ios::dec | std::ios::showbase | std::ios::left | std::ios::scientific);
    EXPECT_EQ(std::cout.precision(6), 3);
    std::cout.flags(std::ios::dec | std::ios::skipws);
    EXPECT_THAT(out().text(), testing::HasSubstr("VDD1.2: 1.19995\n"));
    EXPECT_THAT(out().text(), testing::HasSubstr("getExposure: 30000\n"));
}

// ---- Settings

TEST_F(Initialize, WithoutAnyFile) {
    // No register is known: lines of one clock, and the defaults of every key.
    useHead(aQuickHead().withQuietViolations());
    makeBoard();
    const auto applied = [](int asked) {
        return asked == 30000 ? exposure({30000, 16381, 16379, 0, 455, 1080000, -1, 0})
                              : exposure({asked, 16381, 16379, 1, 455, -1, -1, 0});
    };
    EXPECT_EQ(
        initialized(0, kWithoutViolations | sim::teEventKind::spiSetting),
        text({
            suppliesOn(),
            printed("tc3U5MGXS::powerUp: Configuring initial settings 12-bit..."),
            printed("tc3U5MGXS::powerUp: Done!\n"),
            spi(0x10, 0),
            fpgaReady(),
            frameLength(100000, 16383),
            applied(30000),
            store(0xFF211004, 3600000),
            printed("programMultipleROI [y: 0, x: 0, width: 2592, height: 2056]\n"),
            areasReset(),
            printed("setROIArea Num: 0 RowS: 0 RowE: 2055 ColS: 0 ColE: 2591\n"),
            spi(0x94, 0x201800),
            spi(0x95, 0x1AF000),
            printed("getExposure: 455\n"),
            applied(455),
            frameLength(100000, 16383),
            applied(455),
            store(0xFF211004, 3600000),
            printed("image[y: 0, x: 0, width: 2592, height: 2056]\n"),
            store(0xFF210020, 0x08080A20),
            store(0xFF210018, 0x040401B0),
            store(0xFF210024, 0),
            printed("getFrameReadoutTime(): 30 uS\n"), // 1084 lines by 36 MHz
            printed("getFrameReadoutTime(): 30 uS\n"),
            word(0x3C020, 30),
            spi(0x90, 0),
            imagePublished(),
            mirrored(),
            lanesAndPulsesOn(),
            quickLink(0x00000002),
            pulsesThenLanesOff(),
            complained("tcBadPixelReplacement: setData: text (no readable file of that name), "
                       "line 1: \"bad_pixel_map.txt\" is not a pixel \"X Y\"; the map in force "
                       "stays\n"),
            store(0xFF215008, 0),
            store(0xFF21500C, 0x08080A20),
            load(0xFF215000, 0x1),
            store(0xFF215000, 0x1),
            depthSet(),
            statePublished(),
        }));
}

TEST_F(Initialize, EveryKeyIsReadAnewEachTime) {
    const auto has = [&](std::uint32_t lanes, const ROI& roi, int exposureTime, int interval,
                         bool binned) {
        EXPECT_EQ(head().fpgaWord(0xFF210008), lanes);
        EXPECT_EQ(board().getROI(), roi);
        EXPECT_EQ(board().getExposure(), exposureTime);
        EXPECT_EQ(board().getFrameInterval(), interval);
        EXPECT_EQ(head().sensorState().binned, binned);
    };
    makeBoardWith("LaneInvertMask = 0xA26\nRoiX = 24\nRoiY = 10\nRoiWidth = 240\n"
                  "RoiHeight = 20\nExposureTime = 10000\nFrameInterval = 45000\nVerticalBin = 2\n");
    EXPECT_EQ(board().initialize(), -2); // the head's lanes are inverted otherwise
    has(0xA26, {10, 24, 240, 20}, 10000, 45000, true);

    directory().write("3u5mgxs_config.ini",
                      "[Settings]\nLaneInvertMask = 0x5D9\nRoiX = 48\nRoiY = 30\nRoiWidth = 480\n"
                      "RoiHeight = 40\nExposureTime = 5000\nFrameInterval = 54000\n"
                      "VerticalBin = 1\n");
    EXPECT_EQ(board().initialize(), 0);
    has(0x5D9, {30, 48, 480, 40}, 5000, 54000, false);

    std::filesystem::remove("3u5mgxs_config.ini");
    EXPECT_EQ(board().initialize(), 0);
    has(0x5D9, {0, 0, 2592, 2056}, 30000, 99900, false);
}

TEST_F(Initialize, KeysOfOtherSectionsAreNotRead) {
    makeBoardWith("[Other]\nRoiX = 24\nRoiWidth = 240\nFrameInterval = 45000\n");
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(board().getROI(), (ROI{0, 0, 2592, 2056}));
    EXPECT_EQ(board().getFrameInterval(), 99900);
}

TEST_F(Initialize, TheExposureIsStoredBeforeTheIntervalProgramsIt) {
    makeBoardWith("ExposureTime = 60000\nFrameInterval = 45000\n");
    const std::string all = initialized(0);
    EXPECT_THAT(all, testing::HasSubstr(text({
                         spi(0xD8, 0x2D90F),
                         frameLength(45000, 1800),
                         status(6, "setFrameInterval: Exposure higher than frame interval. "
                                   "Interval 45000 uS, Exposure 60000 uS"),
                         exposure({45000, 1798, 1796, 0, 44950, 1800}),
                         store(0xFF211004, 1620000),
                     })));
}

TEST_F(Initialize, LaneInvertMaskIsUnsigned) {
    makeBoardWith("LaneInvertMask = 0xFFFFF5D9\n"); // its lower twelve bits are the wiring
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(head().fpgaWord(0xFF210008), 0x5D9U);
}

TEST_F(Initialize, LaneInvertMaskOfAllOnesComesThrough) {
    makeBoardWith("LaneInvertMask = 0xFFFFFFFF\n");
    initialized(-2);
    EXPECT_EQ(head().fpgaWord(0xFF210008), 0xFFFU);
    destroyBoard();
    makeBoardWith("LaneInvertMask = 1497\n"); // decimal
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(head().fpgaWord(0xFF210008), 0x5D9U);
}

TEST_F(Initialize, WhatIsNoNumberCountsAsMissing) {
    makeBoardWith("LaneInvertMask = x\nRoiX = left\nExposureTime = long\nFrameInterval =\n");
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(board().getROI(), (ROI{0, 0, 2592, 2056}));
    EXPECT_EQ(board().getExposure(), 30000);
    EXPECT_EQ(board().getFrameInterval(), 99900);
}

TEST_F(Initialize, APipeInPlaceOfItsFileIsReadLikeIt) {
    makeBoardWith("");
    std::filesystem::remove("3u5mgxs_config.ini");
    const tcFedPipe pipe("3u5mgxs_config.ini", "[Settings]\nFrameInterval = 45000\n");
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(board().getFrameInterval(), 45000);
}

// As the target's INI library has it, on every machine.
TEST_F(Initialize, NumbersBeyond32BitsAreTheLargest) {
    makeBoardWith("FrameInterval = 45000\nExposureTime = 4294977296\nRoiX = 4294967320\n"
                  "RoiWidth = 240\n");
    const std::string all = initialized(0);
    // 10000 and 24, had they been narrowed.
    EXPECT_THAT(all, testing::HasSubstr(text({
                         status(6, "setFrameInterval: Exposure higher than frame interval. "
                                   "Interval 45000 uS, Exposure 2147483647 uS"),
                         exposure({45000, 1798, 1796, 0, 44950, 1800}),
                     })));
    EXPECT_THAT(all, testing::HasSubstr(status(-1, "ROI not valid")));
    EXPECT_EQ(board().getROI(), (ROI{0, 0, 2592, 2056}));
}

TEST_F(Initialize, AnIntervalBeyond32BitsIsTheLargestAndRefused) {
    makeBoardWith("FrameInterval = 4295012296\n"); // 45000, had it been narrowed
    const std::string all = initialized(0);
    // 2147483647 rounded down to lines of 900 clocks, at 36 MHz.
    EXPECT_THAT(all, testing::HasSubstr(
                         status(4, "tcPwm at 0xFF211000: a period of 2147482800 us is 77309380800 "
                                   "clocks; it takes 2 to 4294967295")));
}

TEST_F(Initialize, ARefusedRegionDoesNotEndItAndReachesTheBadPixelCore) {
    makeBoardWith("RoiX = 12\nRoiWidth = 240\n");
    const std::string all = initialized(0);
    EXPECT_THAT(all, testing::HasSubstr(text({
                         intervalRestored(),
                         status(-1, "ROI not valid"),
                     })));
    EXPECT_EQ(board().getROI(), (ROI{0, 0, 2592, 2056}));
    EXPECT_THAT(all, testing::HasSubstr(text({
                         store(0xFF215008, 0x0000000C),
                         store(0xFF21500C, 0x080800F0),
                     })));
}

TEST_F(Initialize, ARefusedIntervalDoesNotEndIt) {
    makeBoardWith("FrameInterval = 0\n");
    const std::string all = initialized(0);
    EXPECT_THAT(all, testing::HasSubstr(
                         status(4, "tcPwm at 0xFF211000: a period of 0 us is 0 clocks; it takes 2 "
                                   "to 4294967295")));
    EXPECT_EQ(board().getFrameInterval(), 27000); // raised to the readout of the region
}

TEST_F(Initialize, ARefusedExposureDoesNotEndIt) {
    makeBoardWith("FrameInterval = 20000\n");
    board().setExposureMode(tc3U5MGXS::eExposureRolling); // has no exposure arithmetic: 4
    // Nothing was ever applied.
    const auto refused = [](int asked) {
        return tsTrace{status(6, "setExposure " + std::to_string(asked) + " uS"), word(0x3A004, 0),
                       status(6, "setExposure updated to 0 uS")};
    };
    const std::string all = initialized(0);
    EXPECT_THAT(
        all,
        testing::HasSubstr(text({
            frameLength(19800, 792),
            status(6, "setFrameInterval: Exposure higher than frame interval. Interval 19800 uS, "
                      "Exposure 30000 uS"),
            refused(19800),
            store(0xFF211004, 712800),
            printed("programMultipleROI [y: 0, x: 0, width: 2592, height: 2056]\n"),
            areasReset(),
            printed("setROIArea Num: 0 RowS: 0 RowE: 2055 ColS: 0 ColE: 2591\n"),
            spi(0x94, 0x201800),
            spi(0x95, 0x1AF000),
            printed("getExposure: 0\n"),
            refused(0),
            frameLength(19800, 792),
            refused(0),
            store(0xFF211004, 712800),
            printed("image[y: 0, x: 0, width: 2592, height: 2056]\n"),
            store(0xFF210020, 0x08080A20),
            store(0xFF210018, 0x040401B0),
            store(0xFF210024, 0),
            printed("getFrameReadoutTime(): 27100 uS\n"),
            frameLength(27000, 1080), // raised, and refused once more
            refused(0),
            store(0xFF211004, 972000),
            word(0x3A000, 27000),
            printed("getFrameReadoutTime(): 27100 uS\n"),
            word(0x3C020, 27100),
            spi(0x90, 0),
        })));
}

TEST_F(Initialize, ARefusedBinningDoesNotEndIt) {
    makeBoardWith("VerticalBin = 3\n");
    const std::string all = initialized(0);
    EXPECT_THAT(all, testing::HasSubstr(text({
                         word(0x3C020, 27100),
                         mirrored(), // nothing of the binning in between
                     })));
}

// ---- Power-up fails

TEST_F(Initialize, ASupplyOutOfLimits) {
    makeBoardOn(aQuickHead().withRail("VDD1.2", 1.4));
    tsTrace expected = suppliesOn();
    // 1.4 V by 2.5 V in 4096 steps: 2293.76, rounded
    expected[21] = "ADC 0 0x8F6";
    expected[24] = "ADC 0 0x8F6";
    expected[25] = printed("VDD1.2: 1.40015\n");
    EXPECT_EQ(initialized(-4), text({
                                   expected,
                                   status(4, "Sensor powerup error!"),
                               }));
    EXPECT_TRUE(m_dump.empty());
    EXPECT_EQ(head().line("PS_1.2V_EN"), 1);
}

TEST_F(Initialize, WithoutSpiDevice) {
    makeBoardOn(aQuickHead().withoutSpiDevice());
    EXPECT_EQ(initialized(6), text({
                                  status(6, "Powering up sensor..."),
                                  printed("tc3U5MGXS::powerUp: Opening spidev..."),
                                  printed("tc3U5MGXS::powerUp: Done!\n"),
                                  printed("tc3U5MGXS::powerUp: Configuring spidev..."),
                                  status(4, "Failed to open spidev"),
                                  status(4, "Sensor powerup error!"),
                              }));
}

TEST_F(Initialize, SpiSettingsRefused) {
    makeBoardOn(aQuickHead().withSpiSettingsRefused());
    EXPECT_EQ(initialized(1, sim::teEventKind::note | sim::kHardwareEvents),
              text({
                  status(6, "Powering up sensor..."),
                  printed("tc3U5MGXS::powerUp: Opening spidev..."),
                  printed("tc3U5MGXS::powerUp: Done!\n"),
                  printed("tc3U5MGXS::powerUp: Configuring spidev..."),
                  complained("tcSPIDevice: /dev/spidev1.0: SPI_IOC_WR_MODE: Invalid argument "
                             "(errno 22)\n"),
                  status(4, "Sensor powerup error!"),
              }));
}

TEST_F(Initialize, AMalformedSettingsFile) {
    makeBoardOn(aQuickHead());
    directory().write("3U5MGXS_12bit.txt", "# settings\n10 0\n #20 5\n50 FFF\n");
    EXPECT_EQ(initialized(6),
              text({
                  suppliesOn(),
                  printed("tc3U5MGXS::powerUp: Configuring initial settings 12-bit..."),
                  spi(0x10, 0),
                  complained("\nError writing registers: 3U5MGXS_12bit.txt 3:  #20 5\n"),
                  complained("eof: 0 good: 0 fail: 1 bad: 0\n"),
                  status(4, "std::exception"),
                  status(4, "Sensor powerup error!"),
              }));
    // A file that was mended is taken at the next attempt.
    useShippedFiles();
    EXPECT_EQ(board().initialize(), 0);
}

// ---- The FPGA fails

TEST_F(Initialize, EachCoreThatIsNotReadyHasItsBit) {
    const auto failing = [&](sim::tcVirtualHeadBuilder& head, int mask, bool badPixelReady) {
        destroyBoard();
        makeBoardOn(head.withQuietViolations());
        EXPECT_EQ(initialized(mask), text({
                                         suppliesOn(),
                                         settingsLoaded(),
                                         status(6, "Initializing FPGA..."),
                                         badPixelReady ? badPixelCoreReady() : tsTrace{},
                                         status(4, "FPGA Initialization error!"),
                                     }))
            << mask;
        EXPECT_TRUE(m_dump.empty());
    };
    failing(aQuickHead().withMapFailing(0xFF200000, ENOMEM), 0x01, true);
    failing(aQuickHead().withMapFailing(0xFF210000, ENOMEM), 0x02, true);
    failing(aQuickHead().withMapFailing(0xFF211000, ENOMEM), 0x04, true);
    failing(aQuickHead().withSilentCore(sim::teCore::pwm), 0x04, true);
    failing(aQuickHead().withMapFailing(0xFF217000, ENOMEM), 0x08, true);
    failing(aQuickHead().withSilentCore(sim::teCore::pixelShift), 0x08, true);
    failing(aQuickHead().withMapFailing(0xFF212000, ENOMEM), 0x10, false);
    failing(aQuickHead().withMapFailing(0xFF213000, ENOMEM), 0x10, false);
    failing(aQuickHead().withMapFailing(0xFF215000, ENOMEM), 0x10, false);
    failing(aQuickHead().withMemOpenFailing(EACCES), 0x1F, false);
    failing(aQuickHead().withSilentCore(sim::teCore::pixelShift).withMapFailing(0xFF200000, ENOMEM),
            0x09, true);
}

TEST_F(Initialize, ASilentBadPixelCore) {
    makeBoardOn(aQuickHead().withSilentCore(sim::teCore::badPixel));
    EXPECT_EQ(initialized(0x10), text({
                                     suppliesOn(),
                                     settingsLoaded(),
                                     status(6, "Initializing FPGA..."),
                                     load(0xFF215200, 0),
                                     status(4, "FPGA Initialization error!"),
                                 }));
}

TEST_F(Initialize, MappingFailuresAreReportedAtConstruction) {
    makeBoardOn(aQuickHead().withMapFailing(0xFF210000, ENOMEM));
    EXPECT_EQ(board().initialize(), 2);
}

// ---- The pulse generator throws

TEST_F(Initialize, TheFirstExceptionOfThePulseGeneratorSkipsTheRestOfItsSettings) {
    const auto settings = [&](const std::string& operation, const tsTrace& done) {
        healCores();
        destroyBoard();
        makeBoardOn(aQuickHead().withQuietViolations());
        failCore(operation, "no " + operation);
        const std::string all = initialized(0);
        EXPECT_THAT(all, testing::HasSubstr(text({
                             store(0xFF210008, 0x5D9),
                             done,
                             status(4, "no " + operation),
                             status(6, "FPGA Initialization done"),
                             spi(0xD8, 0x2D90F),
                         })))
            << operation;
    };
    settings("tcPwm::setInvertPulse", {});
    settings("tcPwm::setDutyClks", {load(0xFF211000, 0), store(0xFF211000, 0x00000001)});
    settings("tcPwm::setPeriodFreq",
             {load(0xFF211000, 0), store(0xFF211000, 0x00000001), store(0xFF211008, 10)});
}

TEST_F(Initialize, PulsesThatCannotBeSwitchedAreReportedAndDoNotEndIt) {
    makeBoardOn(aQuickHead().withQuietViolations());
    failCore("tcPwm::enableCore", "no pulses");
    const std::string all = initialized(-1); // without frame starts the sensor does not send
    EXPECT_THAT(all, testing::HasSubstr(text({
                         spi(0x10, 4),
                         status(4, "no pulses"),
                         coreEnabled(),
                     })));
    EXPECT_THAT(all, testing::HasSubstr(text({
                         complained("PLL failed to lock\n"),
                         status(4, "no pulses"),
                         spi(0x10, 0),
                         depthSet(),
                         statePublished(),
                     })));
}

// ---- Link training throws

TEST_F(Initialize, ATrainingThatThrowsEndsAsALinkThatDidNotComeUp) {
    const auto endsWith = [&](const std::function<void()>& fail, const std::string& told) {
        destroyBoard();
        makeBoardOn(aQuickHead());
        std::string all;
        {
            const tcFailingOutput output(std::cout, "DPA Lock", fail);
            all = initialized(6);
        }
        EXPECT_THAT(all, testing::HasSubstr(text({
                             store(0xFF210028, 0x00000000), // the lanes are being trained
                             load(0xFF210030, 0x00000FFF),
                             status(4, told),
                             pulsesThenLanesOff(),
                             depthSet(),
                             statePublished(),
                         })));
        EXPECT_THAT(all, testing::EndsWith(shown(statePublished())));
        // The dump stays away, as the stream stays broken.
        EXPECT_EQ(head().lines(sim::teEventKind::note).back(),
                  status(4, "basic_ios::clear: iostream error"));
        EXPECT_EQ(head().fpgaWord(0xFF211000) >> 31, 0U);
        EXPECT_EQ(head().sensorRegisters().at(0x10) & 7U, 0U);
        EXPECT_EQ(board().initialize(), 0);
    };
    endsWith([] { throw std::runtime_error("no room"); }, "no room");
    endsWith([] { throw 42; }, "unknown exception");
}

// ---- Other cores of another host library throw

TEST_F(Initialize, ABadPixelCoreThatThrowsIsReportedAndDoesNotEndIt) {
    makeBoardOn(aQuickHead());
    failCore("tcBadPixelReplacement::setData", "no table");
    const std::string all = initialized(0);
    EXPECT_THAT(all, testing::HasSubstr(text({
                         pulsesThenLanesOff(),
                         status(4, "no table"),
                         depthSet(),
                         statePublished(),
                     })));
}

TEST_F(Initialize, ADumpThatThrowsIsReportedAndLeavesTheResult) {
    makeBoardOn(aQuickHead());
    failCore("tcPwm::dumpRegisters", "no dump");
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(head().lines(sim::teEventKind::note).back(), status(4, "no dump"));
}

TEST_F(Initialize, ACoreThatThrowsWhileItIsSetUpEndsItWithSix) {
    makeBoardOn(aQuickHead());
    failCore("tcBadPixelReplacement::initialize", "no core");
    EXPECT_EQ(initialized(6), text({
                                  suppliesOn(),
                                  settingsLoaded(),
                                  status(6, "Initializing FPGA..."),
                                  status(4, "no core"),
                              }));
}

TEST_F(Initialize, WhateverIsThrownNothingLeaves) {
    makeBoardOn(aQuickHead());
    failCoreStrangely("tcBadPixelReplacement::initialize");
    EXPECT_EQ(board().initialize(), 6);
    healCores();

    // A host whose own listener throws, at every line.
    board().setStatusListener([](int, const std::string&) { throw std::runtime_error("full"); });
    EXPECT_EQ(board().initialize(), 6);
    board().setStatusListener([](int, const std::string&) { throw 42; });
    EXPECT_EQ(board().initialize(), 6);
    board().setStatusListener({});
    EXPECT_EQ(board().initialize(), 0);
}

TEST_F(Initialize, AForeignExceptionOfACoreIsReportedAndDoesNotEndIt) {
    makeBoardOn(aQuickHead());
    failCoreStrangely("tcBadPixelReplacement::setData");
    failCoreStrangely("tcPwm::dumpRegisters");
    const std::string all = initialized(0);
    EXPECT_THAT(all, testing::HasSubstr(text({
                         pulsesThenLanesOff(),
                         status(4, "unknown exception"),
                         depthSet(),
                         statePublished(),
                     })));
    EXPECT_EQ(head().lines(sim::teEventKind::note).back(), status(4, "unknown exception"));
}

TEST_F(Initialize, AHostThatEndsItsThreadInsideACoreIsNotHeldUp) {
    makeBoardOn(aQuickHead());
    endThreadInCore("tcBadPixelReplacement::setData");
    std::thread host([this] {
        board().initialize();
        ADD_FAILURE() << "the thread went on";
    });
    host.join();
    EXPECT_EQ(head().lines(sim::teEventKind::spi).back(), spi(0x10, 0)); // the link is up
    EXPECT_THAT(head().lines(sim::teEventKind::note),
                testing::Not(testing::Contains(testing::StartsWith("NOTE STATUS 4"))));
}

TEST_F(Initialize, AHostThatEndsItsThreadWhenItHearsOfAFailureIsNotHeldUp) {
    makeBoardOn(aQuickHead());
    failCore("tcBadPixelReplacement::setData", "no table");
    board().setStatusListener([](int level, const std::string&) {
        if (level == Varnox::eStatusError) {
            pthread_exit(nullptr);
        }
    });
    std::thread host([this] {
        board().initialize();
        ADD_FAILURE() << "the thread went on";
    });
    host.join();
}

TEST_F(Initialize, AFileWithALineThatIsNoneKeepsItsOtherKeys) {
    makeBoardWith("FrameInterval = 45000\nthis is no key\n[half a section\nRoiX = 24\n"
                  "RoiWidth = 240\n");
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_EQ(board().getFrameInterval(), 45000);
    EXPECT_EQ(board().getROI(), (ROI{0, 24, 240, 2056}));
}

TEST_F(Initialize, CoresThatThrowNeverReachTheHost) {
    makeReadyBoard();
    failCore("tcPixelShift::setShift", "no shift");
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setBPP(Varnox::eBPP8); }),
              text({status(6, "setBPP: 2"), status(4, "no shift")}));
    EXPECT_EQ(result, 6);

    failCore("tcBadPixelReplacement::setColor", "no colour");
    EXPECT_EQ(seen([&] { result = board().setColor(true); }),
              text({status(-1, "setColor: 1"), status(4, "no colour")}));
    EXPECT_EQ(result, 0);

    failCore("tcPixelShift::reset", "no reset");
    EXPECT_EQ(seen([&] { result = board().resetFpga(); }), text({status(4, "no reset")}));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(seen([&] { result = board().start(); }),
              text({
                  status(4, "no reset"),
                  printed("Error starting capture (failed to get all channels synced)\n"),
              }));
    EXPECT_EQ(result, 6);
    EXPECT_FALSE(board().isCapturing());
    EXPECT_EQ(board().stop(), 0);
    EXPECT_EQ(head().lines(sim::teEventKind::note).back(), status(1, "Ending capture..."));
    EXPECT_EQ(board().setClockSetting(0), 0);
}

// ---- The link fails

TEST_F(Initialize, APllThatDoesNotLock) {
    makeBoardOn(aQuickHead().withPllFlagAfter(sim::tePllFlag::gbLocked, sim::kNever));
    tsTrace waiting;
    for (int tries = 0; tries < 10; ++tries) {
        const tsTrace turn = lines({
            statusLoads(0x6),
            statusLine(0, 1, 1, 0),
            triesLine(tries),
            slept(10000),
        });
        waiting.insert(waiting.end(), turn.begin(), turn.end());
    }
    EXPECT_EQ(initialized(-1), text({
                                   suppliesOn(),
                                   settingsLoaded(),
                                   fpgaReady(),
                                   intervalRestored(),
                                   regionRestored(),
                                   spi(0x90, 0),
                                   imagePublished(),
                                   mirrored(),
                                   lanesAndPulsesOn(),
                                   coreEnabled(),
                                   waiting,
                                   statusLoads(0x6),
                                   statusLine(0, 1, 1, 0),
                                   complained("PLL failed to lock\n"),
                                   pulsesThenLanesOff(),
                                   depthSet(),
                                   statePublished(),
                               }));
    EXPECT_FALSE(m_dump.empty());
}

TEST_F(Initialize, ALaneThatDoesNotLock) {
    makeBoardOn(aQuickHead().withStuckLane(0));
    tsTrace waiting;
    for (int tries = 0; tries < 10; ++tries) {
        waiting.push_back(load(0xFF210030, 0xFFE));
        waiting.push_back(printed("DPA Lock: ffe tries: " + std::to_string(tries) + "\n"));
        waiting.push_back(slept(10000));
    }
    const std::string all = initialized(-2);
    EXPECT_THAT(all, testing::HasSubstr(text({
                         lanesAndPulsesOn(),
                         coreEnabled(),
                         statusLoads(0x7),
                         statusLine(0, 1, 1, 1),
                         dpaReset(),
                         waiting,
                         load(0xFF210030, 0xFFE),
                         printed("DPA Lock: ffe\n"),
                         complained("DPA failed to lock\n"),
                         pulsesThenLanesOff(),
                         depthSet(),
                         statePublished(),
                     })));
    EXPECT_FALSE(m_dump.empty());
}

TEST_F(Initialize, AFrameThatDoesNotAlign) {
    makeBoardOn(aQuickHead().withAlignmentAfter(sim::kNever));
    tsTrace waiting;
    for (int tries = 0; tries < 10; ++tries) {
        const tsTrace turn = lines({
            statusLoads(0x7),
            statusLine(0, 1, 1, 1),
            triesLine(tries),
            slept(40000),
        });
        waiting.insert(waiting.end(), turn.begin(), turn.end());
    }
    const std::string all = initialized(-1);
    EXPECT_THAT(all, testing::HasSubstr(text({
                         dpaReset(),
                         load(0xFF210030, 0xFFF),
                         printed("DPA Lock: fff\n"),
                         store(0xFF210028, 0),
                         store(0xFF21002C, 0xFFF),
                         waiting,
                         statusLoads(0x7),
                         statusLine(0, 1, 1, 1),
                         complained("Frame failed to align\n"),
                         pulsesThenLanesOff(),
                         depthSet(),
                         statePublished(),
                     })));
    EXPECT_EQ(head().fpgaWord(0xFF210000), 0x80000002U); // the core stays enabled
}

TEST_F(Initialize, AFailedLinkLeavesABoardThatCanTryAgain) {
    // A connector that is seated properly before the second try.
    makeBoardOn(
        aQuickHead().withFault({.name = "loose", .what = "lanes 5 never", .until = "2000"}));
    EXPECT_EQ(board().initialize(), -2);
    EXPECT_EQ(head().fpgaWord(0xFF215010), 0U); // no map was loaded
    EXPECT_EQ(registerFile().read_word(0x3B00C), 1U);

    head().advance(std::chrono::seconds(2));
    const std::string all = initialized(0);
    // Power, settings and link come up from the start. The core runs since the first try.
    EXPECT_THAT(all, testing::StartsWith(text({suppliesOn(), settingsLoaded()})));
    EXPECT_THAT(all, testing::HasSubstr(text({
                         lanesAndPulsesOn(),
                         load(0xFF210000, 0x80000002),
                         store(0xFF210000, 0x80000002),
                         statusLoads(0x7),
                         statusLine(0, 1, 1, 1),
                         dpaReset(),
                         load(0xFF210030, 0xFFF),
                         printed("DPA Lock: fff\n"),
                         store(0xFF210028, 0),
                         store(0xFF21002C, 0xFFF),
                         statusLoads(0xF),
                         statusLine(1, 1, 1, 1),
                         pulsesThenLanesOff(),
                         badPixelMapLoaded(),
                         depthSet(),
                         statePublished(),
                     })));
    EXPECT_EQ(head().fpgaWord(0xFF215010), 3U);
    EXPECT_TRUE(head().violations().empty());
}

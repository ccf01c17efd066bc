// What `camhost --diagnose` says of a head: the shipped plug-in on the virtual head, to the byte.

#include <algorithm>
#include <array>
#include <fstream>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pwd.h>
#include <unistd.h>

#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tcLines = std::vector<std::string>;

const std::string kSources = HEAD_SOURCE_DIRECTORY;
const std::string kData = kSources + "/data";
constexpr int kRootsBusiness = 0;

// What is not seen of other users' processes is said to everybody but root.
const std::string kNotRoot =
    "|-- left out: which processes of other users have a device file open: "
    "only root may see that\n";

std::string notRoot() {
    return geteuid() == kRootsBusiness ? "" : kNotRoot;
}

// ---- Parts of the tree of a good head

std::string title(const std::string& folder = kData) {
    return "head on /dev/spidev1.0, by sensor_board_3u5mgxs.so, settings in " + folder + "\n";
}

const std::string kDeviceFiles =
    "|-- device files: good\n"
    "|   |-- /dev/spidev1.0, the sensor's SPI port: may be read and written\n"
    "|   |-- /dev/gpiochip0, a GPIO chip: may be read and written\n"
    "|   |-- /dev/i2c-1, the supply monitor's I2C bus: may be read and written\n"
    "|   `-- /dev/mem, the FPGA's registers: may be read and written\n";

const std::string kControlLines = "|-- GPIO lines: good\n"
                                  "|   |-- PS_1.2V_EN      /dev/gpiochip0 line 5, input, free\n"
                                  "|   |-- PS_3.3SVDD_EN   /dev/gpiochip0 line 6, input, free\n"
                                  "|   |-- PS_3.3AVDDH_EN  /dev/gpiochip0 line 7, input, free\n"
                                  "|   |-- RESET_B         /dev/gpiochip0 line 11, input, free\n"
                                  "|   `-- EXT_TRIG_EN     /dev/gpiochip0 line 12, input, free\n";

const std::string kMonitor = "|-- supply monitor: good\n"
                             "|   `-- ADS7828 at 0x49 of /dev/i2c-1: answers\n";

std::string settings(const std::string& folder = kData) {
    return "|-- settings file: good\n"
           "|   `-- " +
           folder + "/3U5MGXS_12bit.txt: 57 lines, 39 register writes, 2 pauses of 11000 us\n";
}

const std::string kPort = "|-- sensor's port: good\n";
const std::string kSupplies = "|-- supplies: good\n"
                              "|   |-- VDD1.2            1.19995 V, 1.1 V to 1.3 V allowed: good\n"
                              "|   |-- VDD3.3AVDDH_DIV2  3.29956 V, 3.2 V to 3.4 V allowed: good\n"
                              "|   `-- VDD3.3SVDD_DIV2   3.29956 V, 3.2 V to 3.4 V allowed: good\n";
const std::string kFpga = "|-- FPGA: good\n";
const std::string kPll = "|-- receiver's PLL: good\n"
                         "|   `-- locked 1, rgLocked 1, gbLocked 1: locked after 1 try, 10 ms\n";
const std::string kLanes = "|-- lanes: good\n"
                           "|   `-- 0 [############] 11: 12 of 12 locked after 1 try, 10 ms\n";
const std::string kAlignment = "|-- frame alignment: good\n"
                               "|   `-- frames are recognised after 1 try, 40 ms\n";
const std::string kTimes = "|-- exposure and interval: good\n"
                           "|   |-- exposure 30000 us, at most the interval\n"
                           "|   `-- interval 99900 us, at least 27100 us\n";
const std::string kOff =
    "|-- now: the head is off again: its board was made anew, as at each start\n";
const std::string kGood = "`-- verdict: nothing is wrong with this head\n";
const std::string kNoPower =
    "|-- left out: supplies, FPGA, PLL, lanes, alignment, exposure: nothing was switched on; "
    "\"diagnose power\" or --diagnose --power does\n";
const std::string kLeftAlone =
    "|-- left out: supplies, FPGA, PLL, lanes, alignment, exposure: not switched on, because of "
    "what is wrong already; \"init\" tries all the same\n";
const std::string kDeadLane =
    "|-- lanes: wrong\n"
    "|   `-- 0 [###.########] 11: 11 of 12 locked after 10 tries, 100 ms, not lane 3\n";
const std::string kUnknown = "|-- frame alignment: unknown\n|-- exposure and interval: unknown\n";

const std::string kBefore = kDeviceFiles + kControlLines + kMonitor; // before the settings file

// ---- Runs

class Diagnose : public testing::Test {
protected:
    // camhost on a head of which this is wrong. \return standard output and status
    [[nodiscard]] tsOutcome diagnose(const std::string& scenario, const std::string& arguments,
                                     const std::string& folder = kData) const {
        std::ofstream(m_folder.path() / "scenario.ini") << scenario;
        return runCommand("(" + std::string(HEAD_LAUNCHER) + " --workdir " + folder +
                          " --scenario " + (m_folder.path() / "scenario.ini").string() +
                          " --summary " + (m_folder.path() / "summary").string() + " --log " +
                          log() + " -- " + camhostCommand(arguments) + " 2>" + errors() + ")");
    }

    // The tree with power, and what it ends with. Nothing may be said beside it.
    void expectTree(const std::string& scenario, const std::string& tree, int status,
                    const std::string& folder = kData) const {
        const tsOutcome result = diagnose(scenario, "--diagnose --power", folder);
        EXPECT_EQ(result.output, tree);
        EXPECT_EQ(result.status, status);
        EXPECT_LE(linesOf(result.output).size(), 40U) << "does not fit on a screen";
    }

    [[nodiscard]] std::string log() const { return (m_folder.path() / "log").string(); }
    [[nodiscard]] std::string errors() const { return (m_folder.path() / "errors").string(); }

    // The log without its times.
    [[nodiscard]] tcLines events() const {
        tcLines lines = linesOf(contentOf(log()));
        for (std::string& line : lines) {
            line.erase(0, line.find("] ") + 2);
        }
        return lines;
    }

    // A copy of the data, for tests that change it.
    [[nodiscard]] std::filesystem::path copyOfData() const {
        const auto copy = m_folder.path() / "data";
        std::filesystem::remove_all(copy);
        std::filesystem::copy(kData, copy, std::filesystem::copy_options::recursive);
        return copy;
    }

    tcTemporaryDirectory m_folder;
};

// A scenario that ships.
std::string shipped(const std::string& name) {
    return contentOf(kData + "/scenarios/" + name + ".ini");
}

// ---- The good head

TEST_F(Diagnose, AGoodHeadWithPower) {
    expectTree("",
               title() + kBefore + settings() + kPort + kSupplies + kFpga + kPll + kLanes +
                   kAlignment + kTimes + notRoot() + kOff + kGood,
               0);
    EXPECT_EQ(contentOf(errors()), "");
    EXPECT_THAT(contentOf(m_folder.path() / "summary"), HasSubstr("violations: none"));
}

TEST_F(Diagnose, AGoodHeadWithoutPower) {
    const tsOutcome result = diagnose("", "--diagnose");
    EXPECT_EQ(result.output,
              title() + kBefore + settings() + kNoPower + notRoot() +
                  "`-- verdict: nothing is wrong so far; the head was not switched on\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(contentOf(errors()), "");
}

// Whoever looks changes nothing: no line requested, no command, no register, no message.
TEST_F(Diagnose, WithoutPowerNothingIsWritten) {
    EXPECT_EQ(diagnose("", "--diagnose").status, 0);
    EXPECT_THAT(events(),
                ElementsAre("OPEN /dev/spidev1.0", "CLOSE /dev/spidev1.0", "OPEN /dev/gpiochip0",
                            "CLOSE /dev/gpiochip0", "OPEN /dev/i2c-1", "CLOSE /dev/i2c-1",
                            "OPEN /dev/mem", "CLOSE /dev/mem", "OPEN /dev/gpiochip0",
                            "CLOSE /dev/gpiochip0", "OPEN /dev/i2c-1", "ADC 0 0xFFF",
                            "CLOSE /dev/i2c-1"));
    EXPECT_THAT(contentOf(m_folder.path() / "summary"), HasSubstr("violations: none"));
}

// The last thing that each line of the head's was told, and after the last register write.
TEST_F(Diagnose, WithPowerTheHeadIsOffAfterwards) {
    EXPECT_EQ(diagnose("", "--diagnose --power").status, 0);
    const tcLines all = events();
    for (const char* line : {"PS_1.2V_EN", "PS_3.3SVDD_EN", "PS_3.3AVDDH_EN", "RESET_B"}) {
        const auto last = std::find_if(all.rbegin(), all.rend(), [&](const std::string& event) {
            return event.starts_with("GPIO " + std::string(line)) && !event.ends_with("released");
        });
        ASSERT_NE(last, all.rend());
        EXPECT_EQ(*last, "GPIO " + std::string(line) + " out 0");
        const auto on = std::find(all.begin(), all.end(), "GPIO " + std::string(line) + " = 1");
        EXPECT_NE(on, all.end()) << line << " was never on";
    }
    const auto spi = std::find_if(all.rbegin(), all.rend(), [](const std::string& event) {
        return event.starts_with("SPI ");
    });
    ASSERT_NE(spi, all.rend());
    EXPECT_EQ(std::count(all.rbegin(), spi, "GPIO PS_1.2V_EN out 0"), 1);
}

// ---- The documents show what is said

std::string indented(const std::string& text) {
    std::string result;
    for (const std::string& line : linesOf(text)) {
        result += "    " + line + "\n";
    }
    return result;
}

TEST_F(Diagnose, TheDocumentsShowWhatIsSaid) {
    EXPECT_THAT(contentOf(kSources + "/docs/camhost.md"),
                HasSubstr("\n\n" +
                          indented(title("/etc/camera") + kDeviceFiles + kControlLines + kMonitor +
                                   settings("/etc/camera") + kPort + kSupplies + kFpga + kPll +
                                   kLanes + kAlignment + kTimes + kOff + kGood) +
                          "\n"));
    EXPECT_THAT(contentOf(kSources + "/README.md"), HasSubstr(indented(kPll + kDeadLane)));
}

// ---- What is wrong before anything is switched on

TEST_F(Diagnose, AMissingPort) {
    const std::string tree =
        title() + "|-- device files: wrong\n" +
        "|   |-- /dev/spidev1.0, the sensor's SPI port: No such file or directory\n" +
        kDeviceFiles.substr(kDeviceFiles.find("|   |-- /dev/gpiochip0")) + kControlLines +
        kMonitor + settings() + kLeftAlone + notRoot() +
        "`-- verdict: the sensor's SPI port, /dev/spidev1.0, is not there: No such file or "
        "directory (exit status 21)\n"
        "    `-- likely: No device tree entry, driver not loaded, or another port than --spi says\n"
        "        `-- measure: ls /dev/spidev*, dmesg\n";
    expectTree(shipped("spidev-missing"), tree, 21);
    EXPECT_EQ(contentOf(errors()), "");
    EXPECT_THAT(contentOf(log()), Not(HasSubstr("GPIO ")));
}

TEST_F(Diagnose, APortThatIsNotPermitted) {
    passwd* const user = getpwuid(geteuid());
    const std::string name = user != nullptr ? user->pw_name : std::to_string(geteuid());
    const std::string tree =
        title() + "|-- device files: wrong\n" +
        "|   |-- /dev/spidev1.0, the sensor's SPI port: does not open for reading and writing: "
        "Permission denied\n" +
        kDeviceFiles.substr(kDeviceFiles.find("|   |-- /dev/gpiochip0")) + kControlLines +
        kMonitor + settings() + kLeftAlone + notRoot() +
        "`-- verdict: the kernel refuses /dev/spidev1.0, the sensor's SPI port, to " + name +
        ": Permission denied (exit status 21)\n"
        "    `-- likely: The file would permit it, but a container, a security module or a "
        "capability does not\n"
        "        `-- measure: The container's list of devices; dmesg, journalctl -k\n";
    expectTree("[Failures]\nx = open /dev/spidev1.0 1+ EACCES\n", tree, 21);
}

TEST_F(Diagnose, NoChip) {
    const tsOutcome result = diagnose("[GPIO]\nchip = none\n", "--diagnose");
    EXPECT_EQ(result.status, 21);
    EXPECT_THAT(result.output,
                HasSubstr("|   |-- /dev/gpiochip0, a GPIO chip: No such file or directory\n"));
    EXPECT_THAT(result.output, HasSubstr("|-- GPIO lines: unknown\n"));
    EXPECT_THAT(result.output, HasSubstr("`-- verdict: there is no GPIO chip: /dev/gpiochip0: No "
                                         "such file or directory (exit status 21)\n"));
}

TEST_F(Diagnose, AnotherChipHasTheLines) {
    const tsOutcome result = diagnose("[GPIO]\nchip = /dev/gpiochip3\n", "--diagnose");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output,
                HasSubstr("|   |-- /dev/gpiochip3, a GPIO chip: may be read and written\n"));
    EXPECT_THAT(result.output, HasSubstr("RESET_B         /dev/gpiochip3 line 11, input, free\n"));
}

TEST_F(Diagnose, ABusyLineWithItsConsumer) {
    std::string lines = kControlLines;
    lines.replace(lines.find("good"), 4, "wrong");
    const std::string free = "line 11, input, free";
    lines.replace(lines.find(free), free.size(), "line 11, input, in use as \"somebody-else\"");
    expectTree("[GPIO]\nbusy = RESET_B\n",
               title() + kDeviceFiles + lines + kMonitor + settings() + kLeftAlone + notRoot() +
                   "`-- verdict: line RESET_B (/dev/gpiochip0 line 11) is in use by "
                   "\"somebody-else\" (exit status 22)\n"
                   "    |-- likely 1: Another process holds the line: another camhost, or a "
                   "service\n"
                   "    |   `-- measure: gpioinfo; fuser -v /dev/gpiochip0; end that process\n"
                   "    `-- likely 2: A hog in the device tree, or a driver of the kernel, holds "
                   "the line\n"
                   "        `-- measure: gpioinfo names the consumer; the device tree\n",
               22);
}

TEST_F(Diagnose, AMissingLine) {
    const tsOutcome result = diagnose("[GPIO]\nmissing = PS_3.3AVDDH_EN\n", "--diagnose --power");
    EXPECT_EQ(result.status, 22);
    EXPECT_THAT(result.output,
                HasSubstr("|   |-- PS_3.3AVDDH_EN  no chip has a line of this name\n"));
    EXPECT_THAT(result.output,
                HasSubstr("`-- verdict: line PS_3.3AVDDH_EN is not in the device tree (exit status "
                          "22)\n"));
}

// The head comes up without it.
TEST_F(Diagnose, ALineForTriggersIsNoted) {
    std::string lines = kControlLines;
    lines.replace(lines.find("good"), 4, "noted");
    const std::string free = "line 12, input, free";
    lines.replace(lines.find(free), free.size(), "line 12, input, in use as \"somebody-else\"");
    expectTree("[GPIO]\nbusy = EXT_TRIG_EN\n",
               title() + kDeviceFiles + lines + kMonitor + settings() + kPort + kSupplies + kFpga +
                   kPll + kLanes + kAlignment + kTimes + notRoot() +
                   "|-- note: without the line EXT_TRIG_EN there are no external triggers\n" +
                   kOff + "`-- verdict: nothing is wrong with this head but for what is noted\n",
               0);
}

TEST_F(Diagnose, NoMonitor) {
    expectTree("[ADC]\nanswers = no\n",
               title() + kDeviceFiles + kControlLines +
                   "|-- supply monitor: wrong\n"
                   "|   `-- ADS7828 at 0x49 of /dev/i2c-1: no answer, No such device or address\n" +
                   settings() + kLeftAlone + notRoot() +
                   "`-- verdict: the supply monitor, ADS7828, does not answer at 0x49 of "
                   "/dev/i2c-1: No such device or address (exit status 23)\n"
                   "    `-- likely: Nobody acknowledges at address 0x49: monitor not fitted, not "
                   "powered, or other address pins\n"
                   "        `-- measure: i2cdetect -y -r 1; the monitor's own supply\n",
               23);
}

TEST_F(Diagnose, AMonitorThatFloats) {
    const tsOutcome result = diagnose("[Fault f]\nwhat = ADC floats\n", "--diagnose");
    EXPECT_EQ(result.status, 23);
    EXPECT_THAT(result.output, HasSubstr("answers with 0xFF, which it cannot\n"));
}

TEST_F(Diagnose, NoSettingsFile) {
    const auto data = copyOfData();
    std::filesystem::remove(data / "3U5MGXS_12bit.txt");
    const std::string file = (data / "3U5MGXS_12bit.txt").string();
    expectTree("",
               title(data.string()) + kBefore + "|-- settings file: wrong\n|   `-- " + file +
                   ": No such file or directory\n" + kLeftAlone + notRoot() +
                   "`-- verdict: the settings file " + file +
                   " cannot be read: No such file or directory (exit status 24)\n"
                   "    |-- likely 1: Another working directory than the board's\n"
                   "    |   `-- measure: --workdir; ls -l " +
                   file +
                   "\n"
                   "    `-- likely 2: The board's own file was not installed: without it no "
                   "register is loaded, and the link stays dead\n"
                   "        `-- measure: The board's file, from whoever made the head\n",
               24, data.string());
}

TEST_F(Diagnose, AnEmptySettingsFile) {
    const auto data = copyOfData();
    std::ofstream(data / "3U5MGXS_12bit.txt") << "# nothing\n400 10\n";
    const tsOutcome result = diagnose("", "--diagnose", data.string());
    EXPECT_EQ(result.status, 24);
    EXPECT_THAT(result.output, HasSubstr("2 lines, 0 register writes, 1 pause of 16 us\n"));
    EXPECT_THAT(result.output, HasSubstr("has no register write (exit status 24)\n"));
}

TEST_F(Diagnose, ASettingsFileWithGapsIsNoted) {
    const auto data = copyOfData();
    std::ofstream(data / "3U5MGXS_12bit.txt", std::ios::app) << "\n21\n";
    const tsOutcome result = diagnose("", "--diagnose", data.string());
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("|-- settings file: noted\n"));
    EXPECT_THAT(result.output,
                HasSubstr("|-- note: the settings file has no two numbers in line 58, 59: what is "
                          "missing is repeated from the line before\n"));
}

// ---- The shipped scenarios

TEST_F(Diagnose, ADeadLane) {
    expectTree(
        shipped("dead-lane"),
        title() + kBefore + settings() + kPort + kSupplies + kFpga + kPll + kDeadLane + kUnknown +
            notRoot() + kOff +
            "`-- verdict: lane 3 of 12 did not lock (exit status 29)\n"
            "    |-- likely 1: The lane carries nothing: cable, connector, termination\n"
            "    |   `-- measure: The lane with a differential probe\n"
            "    |-- likely 2: The lane arrives inverted, against LaneInvertMask\n"
            "    |   `-- measure: The mask of this head, 3u5mgxs_config.ini\n"
            "    |-- likely 3: The lane takes longer than the 100 ms that the plug-in waits\n"
            "    |   `-- measure: The lane's eye; temperature\n"
            "    `-- likely 4: The lane drops again and again\n"
            "        `-- measure: The lane's eye, with the cable moved\n",
        29);
}

TEST_F(Diagnose, ALowSupply) {
    const std::string tree =
        title() + kBefore + settings() + kPort +
        "|-- supplies: wrong\n"
        "|   |-- VDD1.2            1.19995 V, 1.1 V to 1.3 V allowed: good\n"
        "|   |-- VDD3.3AVDDH_DIV2  2.95044 V, 3.2 V to 3.4 V allowed: too low\n"
        "|   `-- VDD3.3SVDD_DIV2   3.29956 V, 3.2 V to 3.4 V allowed: good\n"
        "|-- FPGA: unknown\n|-- receiver's PLL: unknown\n|-- lanes: unknown\n" +
        kUnknown + notRoot() + kOff +
        "`-- verdict: VDD3.3AVDDH_DIV2 is too low: 2.95044 V measured, at least 3.2 V wanted (exit "
        "status 26)\n"
        "    |-- likely 1: Regulator set too low, overload, or a short\n"
        "    |   `-- measure: The rail at the sensor, and its current\n"
        "    `-- likely 2: The supply comes up and then sinks: regulator in thermal limit, a "
        "discharged capacitor bank, a supply line too thin\n"
        "        `-- measure: The rail over the first second, with an oscilloscope\n";
    expectTree(shipped("supply-low"), tree, 26);
}

TEST_F(Diagnose, APllThatNeverLocks) {
    expectTree(shipped("pll-never"),
               title() + kBefore + settings() + kPort + kSupplies + kFpga +
                   "|-- receiver's PLL: wrong\n"
                   "|   `-- locked 1, rgLocked 1, gbLocked 0: not locked after 10 tries, 100 ms\n"
                   "|-- lanes: unknown\n" +
                   kUnknown + notRoot() + kOff +
                   "`-- verdict: the receiver PLL did not lock: gbLocked stays 0 (exit status 28)\n"
                   "    `-- likely: The clock of the green and blue lanes does not arrive\n"
                   "        `-- measure: Clock of the green and blue lanes\n",
               28);
}

TEST_F(Diagnose, NoAlignment) {
    expectTree(shipped("no-alignment"),
               title() + kBefore + settings() + kPort + kSupplies + kFpga + kPll + kLanes +
                   "|-- frame alignment: wrong\n"
                   "|   `-- no frame is recognised after 10 tries, 400 ms\n"
                   "|-- exposure and interval: unknown\n" +
                   notRoot() + kOff +
                   "`-- verdict: all lanes locked, but no frame is recognised (exit status 30)\n"
                   "    |-- likely 1: Sync codes are not found\n"
                   "    |   `-- measure: Register settings file; test pattern of the sensor\n"
                   "    |-- likely 2: Alignment takes longer than the 400 ms that the plug-in "
                   "waits\n"
                   "    |   `-- measure: Frame-start pulses: present, and at the right interval\n"
                   "    |-- likely 3: The PLL loses its lock after all lanes locked\n"
                   "    |   `-- measure: Ripple of the sensor's supplies\n"
                   "    `-- likely 4: Alignment is lost for good\n"
                   "        `-- measure: Frame-start pulses\n",
               30);
}

TEST_F(Diagnose, EveryShippedScenarioHasItsVerdict) {
    struct tsExpected {
        const char* scenario;
        int status;
        const char* verdict;
    };
    const std::vector<tsExpected> all{
        {"dead-lane", 29, "lane 3 of 12 did not lock"},
        {"healthy", 0, "nothing is wrong with this head"},
        {"lanes-lost", 0, "nothing is wrong with this head"}, // while it captures
        {"malformed-settings", 24, "line 4 of "},
        {"no-alignment", 30, "all lanes locked, but no frame is recognised"},
        {"pll-never", 28, "the receiver PLL did not lock: gbLocked stays 0"},
        {"short-transfer", 0, "nothing is wrong with this head but for what is noted"},
        {"spidev-missing", 21, "the sensor's SPI port, /dev/spidev1.0, is not there"},
        {"supply-droop", 26, "VDD1.2 is too low: 0.999756 V measured, at least 1.1 V wanted"},
        {"supply-low", 26, "VDD3.3AVDDH_DIV2 is too low: 2.95044 V measured"},
        {"wrong-lane-mask", 29, "lane 0 of 12 did not lock"},
    };
    std::set<std::string> shippedOnes;
    for (const auto& entry : std::filesystem::directory_iterator(kData + "/scenarios")) {
        if (entry.path().extension() == ".ini") {
            shippedOnes.insert(entry.path().stem().string());
        }
    }
    for (const tsExpected& expected : all) {
        SCOPED_TRACE(expected.scenario);
        shippedOnes.erase(expected.scenario);
        const tsOutcome result =
            runCommand("(" + std::string(HEAD_LAUNCHER) + " --workdir " + kData + " --scenario " +
                       kData + "/scenarios/" + expected.scenario + ".ini --summary /dev/null -- " +
                       camhostCommand("--diagnose --power") + " 2>/dev/null)");
        EXPECT_EQ(result.status, expected.status);
        EXPECT_THAT(result.output, HasSubstr("\n`-- verdict: " + std::string(expected.verdict)));
    }
    EXPECT_THAT(shippedOnes, IsEmpty());
}

// A head that comes up all the same, but something failed on the way.
TEST_F(Diagnose, AComplaintIsNoted) {
    const tsOutcome result = diagnose(shipped("short-transfer"), "--diagnose --power");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output,
                HasSubstr("|-- note: the board complained: tcSPIDevice: /dev/spidev1.0: "
                          "SPI_IOC_MESSAGE: Input/output error (errno 5)\n"));
}

TEST_F(Diagnose, APortThatRefusesItsSettings) {
    const tsOutcome result = diagnose("[SPI]\nsettings = refused\n", "--diagnose --power");
    EXPECT_EQ(result.status, 25);
    EXPECT_THAT(result.output, HasSubstr("|-- sensor's port: wrong\n|-- supplies: unknown\n"));
    EXPECT_THAT(result.output, HasSubstr("`-- verdict: /dev/spidev1.0 refuses its settings: "
                                         "Invalid argument (exit status 25)\n"));
}

TEST_F(Diagnose, AnFpgaThatIsNotReady) {
    const tsOutcome result = diagnose("[FPGA]\nsilent = pwm\n", "--diagnose --power");
    EXPECT_EQ(result.status, 27);
    EXPECT_THAT(result.output, HasSubstr("|-- FPGA: wrong\n|-- receiver's PLL: unknown\n"));
    EXPECT_THAT(result.output,
                HasSubstr("`-- verdict: not ready in the FPGA: pulses (exit status 27)\n"));
}

// Limits of the head's own are those that the driver compares with.
TEST_F(Diagnose, LimitsOfTheHeadsOwn) {
    const auto data = copyOfData();
    std::ofstream(data / "3u5mgxs_sensor.ini") << "[Voltages_Min]\nvdd1.2 = 1.0\n"
                                                  "[Voltages_Max]\nVDD3.3SVDD_DIV2 = 3.25\n"
                                                  "VDD3.3SVDD_DIV2 = 9\n";
    const tsOutcome result =
        diagnose("[Supplies]\nVDD1.2 = 1.05\n", "--diagnose --power", data.string());
    EXPECT_EQ(result.status, 26);
    EXPECT_THAT(result.output, HasSubstr("VDD1.2            1.0498 V, 1 V to 1.3 V allowed: good"));
    EXPECT_THAT(result.output,
                HasSubstr("VDD3.3SVDD_DIV2   3.29956 V, 3.2 V to 3.25 V allowed: too high"));
    EXPECT_THAT(result.output, HasSubstr("`-- verdict: VDD3.3SVDD_DIV2 is too high: 3.29956 V "
                                         "measured, at most 3.25 V wanted (exit status 26)\n"));
}

// Without the board's table every stage is unexplained, and nothing of the head is known.
TEST_F(Diagnose, AFailureThatNoTableKnows) {
    const auto plugin = m_folder.path() / "board.so";
    std::filesystem::copy_file(HEAD_PLUGIN, plugin);
    // It looks for the platform's libraries beside itself.
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(HEAD_PLUGIN).parent_path())) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("libvarnox.so") || name.starts_with("libpellum.so")) {
            std::filesystem::copy(entry.path(), m_folder.path());
        }
    }
    const auto on = [&](const std::string& scenario) {
        std::ofstream(m_folder.path() / "scenario.ini") << scenario;
        return runCommand(std::string("(") + HEAD_LAUNCHER + " --workdir " + kData +
                          " --summary /dev/null --scenario " +
                          (m_folder.path() / "scenario.ini").string() + " -- " + HEAD_CAMHOST +
                          " --plugin " + plugin.string() +
                          " --spi /dev/spidev1.0 --diagnose --power 2>/dev/null)");
    };
    const tsOutcome good = on("");
    EXPECT_EQ(good.status, 20);
    EXPECT_THAT(good.output, HasSubstr("|   |-- VDD1.2            1.19995 V\n"));
    EXPECT_THAT(good.output, HasSubstr("|-- lanes: unknown\n"));
    EXPECT_THAT(good.output,
                HasSubstr("|-- left out: device files, GPIO lines, supply monitor, settings file: "
                          "no table of failures lies beside the plug-in, so that nothing is known "
                          "of it\n"));
    const tsOutcome dead = on(shipped("dead-lane"));
    EXPECT_EQ(dead.status, 32);
    EXPECT_THAT(dead.output,
                HasSubstr("`-- verdict: the board's initialization gave result -2: a code of the "
                          "board's lower layers; no table knows why (exit status 32)\n"));
}

// ---- For programs

json expectedUser() {
    std::vector<gid_t> ids(static_cast<std::size_t>(std::max(0, getgroups(0, nullptr))));
    ids.resize(static_cast<std::size_t>(
        std::max(0, getgroups(static_cast<int>(ids.size()), ids.empty() ? nullptr : ids.data()))));
    if (std::find(ids.begin(), ids.end(), getegid()) == ids.end()) {
        ids.insert(ids.begin(), getegid());
    }
    json groups = json::array();
    for (const gid_t id : ids) {
        const group* const known = getgrgid(id);
        groups.push_back(known != nullptr ? known->gr_name : std::to_string(id));
    }
    const passwd* const user = getpwuid(geteuid());
    return {{"name", user != nullptr ? user->pw_name : std::to_string(geteuid())},
            {"groups", groups}};
}

json expectedDevice(const char* name, const char* what, const char* path) {
    const group* const known = getgrgid(getegid());
    return {{"name", name},
            {"what", what},
            {"path", path},
            {"there", true},
            {"right_kind", true},
            {"opens", true},
            {"error", nullptr},
            {"mode", "0600"},
            {"owner", expectedUser().at("name")},
            {"group", known != nullptr ? known->gr_name : std::to_string(getegid())},
            {"held_by", json::array()}};
}

json expectedLine(const char* name, int offset, const json& onlyFor = nullptr) {
    return {{"name", name},
            {"chip", "/dev/gpiochip0"},
            {"offset", offset},
            {"direction", "input"},
            {"in_use", false},
            {"consumer", nullptr},
            {"by_this_session", false},
            {"only_for", onlyFor}};
}

json expectedSupply(const char* name, double volts, double least, double most) {
    return {{"name", name}, {"volts", volts}, {"least", least}, {"most", most}, {"good", true}};
}

json expectedDeadLane() {
    const std::string file = kData + "/3U5MGXS_12bit.txt";
    json leftOut = json::array();
    if (geteuid() != kRootsBusiness) {
        leftOut.push_back("which processes of other users have a device file open: only root may "
                          "see that");
    }
    const json causes = {{{"cause", "The lane carries nothing: cable, connector, termination"},
                          {"measure", "The lane with a differential probe"}},
                         {{"cause", "The lane arrives inverted, against LaneInvertMask"},
                          {"measure", "The mask of this head, 3u5mgxs_config.ini"}},
                         {{"cause", "The lane takes longer than the 100 ms that the plug-in waits"},
                          {"measure", "The lane's eye; temperature"}},
                         {{"cause", "The lane drops again and again"},
                          {"measure", "The lane's eye, with the cable moved"}}};
    const json broughtUp = {
        {"result", -2},
        {"thrown", nullptr},
        {"supplies",
         {expectedSupply("VDD1.2", 1.19995, 1.1, 1.3),
          expectedSupply("VDD3.3AVDDH_DIV2", 3.29956, 3.2, 3.4),
          expectedSupply("VDD3.3SVDD_DIV2", 3.29956, 3.2, 3.4)}},
        {"pll",
         {{"flags", {{"locked", true}, {"rgLocked", true}, {"gbLocked", true}}},
          {"locked", true},
          {"tries", 1},
          {"milliseconds", 10}}},
        {"lanes",
         {{"locked", {true, true, true, false, true, true, true, true, true, true, true, true}},
          {"tries", 10},
          {"milliseconds", 100}}},
        {"alignment", nullptr},
        {"timing", nullptr},
        {"left", "the head is off again: its board was made anew, as at each start"}};
    return {{"format", 1},
            {"plugin", HEAD_PLUGIN},
            {"spi", "/dev/spidev1.0"},
            {"folder", kData},
            {"user", expectedUser()},
            {"power", true},
            {"verdict",
             {{"status", 29},
              {"stage", "lanes"},
              {"says", "lane 3 of 12 did not lock"},
              {"causes", causes},
              {"notes", json::array()}}},
            {"stages",
             {{"devices", "good"},
              {"lines", "good"},
              {"monitor", "good"},
              {"settings", "good"},
              {"port", "good"},
              {"supplies", "good"},
              {"fpga", "good"},
              {"pll", "good"},
              {"lanes", "wrong"},
              {"alignment", "unknown"},
              {"timing", "unknown"}}},
            {"devices",
             {expectedDevice("port", "the sensor's SPI port", "/dev/spidev1.0"),
              expectedDevice("chip", "a GPIO chip", "/dev/gpiochip0"),
              expectedDevice("bus", "the supply monitor's I2C bus", "/dev/i2c-1"),
              expectedDevice("memory", "the FPGA's registers", "/dev/mem")}},
            {"lines",
             {expectedLine("PS_1.2V_EN", 5), expectedLine("PS_3.3SVDD_EN", 6),
              expectedLine("PS_3.3AVDDH_EN", 7), expectedLine("RESET_B", 11),
              expectedLine("EXT_TRIG_EN", 12, "external triggers")}},
            {"monitor",
             {{"chip", "ADS7828"},
              {"bus", "/dev/i2c-1"},
              {"address", 0x49},
              {"asked", true},
              {"answers", true},
              {"first_byte", 0x0F},
              {"error", nullptr}}},
            {"settings",
             {{"path", file},
              {"error", nullptr},
              {"lines", 57},
              {"register_writes", 39},
              {"pauses", 2},
              {"paused_us", 11000},
              {"bad_line", nullptr},
              {"bad_text", nullptr},
              {"repeating_lines", json::array()}}},
            {"brought_up", broughtUp},
            {"left_out", leftOut}};
}

TEST_F(Diagnose, ForProgramsThereIsOneObject) {
    const tsOutcome result = diagnose(shipped("dead-lane"), "--diagnose --power --json");
    EXPECT_EQ(result.status, 29);
    json told = json::parse(result.output);
    const tcLines said = told.at("brought_up").at("board_said").get<tcLines>();
    EXPECT_THAT(said, testing::Contains("DPA failed to lock"));
    EXPECT_THAT(said, testing::Contains("VDD1.2: 1.19995"));
    told.at("brought_up").erase("board_said");
    EXPECT_EQ(told, expectedDeadLane()) << json::diff(expectedDeadLane(), told).dump(1);
}

TEST_F(Diagnose, ForProgramsWithoutPower) {
    const tsOutcome result = diagnose("[GPIO]\nmissing = RESET_B\n", "--diagnose --json");
    EXPECT_EQ(result.status, 22);
    const json told = json::parse(result.output);
    json wanted = expectedLine("RESET_B", 0);
    wanted["chip"] = wanted["offset"] = wanted["direction"] = nullptr;
    EXPECT_EQ(told.at("lines").at(3), wanted);
    EXPECT_EQ(told.at("brought_up"), nullptr);
    EXPECT_EQ(told.at("power"), false);
    EXPECT_EQ(told.at("stages").at("port"), "left out");
    EXPECT_EQ(told.at("verdict").at("stage"), "lines");
}

// ---- In a session

TEST_F(Diagnose, InASession) {
    const tsOutcome fresh = diagnose("", "--board-output /dev/null -c diagnose");
    EXPECT_EQ(fresh.status, 0);
    std::string lines = std::regex_replace(kControlLines, std::regex("input, free"),
                                           "output, held by this session's board as \"pellum\"");
    EXPECT_EQ(fresh.output,
              title() + kDeviceFiles + lines + kMonitor + settings() + kNoPower + notRoot() +
                  "`-- verdict: nothing is wrong so far; the head was not switched on\n");
    const tsOutcome power = diagnose("", "--board-output /dev/null -c 'diagnose power' -c init");
    EXPECT_EQ(power.status, 0);
    EXPECT_EQ(power.output, title() + kDeviceFiles + lines + kMonitor + settings() + kPort +
                                kSupplies + kFpga + kPll + kLanes + kAlignment + kTimes +
                                notRoot() + kOff + kGood + "init: result 0: success\n");
}

TEST_F(Diagnose, ASessionsHeadIsNotTakenDownByTheWay) {
    const tsOutcome refused = diagnose(
        "", "--board-output /dev/null --keep-going -c init -c 'exposure 20000' "
            "-c 'diagnose power' -c exposure -c start -c 'diagnose power anew' -c diagnose "
            "-c stop");
    EXPECT_EQ(refused.status, 6);
    EXPECT_THAT(refused.output, HasSubstr("\nexposure 20000 us\nstart: result 0: success\n"));
    EXPECT_THAT(refused.output,
                HasSubstr("|-- left out: supplies, FPGA, PLL, lanes, alignment, "
                          "exposure: the head is up; \"info\" has what its board "
                          "said, \"diagnose power anew\" brings it up once more\n"));
    EXPECT_THAT(refused.output,
                HasSubstr("`-- verdict: nothing is wrong so far; the head was left as it is\n"
                          "stop: result 0: success\n"));
    EXPECT_EQ(contentOf(errors()),
              "camhost: command line: diagnose power: the head is up since \"init\", and bringing "
              "it up anew ends what is set; \"diagnose power anew\" does that and leaves it up. "
              "\"diagnose\" looks at it as it is\n"
              "camhost: command line: diagnose power: the head captures, and would be switched off "
              "and on; end the capture with \"stop\" first. \"diagnose\" looks at it as it is\n");
    const tcLines all = events();
    EXPECT_EQ(std::count(all.begin(), all.end(), "GPIO RESET_B = 1"), 1) << "brought up once";
}

// Whose init failed has nothing to lose, and wants to know why.
TEST_F(Diagnose, AfterAFailedInitASessionIsExamined) {
    const tsOutcome result =
        diagnose(shipped("dead-lane"), "--board-output /dev/null --keep-going -c init "
                                       "-c 'diagnose power' -c 'diagnose power'");
    EXPECT_EQ(result.status, 5) << "the first failure";
    EXPECT_THAT(
        result.output,
        HasSubstr(kDeadLane + kUnknown + notRoot() +
                  "|-- now: the head is off: its board was made anew; a failed \"init\" may "
                  "have left it on before\n`-- verdict: lane 3 of 12 did not lock"));
    EXPECT_THAT(result.output, HasSubstr(kDeadLane + kUnknown + notRoot() + kOff +
                                         "`-- verdict: lane 3 of 12 did not lock"));
    const tcLines all = events();
    EXPECT_EQ(std::count(all.begin(), all.end(), "GPIO RESET_B = 1"), 3) << "each brings it up";
}

TEST_F(Diagnose, AnewTheHeadStaysUp) {
    const tsOutcome result = diagnose("", "--board-output /dev/null -c init -c 'exposure 20000' "
                                          "-c 'diagnose power anew' -c exposure -c start -c stop");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output,
                HasSubstr("|-- now: the head stays on, as it was found; what was set in this "
                          "session is gone, the board's own settings hold\n" +
                          kGood + "exposure 30000 us\nstart: result 0: success\n"));
    EXPECT_EQ(events().back().find("out 0"), std::string::npos);
    const tcLines all = events();
    EXPECT_EQ(std::count(all.begin(), all.end(), "GPIO PS_1.2V_EN out 0"), 1) << "at the start";
}

// What the board of the session could not get is somebody else's, and it has said so.
TEST_F(Diagnose, InASessionALineOfSomebodyElseIsNotItsOwn) {
    const tsOutcome result =
        diagnose("[GPIO]\nbusy = RESET_B\n", "--board-output /dev/null -c 'diagnose power'");
    EXPECT_EQ(result.status, 22);
    EXPECT_THAT(result.output,
                HasSubstr("|   |-- RESET_B         /dev/gpiochip0 line 11, input, in "
                          "use as \"somebody-else\"\n"));
    EXPECT_THAT(result.output, HasSubstr("|-- note: the board complained as it was made: "
                                         "tcGpioSingle: /dev/gpiochip0 line 11: GPIO_V2_GET_LINE: "
                                         "Device or resource busy (errno 16)\n"));
    EXPECT_THAT(result.output, HasSubstr("held by this session's board as \"pellum\"\n"));
}

TEST_F(Diagnose, InASessionAFindingEndsTheScript) {
    const tsOutcome result =
        diagnose(shipped("dead-lane"), "--board-output /dev/null -c 'diagnose power' -c status");
    EXPECT_EQ(result.status, 29);
    EXPECT_TRUE(result.output.ends_with("        `-- measure: The lane's eye, with the cable "
                                        "moved\n"))
        << result.output;
    EXPECT_THAT(contentOf(errors()), HasSubstr("DPA failed to lock\n"));
    EXPECT_THAT(contentOf(errors()),
                HasSubstr("camhost: command line: diagnose: lane 3 of 12 did not lock\n"));
}

// ---- The facts of the table are the driver's

class Facts : public Diagnose {
protected:
    Facts() {
        const std::string table = kSources + "/plugin/sensor_board_3u5mgxs.failures.json";
        m_facts = json::parse(contentOf(table));
    }

    // What goes over the boundary while a head is brought up.
    [[nodiscard]] tcLines recording(const std::string& folder = kData) const {
        const std::string file = (m_folder.path() / "recording").string();
        EXPECT_EQ(runCommand(std::string(HEAD_LAUNCHER) + " --summary /dev/null --workdir " +
                             folder + " --record " + file + " -- " + camhostCommand("-c init"))
                      .status,
                  0);
        return linesOf(contentOf(file));
    }

    // Group 1 of all lines that fit, each once.
    static std::set<std::string> found(const tcLines& lines, const std::string& expression) {
        std::set<std::string> words;
        const std::regex wanted(expression);
        for (const std::string& line : lines) {
            std::smatch match;
            if (std::regex_search(line, match, wanted)) {
                words.insert(match[1]);
            }
        }
        return words;
    }

    json m_facts;
};

TEST_F(Facts, DevicesAreThoseThatTheDriverOpens) {
    std::set<std::string> paths;
    for (const json& device : m_facts.at("head").at("devices")) {
        const std::string path = device.at("path");
        paths.insert(path == "{spi}" ? "/dev/spidev1.0"
                                     : path + (device.contains("numbers") ? "0" : ""));
    }
    EXPECT_EQ(found(recording(), R"(\] open (\S+) rw)"), paths);
}

TEST_F(Facts, NumbersOfChipsAreThoseThatTheDriverTries) {
    for (const json& device : m_facts.at("head").at("devices")) {
        if (!device.contains("numbers")) {
            continue;
        }
        const int numbers = device.at("numbers");
        const auto chip = [](int number) {
            return "[GPIO]\nchip = /dev/gpiochip" + std::to_string(number) + "\n";
        };
        EXPECT_EQ(diagnose(chip(numbers - 1), "--diagnose").status, 0);
        EXPECT_EQ(diagnose(chip(numbers - 1), "-c init").status, 0);
        EXPECT_EQ(diagnose(chip(numbers), "--diagnose").status, 21);
        EXPECT_EQ(diagnose(chip(numbers), "-c init").status, 5);
    }
}

TEST_F(Facts, LinesAndTheirConsumerAreTheDrivers) {
    const tcLines lines = recording();
    std::set<std::string> offsets;
    std::set<std::string> names;
    for (const json& line : m_facts.at("head").at("lines")) {
        names.insert(line.at("name").get<std::string>());
    }
    for (const std::string& line : lines) {
        std::smatch match;
        static const std::regex named(R"(GPIO_V2_GET_LINEINFO (\d+) = 0 \| \"([^\"]+)\")");
        if (std::regex_search(line, match, named) && names.contains(match[2])) {
            offsets.insert(match[1]);
        }
    }
    EXPECT_EQ(offsets.size(), names.size());
    EXPECT_EQ(found(lines, R"(GPIO_V2_GET_LINE (\d+) as)"), offsets);
    EXPECT_THAT(found(lines, R"(GPIO_V2_GET_LINE \d+ as \"([^\"]*)\")"),
                ElementsAre(m_facts.at("head").at("consumer").get<std::string>()));
}

// A head without such a line comes up just when the table says that it does.
TEST_F(Facts, WhatALineIsForIsTheDrivers) {
    for (const json& line : m_facts.at("head").at("lines")) {
        const std::string name = line.at("name");
        const tsOutcome result = diagnose("[GPIO]\nmissing = " + name + "\n", "-c init");
        EXPECT_EQ(result.status, line.contains("only_for") ? 0 : 5) << name;
    }
}

TEST_F(Facts, TheMonitorIsTheDrivers) {
    const json& monitor = m_facts.at("head").at("monitor");
    const tcLines lines = recording();
    EXPECT_THAT(found(lines, R"(I2C_RDWR (0x\w+) )"),
                ElementsAre(monitor.at("address").get<std::string>()));
    const auto open = std::find_if(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.find("open " + monitor.at("bus").get<std::string>() + " ") != line.npos;
    });
    ASSERT_NE(open, lines.end());
    const std::string descriptor = open->substr(open->find('#'));
    EXPECT_EQ(found(lines, R"(ioctl (#\d+) I2C_RDWR)"), std::set<std::string>{descriptor});
}

// A read of one byte with these bits set is what the driver reports as no reading.
TEST_F(Facts, TheMonitorsZeroBitsAreTheDrivers) {
    EXPECT_EQ(m_facts.at("head").at("monitor").at("zero_bits"), "0xF0");
    const tsOutcome result = diagnose("[Fault f]\nwhat = ADC floats\n", "-c init");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(contentOf(errors()), HasSubstr("Protocol error"));
}

TEST_F(Facts, TheSettingsFileIsTheDrivers) {
    const json& settings = m_facts.at("head").at("settings");
    const auto data = copyOfData();
    const auto file = data / settings.at("file").get<std::string>();
    std::ofstream(file, std::ios::app)
        << settings.at("pause").get<std::string>().substr(2) << " 1E240\n"; // 123456 us
    EXPECT_THAT(found(recording(data.string()), R"(\] (sleep 123456000) =)"), testing::SizeIs(1));
    std::ofstream(file) << "nonsense\n";
    EXPECT_EQ(diagnose("", "-c init", data.string()).status, 5);
    EXPECT_THAT(contentOf(errors()), HasSubstr("Error writing registers: " +
                                               settings.at("file").get<std::string>() + " 1"));
}

// Each limit, from both sides: a step of the monitor is 1.2 mV there.
TEST_F(Facts, LimitsAreTheDrivers) {
    const auto data = copyOfData();
    std::filesystem::remove(data / m_facts.at("head").at("limits").at("file").get<std::string>());
    for (const auto& [name, limits] : m_facts.at("supplies").items()) {
        const std::string rail = name.substr(0, name.find("_DIV2"));
        const auto status = [&](double volts) {
            return diagnose("[Supplies]\n" + rail + " = " + std::to_string(volts) + "\n", "-c init",
                            data.string())
                .status;
        };
        constexpr double little = 0.004; // V
        EXPECT_EQ(status(limits.at("least").get<double>() - little), 5) << name;
        EXPECT_EQ(status(limits.at("least").get<double>() + little), 0) << name;
        EXPECT_EQ(status(limits.at("most").get<double>() - little), 0) << name;
        EXPECT_EQ(status(limits.at("most").get<double>() + little), 5) << name;
    }
}

TEST_F(Facts, TheFileOfLimitsIsTheDrivers) {
    const json& limits = m_facts.at("head").at("limits");
    for (const char* bound : {"least", "most"}) {
        const auto data = copyOfData();
        const bool least = std::string(bound) == "least";
        std::ofstream(data / limits.at("file").get<std::string>())
            << "[" << limits.at(bound).get<std::string>() << "]\nVDD1.2 = " << (least ? 1.25 : 1.15)
            << "\n";
        EXPECT_EQ(diagnose("", "-c init", data.string()).status, 5) << bound;
    }
}

// The dump says which lanes the driver holds.
TEST_F(Facts, LanesAreTheDrivers) {
    const tsOutcome result = diagnose("", "-c init");
    const std::set<std::string> held = found(linesOf(result.output), R"(^DPA Hold:\t0x(\w+)$)");
    ASSERT_EQ(held.size(), 1U);
    const unsigned lanes = m_facts.at("lanes");
    EXPECT_EQ(std::stoul(*held.begin(), nullptr, 16), (1UL << lanes) - 1);
}

} // namespace

// The main job as ./run does it: the real programs, the real plug-in, the shipped data, and a head
// that is healthy or not.

#include <array>
#include <cstdio>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "tests/support/temporary_directory.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

struct tsRun {
    int status;         // exit status
    std::string output; // standard output and standard error in the order of their lines
};

tsRun run(const std::string& command) {
    std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    tsRun result{-1, {}};
    std::array<char, 4096> buffer{};
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        result.output.append(buffer.data(), count);
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

const std::string kSource = HEAD_SOURCE_DIRECTORY;

std::string launcher(const std::string& scenario, const std::string& options = "") {
    return std::string(HEAD_LAUNCHER) + " --scenario " + scenario + " --workdir " + kSource +
           "/data " + options + " -- ";
}

std::string camhost(const std::string& arguments) {
    return std::string(HEAD_CAMHOST) + " --plugin " + HEAD_PLUGIN + " --spi /dev/spidev1.0 " +
           arguments;
}

tsRun mainJob(const std::string& scenario, const std::string& options = "") {
    return run(launcher(kSource + "/data/scenarios/" + scenario + ".ini", options) +
               camhost("--echo " + kSource + "/data/main-job.camhost"));
}

TEST(MainJob, AHealthyHeadDoesAllThatIsAsked) {
    const tsRun result = mainJob("healthy");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("serves sensor type 7"));
    EXPECT_THAT(result.output, HasSubstr("init: result 0: success\n"));
    EXPECT_THAT(result.output,
                HasSubstr("exposure: asked 20000 us, applied 20000 us (result 0: success)\n"));
    // 50000 / 900 = 55 periods, 55 x 900 = 49500
    EXPECT_THAT(result.output,
                HasSubstr("interval: asked 50000 us, applied 49500 us (result 0: success)\n"));
    EXPECT_THAT(result.output,
                HasSubstr("setROIArea Num: 0 RowS: 512 RowE: 1538 ColS: 0 ColE: 2591\n"));
    EXPECT_THAT(result.output, HasSubstr("[0] Starting capture...\n[1] Ending capture...\n"));
    EXPECT_THAT(result.output,
                HasSubstr("VDD1.2 1.200 V, VDD3.3AVDDH 3.300 V, VDD3.3SVDD 3.300 V\n"));
    EXPECT_THAT(result.output, HasSubstr("image 2592 x 2056,"));
    EXPECT_THAT(result.output, EndsWith("  violations: none\n"));
}

TEST(MainJob, ADeadLaneIsNamed) {
    const tsRun result = mainJob("dead-lane");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output, HasSubstr("DPA failed to lock\n"));
    EXPECT_THAT(result.output, HasSubstr("init failed, result -2"));
    EXPECT_THAT(result.output, Not(HasSubstr("Starting capture")));
}

TEST(MainJob, AWrongLaneMaskKeepsLanesFromLocking) {
    const tsRun result = mainJob("wrong-lane-mask");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output, HasSubstr("DPA failed to lock\n"));
    EXPECT_THAT(result.output, HasSubstr("init failed, result -2"));
}

TEST(MainJob, ASupplyOutOfLimitsIsMeasuredAndRefused) {
    const tsRun result = mainJob("supply-low");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output, HasSubstr("VDD3.3AVDDH_DIV2: 2.95044\nVDD3.3SVDD_DIV2: 3.29956\n"));
    EXPECT_THAT(result.output, HasSubstr("[4] Sensor powerup error!\n"));
    EXPECT_THAT(result.output, HasSubstr("init failed, result -4"));
    EXPECT_THAT(result.output, HasSubstr("sensor register writes: 0\n"));
}

TEST(MainJob, AMalformedSettingsFileIsReportedWithItsLine) {
    const tsRun result = mainJob("malformed-settings");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output,
                HasSubstr("\nError writing registers: 3U5MGXS_12bit.txt 4:  # 14 3FFF\n"
                          "eof: 0 good: 0 fail: 1 bad: 0\n"));
    EXPECT_THAT(result.output, HasSubstr("[4] std::exception\n[4] Sensor powerup error!\n"));
    EXPECT_THAT(result.output, HasSubstr("init failed, result 6"));
}

TEST(MainJob, AMissingSpiDeviceIsReportedBeforeAnythingIsSwitchedOn) {
    const tsRun result = mainJob("spidev-missing");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output, HasSubstr("/dev/spidev1.0"));
    EXPECT_THAT(result.output, HasSubstr("[4] Failed to open spidev\n[4] Sensor powerup error!\n"));
    EXPECT_THAT(result.output, HasSubstr("init failed, result 6"));
    EXPECT_THAT(result.output,
                HasSubstr("VDD1.2 0.000 V, VDD3.3AVDDH 0.000 V, VDD3.3SVDD 0.000 V\n"));
}

TEST(MainJob, AReceiverPllThatNeverLocksIsReported) {
    const tsRun result = mainJob("pll-never");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output, HasSubstr("PLL failed to lock\n"));
    EXPECT_THAT(result.output, HasSubstr("init failed, result -1"));
}

TEST(MainJob, AFrameThatNeverAlignsIsReported) {
    const tsRun result = mainJob("no-alignment");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.output, HasSubstr("Frame failed to align\n"));
    EXPECT_THAT(result.output, HasSubstr("init failed, result -1"));
}

TEST(MainJob, TheEventLogHoldsThePowerUpInItsOrder) {
    const tcTemporaryDirectory directory;
    const std::string log = (directory.path() / "events.log").string();
    ASSERT_EQ(mainJob("healthy", "--log " + log).status, 0);
    std::ifstream file(log);
    std::string events; // without their times
    for (std::string line; std::getline(file, line);) {
        events += line.substr(line.find("] ") + 2) + "\n";
    }
    EXPECT_THAT(events, HasSubstr("GPIO RESET_B = 0\n"
                                  "GPIO PS_1.2V_EN = 1\n"
                                  "SLEEP 1000000 ns\n"
                                  "GPIO PS_3.3SVDD_EN = 1\n"
                                  "GPIO PS_3.3AVDDH_EN = 1\n"
                                  "SLEEP 1000 ns\n"
                                  "SLEEP 300000000 ns\n"
                                  "GPIO RESET_B = 1\n"
                                  "SLEEP 10000000 ns\n"));
}

} // namespace

// Scenario files.

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;

const std::string kShipped = SCENARIO_FOLDER;

// A file that is removed at the end.
class tcFile {
public:
    explicit tcFile(const std::string& text)
        : m_path(std::filesystem::temp_directory_path() /
                 ("scenario-" + std::to_string(getpid()) + ".ini")) {
        std::ofstream(m_path) << text;
    }
    tcFile(const tcFile&) = delete;
    tcFile& operator=(const tcFile&) = delete;
    ~tcFile() { std::filesystem::remove(m_path); }
    [[nodiscard]] std::string path() const { return m_path.string(); }

private:
    std::filesystem::path m_path;
};

std::string errorOf(const std::string& text) {
    const tcFile file(text);
    try {
        sim::aVirtualHead().withScenario(file.path());
    } catch (const std::runtime_error& error) {
        const std::string what = error.what();
        EXPECT_EQ(what.substr(0, file.path().size() + 2), file.path() + ": ");
        return what.substr(file.path().size() + 2);
    }
    return "";
}

int bringUp(tcUser& user) {
    user.powerUp();
    user.configure();
    return user.bringUp();
}

TEST(ShippedScenario, HealthyIsHealthy) {
    const auto head = sim::aVirtualHead().withScenario(kShipped + "/healthy.ini").build();
    tcUser user;
    EXPECT_EQ(bringUp(user), 0);
    EXPECT_THAT(head.violations(), IsEmpty());
}

// How bringing the link up ends, and which lanes are locked then.
void expectLink(const std::string& scenario, int result, std::uint32_t lanes) {
    const auto head = sim::aVirtualHead().withScenario(kShipped + "/" + scenario).build();
    tcUser user;
    EXPECT_EQ(bringUp(user), result);
    EXPECT_EQ(head.link().dpaLock, lanes);
}

TEST(ShippedScenario, WrongLaneMaskLeavesLane0Unlocked) {
    expectLink("wrong-lane-mask.ini", -2, 0xFFE);
}

TEST(ShippedScenario, DeadLaneLeavesLane3Unlocked) {
    expectLink("dead-lane.ini", -2, 0xFF7);
}

TEST(ShippedScenario, NoAlignmentLocksAllLanes) {
    expectLink("no-alignment.ini", -1, 0xFFF);
}

TEST(ShippedScenario, SupplyLowReadsBelowItsLimit) {
    const auto head = sim::aVirtualHead().withScenario(kShipped + "/supply-low.ini").build();
    tcUser user;
    user.powerUp();
    EXPECT_EQ(user.monitor.measure(1), 0x971); // 1.475 V
    EXPECT_EQ(user.monitor.measure(4), 0xA8F);
    EXPECT_TRUE(head.sensorAlive());
}

TEST(ShippedScenario, PllNeverLeavesGbLockedAway) {
    const auto head = sim::aVirtualHead().withScenario(kShipped + "/pll-never.ini").build();
    tcUser user;
    EXPECT_EQ(bringUp(user), -1);
    EXPECT_TRUE(head.link().locked);
    EXPECT_FALSE(head.link().gbLocked);
}

TEST(ShippedScenario, SpidevMissingHasNoPort) {
    const auto head = sim::aVirtualHead().withScenario(kShipped + "/spidev-missing.ini").build();
    EXPECT_FALSE(openDevice("/dev/spidev1.0").valid());
    EXPECT_EQ(errno, ENOENT);
}

TEST(ShippedScenario, MalformedSettingsReplacesTheSettingsFile) {
    const auto files = sim::replacedFiles(kShipped + "/malformed-settings.ini");
    ASSERT_THAT(files, SizeIs(1));
    EXPECT_EQ(files[0].name, "3U5MGXS_12bit.txt");
    std::ifstream file(files[0].path);
    std::string line;
    for (int number = 1; number <= 4; ++number) {
        std::getline(file, line);
    }
    EXPECT_EQ(line, " # 14 3FFF");
}

TEST(Scenario, EveryKeyDoesWhatItSays) {
    const tcFile file("[Supplies]\n"
                      "VDD1.2 = 1.25\n"
                      "VDD3.3AVDDH = -0.3\n"
                      "VDD3.3SVDD = +0.1\n"
                      "[ADC]\nanswers = yes\nbus = yes\n"
                      "[GPIO]\nchip = /dev/gpiochip2\nmissing = LED_STATUS, FAN_ALERT_B\n"
                      "busy = EXT_TRIG_EN\n"
                      "[SPI]\ndevice = /dev/spidev0.1\nsettings = accepted\nfail-from = 2 EIO\n"
                      "[Memory]\nopen = ok\nunmappable = 0xFF217000\n"
                      "[FPGA]\nsilent = pwm, bad-pixel\nsystem-id = 0x12 34\n"
                      "[Link]\nlocked = 1\nrgLocked = 0.5\ngbLocked = 2\nlanes = 0\nlane7 = 9\n"
                      "alignment = 1\npolarity = 0x0\n"
                      "[Time]\nmode = virtual\nwire = no\n"
                      "[Failures]\nfirst = open /dev/mem 2 EMFILE\n"
                      "later = sleep clock 100+ EINTR\n");
    const auto head = sim::aVirtualHead().withScenario(file.path()).build();
    const tcDescriptor chip = openDevice("/dev/gpiochip2");
    const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 1);
    usleep(1000);
    const tcDescriptor svdd = requestOutput(chip.get(), lines::kSvdd, 1);
    const tcDescriptor avddh = requestOutput(chip.get(), lines::kAvddh, 1);
    usleep(300000);
    EXPECT_DOUBLE_EQ(head.rail("VDD1.2"), 1.25);
    EXPECT_DOUBLE_EQ(head.rail("VDD3.3AVDDH"), 3.0);
    EXPECT_DOUBLE_EQ(head.rail("VDD3.3SVDD"), 3.4);
    const tcDescriptor reset = requestOutput(chip.get(), lines::kReset, 1);
    usleep(10000);
    EXPECT_EQ(head.line("LED_STATUS"), std::nullopt);
    EXPECT_EQ(head.line("FAN_ALERT_B"), std::nullopt);
    EXPECT_FALSE(requestOutput(chip.get(), lines::kTrigger, 1).valid());
    tcPort port("/dev/spidev0.1");
    port.configure();
    EXPECT_EQ(port.writeRegister(0x10, 4), 4);
    EXPECT_EQ(port.writeRegister(0x10, 4), -EIO);
    tcRegisters frameControl(0xFF210000);
    EXPECT_FALSE(openDevice("/dev/mem").valid());
    EXPECT_EQ(errno, EMFILE);
    EXPECT_FALSE(tcRegisters(0xFF217000, 4096).mapped());
    const tcRegisters base(0xFF200000);
    EXPECT_EQ(base.read(0), 0x12U);
    EXPECT_EQ(base.read(1), 34U);
    tcRegisters pulses(0xFF211000, 4096);
    EXPECT_EQ(pulses.read(128), 0U);
    EXPECT_EQ(tcRegisters(0xFF215000, 4096).read(128), 0U);
    pulses.write(1, 1000);
    pulses.write(0, 0x80000000);
    frameControl.write(0, 0x80000000);
    usleep(500);
    EXPECT_EQ(frameControl.read(1), 2U);
    usleep(500);
    EXPECT_EQ(frameControl.read(1), 6U);
    usleep(1000);
    EXPECT_EQ(frameControl.read(1), 7U);
    frameControl.write(10, 0xFFF);
    frameControl.write(10, 0xFFF000);
    frameControl.write(10, 0);
    EXPECT_EQ(frameControl.read(12), 0xF7FU); // all but lane 7, without inversion
    usleep(9000);
    EXPECT_EQ(frameControl.read(12), 0xFFFU);
    frameControl.write(11, 0xFFF);
    usleep(1000);
    EXPECT_EQ(frameControl.read(1), 0xFU);
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Scenario, AbsentThingsAreAbsent) {
    const tcFile file("[ADC]\nbus = no\n[GPIO]\nchip = none\n[SPI]\ndevice = none\n"
                      "[Memory]\nopen = EACCES\n");
    const auto head = sim::aVirtualHead().withScenario(file.path()).build();
    EXPECT_FALSE(openDevice("/dev/i2c-1").valid());
    EXPECT_FALSE(openDevice("/dev/gpiochip0").valid());
    EXPECT_FALSE(openDevice("/dev/spidev1.0").valid());
    EXPECT_FALSE(openDevice("/dev/mem").valid());
    EXPECT_EQ(errno, EACCES);
}

TEST(Scenario, AnErrorNamesTheKeyAndWhatIsAllowed) {
    EXPECT_EQ(errorOf("[Supplies]\nVDD5 = 5\n"),
              "[Supplies] VDD5: unknown key; allowed are VDD1.2, VDD3.3AVDDH, VDD3.3SVDD");
    EXPECT_EQ(
        errorOf("[Lens]\nzoom = 5\n"),
        "[Lens] zoom: unknown section; allowed are [Supplies], [ADC], [GPIO], [SPI], "
        "[Memory], [FPGA], [Link], [Scene], [Defects], [Time], [Failures], [Files], [Fault NAME]");
    EXPECT_EQ(errorOf("[Supplies]\nVDD1.2 = much\n"),
              "[Supplies] VDD1.2 = much: allowed is volts, for example `2.9`, or an offset with "
              "its sign, `-0.2`");
    EXPECT_EQ(errorOf("[Link]\nlane12 = 1\n"),
              "[Link] lane12: unknown key; allowed are locked, rgLocked, gbLocked, lanes, lane0 "
              "... lane11, alignment, polarity");
    EXPECT_EQ(errorOf("[Failures]\nx = open /dev/tty 1 EIO\n"),
              "[Failures] /dev/tty: unknown device; allowed are /dev/spidev1.0, /dev/gpiochip0, "
              "/dev/i2c-1, /dev/mem, clock");
    EXPECT_EQ(errorOf("[Failures]\nx = open /dev/i2c-1 1 short\n"),
              "[Failures] short on /dev/i2c-1: allowed is short for ioctl and write on "
              "/dev/spidev1.0, ioctl, read and write on /dev/i2c-1");
    EXPECT_EQ(errorOf("[Failures]\nx = read /dev/i2c-1 1 short\n"), "");
    EXPECT_EQ(errorOf("[Supplies]\nthis is no key\n"),
              "line 2 is neither a [section], a KEY = VALUE nor a ; comment");
}

TEST(Scenario, FaultsComeInTheirOrder) {
    const tcFile file("[Fault lanes lost]\nwhat = lanes 3 7 lost\nat = 450\nfor = 20\n"
                      "[Fault reset]\nwhat = line RESET_B busy\nafter = 2 GPIO EXT_TRIG_EN = 1\n"
                      "until = 1 GPIO EXT_TRIG_EN = 0\n");
    const auto head = sim::aVirtualHead().withScenario(file.path()).build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor trigger = requestOutput(chip.get(), lines::kTrigger, 0);
    std::string seen;
    for (const int level : {1, 0, 1, 0, 1}) {
        EXPECT_EQ(setLevel(trigger, level), 0);
        seen += requestOutput(chip.get(), lines::kReset, 0).valid() ? "free " : "busy ";
    }
    EXPECT_EQ(seen, "free free busy free free ");
    usleep(1'000'000);
    EXPECT_THAT(head.timedLines(sim::teEventKind::note),
                ElementsAre("[    0.000000000] NOTE fault reset begins",
                            "[    0.000000000] NOTE fault reset ends",
                            "[    0.450000000] NOTE fault lanes lost begins",
                            "[    0.470000000] NOTE fault lanes lost ends"));
}

TEST(Scenario, AnErrorOfAFaultNamesIt) {
    EXPECT_THAT(errorOf("[Fault x]\nwhat = lanes 30 lost\n"),
                testing::StartsWith("[Fault x] what = lanes 30 lost: allowed is `PLL never`, "));
    EXPECT_EQ(errorOf("[Fault x]\nwhere = here\n"),
              "[Fault x] where: unknown key; allowed are what, at, after, for, until");
    EXPECT_THAT(errorOf("[Fault x]\nat = 5\n"),
                testing::StartsWith("[Fault x] what: is missing; allowed is `PLL never`, "));
    EXPECT_EQ(errorOf("[Fault x]\nwhat = ADC floats\nat = 5\nat = 6\n"),
              "[Fault x] at = 6: allowed is at once");
    EXPECT_EQ(errorOf("[Fault x]\nwhat = ADC floats\nat = 5\nafter = SLEEP\n"),
              "[Fault x] after = SLEEP: allowed is at or after, not both");
    EXPECT_EQ(errorOf("[Fault x]\nwhat = ADC floats\nfor = never\n"),
              "[Fault x] for = never: allowed is milliseconds, more than 0");
    EXPECT_EQ(errorOf("[Fault x]\nwhat = ADC floats\nafter = LENS 5\n"),
              "[Fault x] after = LENS 5: allowed is `N EVENT`, or `EVENT` for the first one: the "
              "words with which a line of the log begins, for example `3 GPIO RESET_B = 1`");
    EXPECT_THAT(errorOf("[Fault]\nwhat = ADC floats\n"), testing::HasSubstr("unknown section"));
    EXPECT_THAT(errorOf("[GPIO]\nbusy = RESET_C\n"), testing::HasSubstr("allowed is names of"));
    EXPECT_THAT(errorOf("[Memory]\nunmappable = 0xFF217004\n"), testing::HasSubstr("allowed is"));
}

TEST(Scenario, WrongValuesOfEveryKeyAreRefused) {
    for (const char* line : {"[Supplies]\nVDD1.2 = -2",
                             "[Supplies]\nVDD1.2 = nan",
                             "[ADC]\nanswers = maybe",
                             "[ADC]\nbus = 1",
                             "[GPIO]\nchip = /dev/ttyS0",
                             "[GPIO]\nmissing =",
                             "[GPIO]\nbusy =",
                             "[SPI]\ndevice = /dev/sda",
                             "[SPI]\nsettings = no",
                             "[SPI]\nfail-from = 0 EIO",
                             "[SPI]\nfail-from = 1 EWHAT",
                             "[SPI]\nfail-from = 1",
                             "[Memory]\nopen = maybe",
                             "[Memory]\nunmappable = here",
                             "[FPGA]\nsilent = all",
                             "[FPGA]\nsystem-id = 1",
                             "[FPGA]\nsystem-id = 1 2 3",
                             "[Link]\nlocked = -1",
                             "[Link]\nlocked = soon",
                             "[Link]\nlanes = x",
                             "[Link]\nlane3 = x",
                             "[Link]\nalignment = -0.1",
                             "[Link]\npolarity = 0x1000",
                             "[Scene]\npicture = no-such-picture.png",
                             "[Defects]\nx = 2592 0 1",
                             "[Defects]\nx = 0 2056 1",
                             "[Defects]\nx = 0 0 4096",
                             "[Defects]\nx = 0 0",
                             "[Defects]\nx = some",
                             "[Time]\nmode = fast",
                             "[Time]\nwire = 1",
                             "[Failures]\nx = fork /dev/mem 1 EIO",
                             "[Failures]\nx = open /dev/mem 0 EIO",
                             "[Failures]\nx = open /dev/mem 1",
                             "[Files]\na/b = c"}) {
        EXPECT_THAT(errorOf(std::string(line) + "\n"), testing::HasSubstr("allowed is")) << line;
    }
}

TEST(Scenario, AFileThatIsNotThereIsAnError) {
    EXPECT_THROW(sim::aVirtualHead().withScenario("/no/such/file.ini"), std::runtime_error);
    const tcFile file("[Files]\n3U5MGXS_12bit.txt = no-such-file.txt\n");
    EXPECT_THROW((void)sim::replacedFiles(file.path()), std::runtime_error);
}

} // namespace

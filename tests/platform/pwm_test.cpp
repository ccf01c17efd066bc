#include <varnox/pwm.h>

#include <cerrno>
#include <cmath>
#include <iostream>
#include <limits>
#include <stdexcept>

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/platform/captured.h"

using sim::aVirtualHead;
using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t kPwm = 0xFF211000;
constexpr std::uint32_t kPwmControl = 0xFF211000;
constexpr std::uint32_t kPeriod = 0xFF211004;
constexpr std::uint32_t kDuty = 0xFF211008;

class PwmTest : public testing::Test {
protected:
    PwmTest() { head.clearLog(); }

    /// \return the text of the exception that `f` throws, and checks that nothing was written
    template<typename F>
    std::string refusal(F&& f) {
        head.clearLog();
        std::string text = "no exception";
        try {
            f();
        } catch (const std::runtime_error& error) {
            text = error.what();
        }
        EXPECT_THAT(head.lines(), IsEmpty());
        return text;
    }

    sim::tcVirtualHead head = aVirtualHead().withQuietViolations().build();
    tcPwm pwm{kPwm, 36.0, ""};
};

struct tsPeriod {
    double clockMhz;
    double asked; // Hz or us
    std::uint32_t clocks;
};

} // namespace

TEST_F(PwmTest, IsInitializedWhenTheCoreIdentifiesItself) {
    EXPECT_TRUE(pwm.initialized());
    EXPECT_EQ(pwm.clockMhz, 36.0);
}

TEST(Pwm, AsksTheCoreWhoItIsAndNothingElse) {
    auto head = aVirtualHead().build();
    const tcPwm pwm(kPwm, 36.0, "");
    EXPECT_THAT(head.lines(sim::kHardwareEvents), ElementsAre("READ 0xFF211200 0x50574D31"));
}

TEST(Pwm, IsNotInitializedWhenTheCoreIsSilent) {
    const auto head = aVirtualHead().withSilentCore(sim::teCore::pwm).build();
    EXPECT_FALSE(tcPwm(kPwm, 36.0, "").initialized());
}

TEST(Pwm, NeverTouchesACoreThatIsNotMapped) {
    const auto head = aVirtualHead().withMapFailing(kPwm, EPERM).build();
    stderrOf([] {
        tcPwm pwm(kPwm, 36.0, "");
        EXPECT_FALSE(pwm.initialized());
        EXPECT_THROW(pwm.enableCore(true), std::runtime_error);
        EXPECT_THROW(pwm.setInvertPulse(true), std::runtime_error);
        EXPECT_THROW(pwm.setDutyClks(1), std::runtime_error);
        EXPECT_THROW(pwm.setPeriodFreq(30), std::runtime_error);
        EXPECT_THROW(pwm.setPeriodTime(1000), std::runtime_error);
    });
    EXPECT_THAT(head.lines(sim::kHardwareEvents), IsEmpty());
}

TEST(Pwm, SaysWhichCoreIsNotThere) {
    const auto head = aVirtualHead().withSilentCore(sim::teCore::pwm).build();
    tcPwm unnamed(kPwm, 36.0, "");
    tcPwm named(kPwm, 36.0, "frame start");
    try {
        unnamed.setPeriodFreq(30);
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "tcPwm at 0xFF211000: setPeriodFreq: the core is not there");
    }
    EXPECT_EQ(stdoutOf([&] { named.dumpRegisters(); }),
              "tcPwm frame start at 0xFF211000: the core is not there\n");
}

TEST_F(PwmTest, ShowsItsRegistersInOneOrderWhateverTheCompiler) {
    pwm.setPeriodTime(1000);
    pwm.setDutyClks(10);
    head.clearLog();
    const std::string shown = stdoutOf([&] { pwm.dumpRegisters(); });
    EXPECT_THAT(head.lines(),
                ElementsAre("READ 0xFF211204 0x00010000", "READ 0xFF211000 0x00000000",
                            "READ 0xFF211004 0x00008CA0", "READ 0xFF211008 0x0000000A"));
    EXPECT_EQ(shown, "tcPwm at 0xFF211000: revision 0x00010000, control 0x00000000, "
                     "period 36000 clocks, pulse 10 clocks\n");
}

TEST_F(PwmTest, SwitchesItsPulsesOnAndOff) {
    pwm.setPeriodTime(1000);
    head.clearLog();
    pwm.enableCore(true);
    pwm.enableCore(false);
    EXPECT_THAT(head.lines(),
                ElementsAre("READ 0xFF211000 0x00000000", "WRITE 0xFF211000 0x80000000",
                            "READ 0xFF211000 0x80000000", "WRITE 0xFF211000 0x00000000"));
}

TEST_F(PwmTest, InvertsItsPulsesAndKeepsThemRunning) {
    pwm.setPeriodTime(1000);
    pwm.enableCore(true);
    pwm.setInvertPulse(true);
    EXPECT_EQ(head.fpgaWord(kPwmControl), 0x80000001U);
    pwm.setInvertPulse(false);
    EXPECT_EQ(head.fpgaWord(kPwmControl), 0x80000000U);
    pwm.setInvertPulse(true);
    pwm.enableCore(false);
    EXPECT_EQ(head.fpgaWord(kPwmControl), 0x00000001U);
}

TEST_F(PwmTest, TakesPulsesOfSixteenBits) {
    pwm.setDutyClks(10);
    EXPECT_THAT(head.lines(), ElementsAre("WRITE 0xFF211008 0x0000000A"));
    pwm.setDutyClks(0);
    EXPECT_EQ(head.fpgaWord(kDuty), 0U);
    pwm.setDutyClks(65535);
    EXPECT_EQ(head.fpgaWord(kDuty), 65535U);
    EXPECT_EQ(refusal([&] { pwm.setDutyClks(65536); }),
              "tcPwm at 0xFF211000: a pulse of 65536 clocks does not fit; it takes 0 to 65535");
    EXPECT_EQ(
        refusal([&] { pwm.setDutyClks(0xFFFFFFFF); }),
        "tcPwm at 0xFF211000: a pulse of 4294967295 clocks does not fit; it takes 0 to 65535");
    EXPECT_EQ(head.fpgaWord(kDuty), 65535U);
}

TEST_F(PwmTest, CountsAFrequencyInWholeClocks) {
    for (const tsPeriod& period :
         {tsPeriod{36.0, 30, 1200000}, tsPeriod{24.0, 30, 800000}, tsPeriod{36.0, 7, 5142857},
          tsPeriod{24.0, 7, 3428571}, tsPeriod{36.0, 18e6, 2}, tsPeriod{36.0, 24e6, 2},
          tsPeriod{36.0, 14.4e6, 3}, tsPeriod{36.0, 36e6 / 4294967295.0, 4294967295U}}) {
        pwm.clockMhz = period.clockMhz;
        pwm.setPeriodFreq(period.asked);
        EXPECT_EQ(head.fpgaWord(kPeriod), period.clocks) << period.asked << " Hz";
    }
}

TEST_F(PwmTest, CountsATimeInWholeClocks) {
    for (const tsPeriod& period :
         {tsPeriod{36.0, 100000, 3600000}, tsPeriod{24.0, 100000, 2400000}, tsPeriod{36.0, 1, 36},
          tsPeriod{0.5, 3, 2}, tsPeriod{0.4, 4, 2}, tsPeriod{36.0, 119304647, 4294967292U},
          tsPeriod{1.0, 4294967295, 4294967295U}}) {
        pwm.clockMhz = period.clockMhz;
        pwm.setPeriodTime(static_cast<std::int64_t>(period.asked));
        EXPECT_EQ(head.fpgaWord(kPeriod), period.clocks) << period.asked << " us";
    }
}

TEST_F(PwmTest, RefusesFrequenciesThatItCannotCount) {
    pwm.setPeriodFreq(30);
    EXPECT_EQ(refusal([&] { pwm.setPeriodFreq(30e6); }),
              "tcPwm at 0xFF211000: a period of 30000000 Hz is 1 clocks; it takes 2 to 4294967295");
    EXPECT_EQ(refusal([&] { pwm.setPeriodFreq(0.008); }),
              "tcPwm at 0xFF211000: a period of 0.008 Hz is 4500000000 clocks; it takes 2 to "
              "4294967295");
    EXPECT_EQ(refusal([&] { pwm.setPeriodFreq(0); }),
              "tcPwm at 0xFF211000: a period of 0 Hz is inf clocks; it takes 2 to 4294967295");
    EXPECT_EQ(refusal([&] { pwm.setPeriodFreq(-30); }),
              "tcPwm at 0xFF211000: a period of -30 Hz is -1200000 clocks; it takes 2 to "
              "4294967295");
    EXPECT_EQ(refusal([&] { pwm.setPeriodFreq(std::numeric_limits<double>::quiet_NaN()); }),
              "tcPwm at 0xFF211000: a period of nan Hz is nan clocks; it takes 2 to 4294967295");
    EXPECT_EQ(refusal([&] { pwm.setPeriodFreq(std::numeric_limits<double>::infinity()); }),
              "tcPwm at 0xFF211000: a period of inf Hz is 0 clocks; it takes 2 to 4294967295");
    EXPECT_EQ(head.fpgaWord(kPeriod), 1200000U);
}

TEST_F(PwmTest, RefusesTimesThatItCannotCount) {
    pwm.setPeriodTime(1000);
    EXPECT_EQ(refusal([&] { pwm.setPeriodTime(0); }),
              "tcPwm at 0xFF211000: a period of 0 us is 0 clocks; it takes 2 to 4294967295");
    EXPECT_EQ(refusal([&] { pwm.setPeriodTime(-1); }),
              "tcPwm at 0xFF211000: a period of -1 us is -36 clocks; it takes 2 to 4294967295");
    EXPECT_EQ(refusal([&] { pwm.setPeriodTime(119304648); }),
              "tcPwm at 0xFF211000: a period of 119304648 us is 4294967328 clocks; it takes 2 to "
              "4294967295");
    EXPECT_NE(refusal([&] { pwm.setPeriodTime(std::numeric_limits<std::int64_t>::max()); }),
              "no exception");
    EXPECT_NE(refusal([&] { pwm.setPeriodTime(std::numeric_limits<std::int64_t>::min()); }),
              "no exception");
    EXPECT_EQ(head.fpgaWord(kPeriod), 36000U);
}

TEST_F(PwmTest, DumpsItsRegistersAndLeavesTheStreamAsItWas) {
    pwm.setInvertPulse(true);
    pwm.setDutyClks(10);
    pwm.setPeriodFreq(30);
    EXPECT_EQ(
        stdoutOf([&] {
            pwm.dumpRegisters();
            std::cout << 255 << "\n";
        }),
        "tcPwm at 0xFF211000: revision 0x00010000, control 0x00000001, period 1200000 clocks, "
        "pulse 10 clocks\n255\n");
}

// What is said of a run in a few lines: settings, verdict, cause, and the overview of them all.

#include <gmock/gmock.h>

#include "apps/failures/failure_table.h"
#include "sim/after/overview.h"
#include "sim/after/report/run_reader.h"
#include "sim/after/settings.h"
#include "sim/after/verdict.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// --- Settings ---

std::vector<std::string> settingsOf(const std::string& printed) {
    std::vector<std::string> result;
    for (const sim::tsSetting& one : sim::settingsIn(printed)) {
        result.push_back(one.name + "|" + one.asked + "|" + one.applied + "|" + one.limitedBy);
    }
    return result;
}

TEST(Settings, AreReadAsTheProgramTellsThem) {
    EXPECT_THAT(
        settingsOf("> exposure 20000\n"
                   "exposure: asked 500000 us, applied 99850 us, limited by the frame interval of "
                   "99900 us "
                   "(result 0: success)\n"
                   "interval: asked 50000 us, applied 49500 us (result 0: success)\n"
                   "roi: asked [y: 512, x: 0], applied [y: 512, x: 0] (result 0: success)\n"
                   "vbin: asked 2, taken; the board tells 1 (result 0: success)\n"
                   "0x3D004 digital_gain: asked 1 (0x1), holds 1 (0x1), taken by the board\n"
                   "capture: 300 ms, result 0: success\n"
                   "somebody: asked for nothing\n"),
        ElementsAre("exposure|500000 us|99850 us|the frame interval of 99900 us",
                    "interval|50000 us|49500 us|", "roi|[y: 512, x: 0]|[y: 512, x: 0]|",
                    "vbin|2|taken; the board tells 1|",
                    "0x3D004 digital_gain|1 (0x1)|holds 1 (0x1), taken by the board|"));
}

// --- Verdict ---

const std::vector<std::string> kTrained{"GPIO PS_1.2V_EN = 1",   "STATE CORE-ENABLED 1",
                                        "STATE PLL-LOCKED 1",    "STATE PLL-RG-LOCKED 1",
                                        "STATE PLL-GB-LOCKED 1", "STATE DPA-RESET 4095"};

std::vector<std::string> joined(std::vector<std::string> lines,
                                const std::vector<std::string>& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// Lanes that locked, one bit each.
std::vector<std::string> lanes(unsigned mask) {
    std::vector<std::string> lines;
    for (unsigned lane = 0; lane < 12; ++lane) {
        if ((mask >> lane & 1) != 0) {
            lines.push_back("STATE LANE" + std::to_string(lane) + "-LOCK 1");
        }
    }
    return lines;
}

std::vector<sim::tsTraceLine> traceOf(const std::vector<std::string>& events) {
    std::vector<std::string> lines;
    for (const std::string& event : events) {
        lines.push_back("[    0.00" + std::to_string(1000000 + lines.size()) + "] " + event);
    }
    return sim::parseTrace(lines);
}

// By the names of the board's own table: a name that it does not have has no cause.
std::map<std::string, sim::tsKnown> knownByName() {
    const failures::tcFailureTable table(DOCUMENT_FOLDER
                                         "/../plugin/sensor_board_3u5mgxs.failures.json");
    std::map<std::string, sim::tsKnown> known;
    for (const std::string& name : table.names()) {
        known[name] = {"cause of " + name, "measure for " + name};
    }
    return known;
}

sim::tsVerdict judged(const std::vector<std::string>& events, sim::tsRunFacts facts = {}) {
    if (!facts.status) {
        facts.status = 0;
    }
    facts.known = knownByName();
    return sim::verdictOf(sim::readRun(traceOf(events)), facts);
}

sim::tsRunFacts failed(int status = 5) {
    sim::tsRunFacts facts;
    facts.status = status;
    return facts;
}

TEST(Verdict, OfAGoodRunIsShort) {
    sim::tsRunFacts facts;
    facts.pictures = 7;
    const sim::tsVerdict verdict =
        judged(joined(kTrained, joined(lanes(0xFFF), {"STATE ALIGNED 1"})), facts);
    EXPECT_TRUE(verdict.good);
    EXPECT_EQ(verdict.headline, "All went well: 7 pictures delivered.");
    EXPECT_THAT(verdict.findings, IsEmpty());
    EXPECT_FALSE(verdict.diagnosis);
}

TEST(Verdict, SaysHowTheProgramEnded) {
    EXPECT_EQ(judged({}, failed()).headline, "The program failed: it ended with status 5.");
    EXPECT_EQ(judged({}, failed(139)).headline,
              "A signal ended the program: 11, Segmentation fault.");
    EXPECT_FALSE(judged({}, failed()).good);
}

TEST(Verdict, NamesEachBrokenRuleOnce) {
    const sim::tsVerdict verdict =
        judged({"VIOLATION sensor-asleep: register 0x04 <- 0x000008",
                "VIOLATION pairs-flip: is not", "VIOLATION sensor-asleep: register 0x05"});
    EXPECT_FALSE(verdict.good);
    EXPECT_EQ(verdict.headline, "The program succeeded, but broke 3 rules of the head.");
    EXPECT_THAT(verdict.findings,
                ElementsAre("Rule sensor-asleep broken 2 times, first at 1.000 ms: register 0x04 "
                            "<- 0x000008.",
                            "Rule pairs-flip broken at 1.000 ms: is not.",
                            HasSubstr("No stage was reached; never: 1.2 V on, ")));
}

TEST(Verdict, SaysWhichLanesDidNotLock) {
    const sim::tsVerdict verdict = judged(joined(kTrained, lanes(0xFF7)), failed());
    EXPECT_THAT(verdict.findings,
                ElementsAre("Lane 3 did not lock.",
                            HasSubstr("Last stage reached: receiver PLL locked, at 1.000 ms; "
                                      "never: 3.3 V SVDD on,")));
    ASSERT_TRUE(verdict.diagnosis);
    EXPECT_EQ(verdict.diagnosis.value().cause, "cause of lanes");
    EXPECT_EQ(verdict.diagnosis.value().measure, "measure for lanes");
    EXPECT_EQ(judged(joined(kTrained, lanes(0xF7E)), failed()).findings.front(),
              "Lanes 0 7 did not lock.");
    EXPECT_EQ(judged(kTrained, failed()).diagnosis.value().cause, "cause of all-lanes");
}

TEST(Verdict, SaysThatTheFrameDidNotAlign) {
    const sim::tsVerdict verdict = judged(joined(kTrained, lanes(0xFFF)), failed());
    EXPECT_EQ(verdict.findings.front(), "All lanes locked, but the frame did not align.");
    EXPECT_EQ(verdict.diagnosis.value().cause, "cause of alignment");
}

// Without the PLL lanes cannot lock: they are not named.
TEST(Verdict, SaysWhichPllFlagDidNotLock) {
    const sim::tsVerdict verdict =
        judged({"STATE CORE-ENABLED 1", "STATE PLL-LOCKED 1", "STATE PLL-RG-LOCKED 1"}, failed());
    EXPECT_THAT(verdict.findings,
                ElementsAre("PLL flag gbLocked did not lock.",
                            HasSubstr("Last stage reached: frame-control core on,")));
    EXPECT_EQ(verdict.diagnosis.value().cause, "cause of pll-clock-of-green-and-blue");
    EXPECT_EQ(
        judged({"STATE CORE-ENABLED 1", "STATE PLL-LOCKED 1", "STATE PLL-GB-LOCKED 1"}, failed())
            .diagnosis.value()
            .cause,
        "cause of pll-clock-of-red-and-green");
    EXPECT_EQ(
        judged({"STATE CORE-ENABLED 1", "STATE PLL-RG-LOCKED 1", "STATE PLL-GB-LOCKED 1"}, failed())
            .diagnosis.value()
            .cause,
        "cause of pll-clock");
    EXPECT_EQ(judged({"STATE CORE-ENABLED 1"}, failed()).diagnosis.value().cause, "cause of pll");
}

// The last reading counts; what is wrong first decides on the cause.
TEST(Verdict, SaysWhichSupplyIsWrong) {
    const sim::tsVerdict verdict = judged(
        joined({"ADC 0 0x700", "ADC 0 0x7AE", "ADC 1 0x971"}, joined(kTrained, lanes(0xFF7))),
        failed());
    EXPECT_EQ(verdict.findings.at(0),
              "VDD3.3AVDDH: 2.9504 V, too low; the sensor needs 3.2 to 3.4 V.");
    EXPECT_EQ(verdict.findings.at(1), "Lane 3 did not lock.");
    EXPECT_EQ(verdict.diagnosis.value().cause, "cause of supply-low");
    EXPECT_EQ(judged({"ADC 0 0x948"}, failed()).diagnosis.value().cause, "cause of supply-high");
    EXPECT_EQ(judged({"ADC 0 0xFFFF"}, failed()).diagnosis.value().cause,
              "cause of monitor-floats");
}

TEST(Verdict, NamesCallsThatFailed) {
    const sim::tsVerdict verdict = judged({"OPEN /dev/spidev1.0 failed ENOENT"}, failed());
    EXPECT_EQ(verdict.findings.front(), "1 call failed: OPEN /dev/spidev1.0 failed ENOENT.");
    EXPECT_EQ(verdict.diagnosis.value().cause, "cause of spi-open");
    const std::pair<const char*, const char*> calls[] = {
        {"OPEN /dev/gpiochip0 failed ENOENT", "line-chip"},
        {"OPEN /dev/gpiochip1 failed ENOENT", "line-missing"},
        {"GPIO RESET_B out 0 failed EBUSY", "line-busy"},
        {"OPEN /dev/i2c-1 failed ENOENT", "monitor-bus"},
        {"ADC-COMMAND 0x8C failed ENXIO", "monitor-silent"},
        {"ADC-COMMAND 0x8C failed ETIMEDOUT", "monitor-bus-busy"},
        {"ADC-COMMAND 0x8C failed EIO", "monitor-short"},
        {"ADC-COMMAND 0x8C failed EPROTO", "monitor-floats"},
        {"OPEN /dev/mem failed EACCES", "fpga-permission"},
        {"OPEN /dev/mem failed EMFILE", "fpga-descriptors"},
        {"MAP 0xFF210000 failed ENOMEM", "fpga-mapping"}};
    for (const auto& [call, failure] : calls) {
        const auto diagnosis = judged({call}, failed()).diagnosis;
        ASSERT_TRUE(diagnosis) << call;
        EXPECT_EQ(diagnosis->cause, std::string("cause of ") + failure) << call;
    }
    // A head that was powered up can do without the line of external triggers.
    EXPECT_EQ(judged(joined({"GPIO PS_3.3SVDD_EN = 1", "GPIO PS_3.3AVDDH_EN = 1",
                             "GPIO RESET_B = 1", "OPEN /dev/gpiochip1 failed ENOENT"},
                            joined(kTrained, lanes(0xFF7))),
                     failed())
                  .diagnosis.value()
                  .cause,
              "cause of lanes");
    // The program may have come over it.
    EXPECT_EQ(judged({"SPI 00 00 00 24 failed short"}).headline,
              "The program succeeded: pictures not counted. Not every call did.");
}

TEST(Verdict, SaysThatNoPictureCame) {
    sim::tsRunFacts facts;
    facts.silences = {"no picture came while the sensor streamed for 700.003 ms: not aligned: lane "
                      "3 is not locked"};
    const sim::tsVerdict verdict =
        judged(joined(kTrained, joined(lanes(0xFFF), {"STATE ALIGNED 1"})), facts);
    EXPECT_FALSE(verdict.good);
    EXPECT_EQ(verdict.headline, "The program succeeded, but no picture came.");
    EXPECT_EQ(verdict.findings.front(), "No picture came while the sensor streamed for 700.003 ms: "
                                        "not aligned: lane 3 is not locked.");
    EXPECT_EQ(verdict.diagnosis.value().cause, "cause of lanes-lost");
    facts.silences = {"no picture came: not aligned: the receiver's PLL has no lock"};
    EXPECT_EQ(judged({}, facts).diagnosis.value().cause, "cause of pll-lost");
    facts.silences = {"no picture came: no pulses: nothing starts a frame"};
    EXPECT_EQ(judged({}, facts).diagnosis.value().cause, "cause of no-frame-starts");
    facts.silences = {"no picture came: the pipeline is held: the pixel-shift core is in reset"};
    EXPECT_EQ(judged({}, facts).diagnosis.value().cause, "cause of pipeline-held");
}

TEST(Verdict, SaysNoCauseThatNobodyKnows) {
    EXPECT_FALSE(judged({"GPIO PS_1.2V_EN = 1"}, failed()).diagnosis);
}

// --- Overview ---

TEST(Overview, SaysAllOnOneScreen) {
    sim::tsRunFacts facts = failed();
    facts.scenario = "data/scenarios/dead-lane.ini";
    facts.scenarioText = "; Lane 3 carries nothing.\n[Link]\nlane3 = never\n";
    facts.printed = "interval: asked 50000 us, applied 49500 us (result 0: success)\n"
                    "exposure: asked 20000 us, applied 20000 us (result 0: success)\n"
                    "exposure: asked 9 us, applied 10 us, limited by a line (result 0: success)\n";
    facts.pictures = 2;
    facts.known["lanes"] = {"the cable", "its plug"};
    EXPECT_EQ(
        sim::overview(traceOf(joined(kTrained, lanes(0xFF7))), facts, {"a/1.png", "a/2.png"}),
        "head\n"
        "  dead-lane.ini: Lane 3 carries nothing.\n"
        "stages\n"
        "      1.000 ms  1.2 V on\n"
        "      1.000 ms  frame-control core on\n"
        "      1.000 ms  receiver PLL locked\n"
        "      1.000 ms  end of the run\n"
        "         never  3.3 V SVDD on\n"
        "         never  3.3 V AVDDH on\n"
        "         never  reset released\n"
        "         never  sensor awake\n"
        "         never  supplies measured\n"
        "         never  first register write\n"
        "         never  link aligned\n"
        "         never  frames arrive\n"
        "lanes\n"
        "  0 1 2 - 4 5 6 7 8 9 10 11  (-: not locked), not aligned\n"
        "settings, asked and applied\n"
        "  interval  50000 us  49500 us\n"
        "  exposure  20000 us  as asked\n"
        "  exposure  9 us      10 us, limited by a line\n"
        "pictures\n"
        "  2 delivered, 2 kept, the last one is a/2.png\n"
        "verdict\n"
        "  The program failed: it ended with status 5.\n"
        "  - Lane 3 did not lock.\n"
        "  - Last stage reached: receiver PLL locked, at 1.000 ms; never: 3.3 V SVDD on, 3.3 V "
        "AVDDH on, reset released, sensor awake, supplies measured, first register write, link "
        "aligned, frames arrive.\n"
        "  cause: the cable\n"
        "  measure: its plug\n");
}

TEST(Overview, OfARunWithoutTheHeadIsEmptyButForWhatWasNot) {
    const std::string text = sim::overview({}, {});
    EXPECT_THAT(text, HasSubstr("lanes\n  never trained\n"));
    EXPECT_THAT(text, testing::Not(HasSubstr("settings")));
    EXPECT_THAT(text, testing::Not(HasSubstr("pictures\n")));
}

} // namespace

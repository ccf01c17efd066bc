// The value-change dump, wire by wire.

#include <gmock/gmock.h>
#include <map>
#include <sstream>
#include <stdexcept>

#include "sim/after/waveform.h"
#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// Changes of one wire: "TIME VALUE".
std::vector<std::string> changesOf(const std::string& dump, const std::string& name) {
    std::istringstream stream(dump);
    std::string identifier;
    std::string time;
    std::vector<std::string> result;
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        std::string first;
        std::string type;
        std::string bits;
        std::string code;
        std::string wire;
        words >> first;
        if (first == "$var" && words >> type >> bits >> code >> wire && wire == name) {
            identifier = code;
        } else if (first.starts_with("#")) {
            time = first.substr(1);
        } else if (first.starts_with("r") && words >> code && code == identifier) {
            result.push_back(time + " " + first.substr(1));
        } else if (!first.starts_with("$") && !first.starts_with("r") &&
                   first.substr(1) == identifier && !identifier.empty()) {
            result.push_back(time + " " + first.substr(0, 1));
        }
    }
    return result;
}

std::string dumpOf(const std::vector<std::string>& lines) {
    return sim::waveform(sim::parseTrace(lines));
}

TEST(ValueChangeDump, BeginsWithItsScaleAndEndsWithTheRun) {
    const std::string dump = dumpOf({"[    0.000001000] STATE END"});
    EXPECT_THAT(dump, StartsWith("$comment a run of the virtual camera head $end\n"
                                 "$timescale 1 ns $end\n$scope module head $end\n"
                                 "$scope module gpio $end\n$var wire 1 ! LED_STATUS $end\n"));
    EXPECT_THAT(dump, HasSubstr("$enddefinitions $end\n#0\n$dumpvars\n0!\n"));
    EXPECT_THAT(dump, testing::EndsWith("$end\n#1000\n"));
}

TEST(ValueChangeDump, ShowsLines) {
    const std::string dump = dumpOf(
        {"[    0.000000000] GPIO RESET_B out 0", "[    0.000001000] GPIO RESET_B = 1",
         "[    0.000002000] GPIO RESET_B released", "[    0.000003000] GPIO RESET_B = 0 failed EIO",
         "[    0.000004000] GPIO line 3 = 1"});
    EXPECT_THAT(changesOf(dump, "RESET_B"), ElementsAre("0 0", "1000 1"));
}

TEST(ValueChangeDump, ShowsASupplyThatDroopsAndComesBack) {
    auto head = sim::aVirtualHead()
                    .withStateEvents()
                    .withFault({.name = "droop",
                                .what = "rail VDD1.2 droops 0.8 over 8",
                                .at = "1",
                                .until = "6.9"})
                    .build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 1);
    head.advance(std::chrono::milliseconds(20));
    std::vector<std::string> fromTheDroopOn;
    for (const std::string& change :
         changesOf(dumpOf(head.timedLines(sim::teEventKind::state)), "VDD1.2")) {
        if (std::stoul(change) > 1'000'000) {
            fromTheDroopOn.push_back(change);
        }
    }
    // Twenty steps of 0.4 ms and 0.04 V, the last of which do not come.
    EXPECT_THAT(fromTheDroopOn,
                ElementsAre("1400000 1.16", "1800000 1.12", "2200000 1.08", "2600000 1.04",
                            "3000000 1", "3400000 0.96", "3800000 0.92", "4200000 0.88",
                            "4600000 0.84", "5000000 0.8", "5400000 0.76", "5800000 0.72",
                            "6200000 0.68", "6600000 0.64", "6900000 1.2"));
}

TEST(ValueChangeDump, ShowsASupplyThatTurnsFromWhereItIs) {
    const std::string dump =
        dumpOf({"[    0.000000000] STATE VDD1.2 1200000 0",
                "[    0.000001000] STATE VDD1.2 200000 20000",    // 50 mV a microsecond
                "[    0.000011500] STATE VDD1.2 1100000 40000"}); // from 0.7 V, 10 mV a microsecond
    const std::vector<std::string> changes = changesOf(dump, "VDD1.2");
    EXPECT_EQ(changes[11], "11000 0.7");
    EXPECT_EQ(changes[12], "13500 0.72");
    EXPECT_EQ(changes.back(), "51500 1.1");
}

TEST(ValueChangeDump, ShowsASupplyThatRisesAndIsSwitchedOffOnTheWay) {
    const std::string dump =
        dumpOf({"[    0.000000000] STATE VDD1.2 1200000 20000",
                "[    0.000002500] STATE VDD1.2 0 0", "[    0.000030000] STATE END"});
    EXPECT_THAT(changesOf(dump, "VDD1.2"), ElementsAre("0 0", "1000 0.06", "2000 0.12", "2500 0"));
}

TEST(ValueChangeDump, ShowsChangesOfOneInstantOneNanosecondApart) {
    const std::string dump =
        dumpOf({"[    0.000001000] STATE DPA-RESET 4095", "[    0.000001000] STATE DPA-RESET 0",
                "[    0.000001000] STATE DPA-FIFO-RESET 2048",
                "[    0.000001000] STATE DPA-FIFO-RESET 0"});
    EXPECT_THAT(changesOf(dump, "DPA-RESET0"), ElementsAre("0 0", "1000 1", "1001 0"));
    EXPECT_THAT(changesOf(dump, "DPA-FIFO-RESET11"), ElementsAre("0 0", "1001 1", "1002 0"));
    EXPECT_THAT(changesOf(dump, "DPA-FIFO-RESET10"), ElementsAre("0 0"));
}

// A transfer of one byte that begins after 1 us. Wire: mode, bits of a word, clock [Hz].
std::vector<std::string> aTransfer(const std::string& wire, const std::string& byte,
                                   const std::string& end) {
    return {"[    0.000001000] STATE SPI-WIRE " + wire, "[    0.000001000] STATE SPI-SELECT 1",
            "[    0.000001000] SPI " + byte, "[    " + end + "] STATE SPI-SELECT 0"};
}

TEST(ValueChangeDump, ShowsEveryBitOfATransfer) {
    const std::string dump = dumpOf(aTransfer("0 8 1000000", "A1", "0.000009000"));
    EXPECT_THAT(changesOf(dump, "SPI-CS"), ElementsAre("0 1", "1000 0", "8875 1"));
    EXPECT_THAT(changesOf(dump, "SPI-MOSI"),
                ElementsAre("0 0", "1000 1", "2000 0", "3000 1", "4000 0", "8000 1"));
    EXPECT_THAT(changesOf(dump, "SPI-CLK"),
                ElementsAre("0 0", "1250 1", "1750 0", "2250 1", "2750 0", "3250 1", "3750 0",
                            "4250 1", "4750 0", "5250 1", "5750 0", "6250 1", "6750 0", "7250 1",
                            "7750 0", "8250 1", "8750 0"));
}

TEST(ValueChangeDump, ShowsClockPolarityPhaseAndBitOrder) {
    const std::string dump = dumpOf(aTransfer("11 4 1000000", "01", "0.000005000"));
    EXPECT_THAT(changesOf(dump, "SPI-MOSI"), ElementsAre("0 0", "1250 1", "2250 0"));
    EXPECT_THAT(changesOf(dump, "SPI-CLK"),
                ElementsAre("0 0", "1000 1", "1250 0", "1750 1", "2250 0", "2750 1", "3250 0",
                            "3750 1", "4250 0", "4750 1"));
}

// In real time a message may be over before its bits would be: 100 ns instead of 1 us are left.
TEST(ValueChangeDump, DrawsATransferFasterThatIsOverEarly) {
    const std::string dump = dumpOf(aTransfer("0 8 1000000", "A1", "0.000001800"));
    EXPECT_THAT(changesOf(dump, "SPI-CS"), ElementsAre("0 1", "1000 0", "1788 1"));
    EXPECT_THAT(changesOf(dump, "SPI-MOSI"),
                ElementsAre("0 0", "1000 1", "1100 0", "1200 1", "1300 0", "1700 1"));
    EXPECT_THAT(changesOf(dump, "SPI-CLK"),
                ElementsAre("0 0", "1025 1", "1075 0", "1125 1", "1175 0", "1225 1", "1275 0",
                            "1325 1", "1375 0", "1425 1", "1475 0", "1525 1", "1575 0", "1625 1",
                            "1675 0", "1725 1", "1775 0"));
}

// Faster than 8 ns a bit cannot be drawn: what follows waits for the end.
TEST(ValueChangeDump, LetsTheWireWaitForATransferThatTookNoTime) {
    const std::string dump =
        dumpOf({"[    0.000001000] STATE SPI-WIRE 0 4 1000000",
                "[    0.000001000] STATE SPI-SELECT 1", "[    0.000001000] SPI 01",
                "[    0.000001010] SPI 08", "[    0.000001010] STATE SPI-SELECT 0",
                "[    0.000001020] STATE SPI-SELECT 1", "[    0.000005000] STATE SPI-SELECT 0"});
    EXPECT_THAT(changesOf(dump, "SPI-CS"),
                ElementsAre("0 1", "1000 0", "1063 1", "1064 0", "5000 1"));
    EXPECT_THAT(changesOf(dump, "SPI-MOSI"), ElementsAre("0 0", "1024 1", "1040 0"));
    EXPECT_THAT(changesOf(dump, "SPI-CLK"),
                ElementsAre("0 0", "1002 1", "1006 0", "1010 1", "1014 0", "1018 1", "1022 0",
                            "1026 1", "1030 0", "1034 1", "1038 0", "1042 1", "1046 0", "1050 1",
                            "1054 0", "1058 1", "1062 0"));
}

// The same as the next, in a hundredth of its time.
TEST(ValueChangeDump, DrawsAMonitorFasterThatIsDoneEarly) {
    const std::string dump =
        dumpOf({"[    0.000000000] STATE I2C 0x49 W nack", "[    0.000000900] STATE I2C-STOP"});
    EXPECT_THAT(changesOf(dump, "I2C-SDA"),
                ElementsAre("0 1", "1 0", "10 1", "110 0", "310 1", "410 0", "610 1", "710 0",
                            "810 1", "870 0", "890 1"));
}

// Two addresses that are answered at once, and another start between them: 20 ns a bit.
TEST(ValueChangeDump, LetsTheBusWaitForATransactionThatTookNoTime) {
    const std::string dump =
        dumpOf({"[    0.000001000] STATE I2C 0x00 W ack", "[    0.000001000] STATE I2C 0x00 W ack",
                "[    0.000001000] STATE I2C-STOP"});
    EXPECT_THAT(changesOf(dump, "I2C-SDA"),
                ElementsAre("0 1", "1000 0", "1174 1", "1180 0", "1358 1"));
    EXPECT_THAT(changesOf(dump, "I2C-SCL").front(), "0 1");
    EXPECT_THAT(changesOf(dump, "I2C-SCL").back(), "1356 1");
}

TEST(ValueChangeDump, ShowsAMonitorThatDoesNotAnswer) {
    const std::string dump =
        dumpOf({"[    0.000000000] STATE I2C 0x49 W nack", "[    0.000090000] STATE I2C-STOP"});
    EXPECT_THAT(changesOf(dump, "I2C-SDA"),
                ElementsAre("0 1", "1 0", "1000 1", "11000 0", "31000 1", "41000 0", "61000 1",
                            "71000 0", "81000 1", "87000 0", "89000 1"));
}

TEST(ValueChangeDump, ShowsPulsesUntilTheyStop) {
    const std::string dump =
        dumpOf({"[    0.000010000] STATE PULSES 20000 1000 0 10000",
                "[    0.000055000] STATE PULSES 0 0 0 0",
                "[    0.000090000] STATE PULSES 50 10 0 90000", "[    0.000100000] STATE END"});
    EXPECT_THAT(changesOf(dump, "FRAME-START"),
                ElementsAre("0 0", "10000 1", "11000 0", "30000 1", "31000 0", "50000 1", "51000 0",
                            "90000 x", "100000 0"));
}

// Inverted, the line rests at 1, whether pulses run or not.
TEST(ValueChangeDump, ShowsInvertedPulsesLow) {
    const std::string dump =
        dumpOf({"[    0.000005000] STATE PULSES 0 0 1 0",
                "[    0.000010000] STATE PULSES 20000 1000 1 10000",
                "[    0.000055000] STATE PULSES 0 0 1 0", "[    0.000060000] STATE PULSES 0 0 0 0",
                "[    0.000070000] STATE PULSES 50 10 1 70000", "[    0.000100000] STATE END"});
    EXPECT_THAT(changesOf(dump, "FRAME-START"),
                ElementsAre("0 0", "5000 1", "10000 0", "11000 1", "30000 0", "31000 1", "50000 0",
                            "51000 1", "60000 0", "70000 x", "100000 1"));
}

// 3.6 million clocks of 36 MHz: 100 ms; 360 clocks: 10 us.
TEST(ValueChangeDump, ShowsPulsesWithThePolarityOfTheirRegister) {
    auto head = sim::aVirtualHead().withStateEvents().build();
    tcRegisters pulses(0xFF211000, 4096);
    pulses.write(2, 360);
    pulses.write(1, 3'600'000);
    head.advance(std::chrono::milliseconds(1));
    pulses.write(0, 0x0000'0001); // rests at 1 from here on
    head.advance(std::chrono::milliseconds(1));
    pulses.write(0, 0x8000'0001);
    head.advance(std::chrono::milliseconds(150));
    pulses.write(0, 0x0000'0001);
    head.advance(std::chrono::milliseconds(48));
    pulses.write(0, 0x8000'0000); // from rest at 1 straight into a pulse
    head.advance(std::chrono::milliseconds(50));
    pulses.write(0, 0x0000'0000);
    EXPECT_THAT(changesOf(dumpOf(head.timedLines()), "FRAME-START"),
                ElementsAre("0 0", "1000000 1", "2000000 0", "2010000 1", "102000000 0",
                            "102010000 1", "200010000 0"));
}

// The counter goes on: the next pulse comes 30 us after the last one. What has begun is finished.
TEST(ValueChangeDump, ShowsPulsesWhosePeriodChanges) {
    const std::string dump = dumpOf({"[    0.000010000] STATE PULSES 20000 1000 0 10000",
                                     "[    0.000030500] STATE PULSES 30000 1000 0 60000",
                                     "[    0.000070000] STATE PULSES 30000 2000 0 60000",
                                     "[    0.000100000] STATE END"});
    EXPECT_THAT(changesOf(dump, "FRAME-START"),
                ElementsAre("0 0", "10000 1", "11000 0", "30000 1", "31000 0", "60000 1", "61000 0",
                            "90000 1", "92000 0"));
}

// A change in the middle of a frame is one for the next; what stops the frames stops this one.
TEST(ValueChangeDump, ShowsFramesToTheirEndUnlessTheyStop) {
    const std::string dump =
        dumpOf({"[    0.000100000] STATE FRAMES 100000 30000 100000",
                "[    0.000210000] STATE FRAMES 200000 50000 400000",
                "[    0.000420000] STATE FRAMES 0 0 0", "[    0.000900000] STATE END"});
    EXPECT_THAT(
        changesOf(dump, "FRAME-VALID"),
        ElementsAre("0 0", "100000 1", "130000 0", "200000 1", "230000 0", "400000 1", "420000 0"));
}

// Edges of the pulses and of the frames, in a run of the head from its start of capture on.
struct tsEdges {
    std::vector<long long> pulses;
    std::vector<long long> frames;
    std::vector<long long> ends; // of frames
};

tsEdges edgesOf(const sim::tcVirtualHead& head) {
    const std::string dump = dumpOf(head.timedLines());
    tsEdges edges;
    for (const std::string& change : changesOf(dump, "FRAME-START")) {
        if (change.back() == '1') {
            edges.pulses.push_back(std::stoll(change));
        }
    }
    for (const std::string& change : changesOf(dump, "FRAME-VALID")) {
        (change.back() == '1' ? edges.frames : edges.ends).push_back(std::stoll(change));
    }
    edges.ends.erase(edges.ends.begin()); // it is low at first
    return edges;
}

// Pulses come every 100 ms; the link aligns 28 ms after the first one.
TEST(ValueChangeDump, ShowsFramesFromTheFirstPulseAfterAlignmentOn) {
    auto head = sim::aVirtualHead().withStateEvents().build();
    tcUser user;
    user.powerUp();
    user.configure();
    ASSERT_EQ(user.bringUp(), 0);
    head.clearLog();
    user.start();
    const long long first = head.now().count() - 8'003'200; // a pause and a register write ago
    head.advance(std::chrono::milliseconds(400));
    user.stop();
    const tsEdges edges = edgesOf(head);
    EXPECT_THAT(edges.pulses,
                ElementsAre(first, first + 100'000'000, first + 200'000'000, first + 300'000'000,
                            first + 400'000'000, first + 500'000'000));
    EXPECT_THAT(edges.frames, ElementsAre(first + 100'000'000, first + 200'000'000,
                                          first + 300'000'000, first + 400'000'000));
    // 1028 lines of 25 us; the sensor is stopped 8 ms into the last frame.
    EXPECT_THAT(edges.ends, ElementsAre(first + 125'700'000, first + 225'700'000,
                                        first + 325'700'000, first + 408'003'200));
    EXPECT_EQ(head.frames(), 3U);
}

// 3999 whole lines of 900 clocks are busy: of pulses every 1,000,000 clocks only each fourth starts
// a frame, of which 1028 lines bring rows. The clock has 36 MHz. The first one starts a frame
// before the link is aligned, which is not whole.
TEST(ValueChangeDump, ShowsFramesAsOftenAsTheSensorStartsThemWhenPulsesComeFaster) {
    auto head = sim::aVirtualHead().withStateEvents().withQuietViolations().build();
    tcUser user;
    user.powerUp();
    user.configure();
    ASSERT_EQ(user.bringUp(), 0);
    user.pulses.write(1, 1'000'000);
    head.clearLog();
    user.start();
    const long long first = head.now().count() - 8'003'200;
    head.advance(std::chrono::milliseconds(300));
    user.port.writeRegister(0x10, 0);
    EXPECT_EQ(head.frames(), 2U);
    const auto states = head.lines(sim::teEventKind::state);
    EXPECT_THAT(states, Contains("STATE PULSES 27777777 277 0 " + std::to_string(first)));
    EXPECT_THAT(states,
                Contains("STATE FRAMES 111111108 25700000 " + std::to_string(first + 138'888'885)));
    const tsEdges edges = edgesOf(head);
    ASSERT_GT(edges.pulses.size(), 9U);
    EXPECT_EQ(edges.pulses[5], first + 138'888'885);
    EXPECT_EQ(edges.pulses[9], first + 249'999'993);
    EXPECT_THAT(edges.frames, ElementsAre(edges.pulses[5], edges.pulses[9]));
    EXPECT_THAT(edges.ends,
                ElementsAre(edges.frames[0] + 25'700'000, edges.frames[1] + 25'700'000));
}

// A head whose link is aligned, and which takes frames with every pulse.
class FramePhase : public testing::Test {
protected:
    void SetUp() override {
        m_user.powerUp();
        m_user.configure();
        ASSERT_EQ(m_user.bringUp(), 0);
        m_head.clearLog();
        m_user.start();
        m_from = m_head.now() - std::chrono::nanoseconds(8'003'200);
    }
    // Milliseconds since the first pulse.
    void advanceTo(int milliseconds) {
        m_head.advance(m_from + std::chrono::milliseconds(milliseconds) - m_head.now());
    }
    // The same, of edges [us].
    [[nodiscard]] std::vector<long long> since(const std::vector<long long>& edges) const {
        std::vector<long long> result;
        for (const long long edge : edges) {
            EXPECT_EQ((edge - m_from.count()) % 1000, 0);
            result.push_back((edge - m_from.count()) / 1000);
        }
        return result;
    }
    sim::tcVirtualHead m_head = sim::aVirtualHead().withStateEvents().withQuietViolations().build();
    tcUser m_user;
    std::chrono::nanoseconds m_from{};
};

// The counter of the pulses goes on when the period is made longer, and the frame that arrives is
// not cut.
TEST_F(FramePhase, GoesOnWithALongerPeriod) {
    advanceTo(210);
    m_user.pulses.write(1, 5'400'000); // 150 ms
    advanceTo(550);
    EXPECT_EQ(m_head.frames(), 4U);
    m_user.stop();
    const tsEdges edges = edgesOf(m_head);
    EXPECT_THAT(since(edges.pulses), ElementsAre(0, 100'000, 200'000, 350'000, 500'000, 650'000));
    EXPECT_THAT(since(edges.frames), ElementsAre(100'000, 200'000, 350'000, 500'000));
    EXPECT_THAT(since(edges.ends), ElementsAre(125'700, 225'700, 375'700, 525'700));
}

// 60 ms after a pulse a period of 50 ms is over: the next one comes at once. The sensor is still
// busy with its frame of 99.975 ms, as it is half a frame later.
TEST_F(FramePhase, BeginsAtOnceWithAPeriodThatIsOver) {
    advanceTo(260);
    m_user.pulses.write(1, 1'800'000); // 50 ms
    advanceTo(490);
    EXPECT_EQ(m_head.frames(), 4U); // of 100, 200, 310 and 410 ms
    m_user.pulses.write(0, 0);
    const tsEdges edges = edgesOf(m_head);
    EXPECT_THAT(since(edges.pulses),
                ElementsAre(0, 100'000, 200'000, 260'000, 310'000, 360'000, 410'000, 460'000));
    EXPECT_THAT(since(edges.frames), ElementsAre(100'000, 200'000, 310'000, 410'000));
    EXPECT_THAT(since(edges.ends), ElementsAre(125'700, 225'700, 335'700, 435'700));
}

// A frame of 8000 lines is on its way over two pulses; it is followed by the one at the third.
TEST_F(FramePhase, WaitsForALongerFrame) {
    advanceTo(210);
    m_user.port.writeRegister(0x12, 8000);
    advanceTo(530);
    EXPECT_EQ(m_head.frames(), 3U);
    m_user.pulses.write(0, 0);
    EXPECT_THAT(since(edgesOf(m_head).frames), ElementsAre(100'000, 200'000, 400'000));
}

// So is one whose rows have all come.
TEST_F(FramePhase, WaitsForAFrameThatIsMadeLongerBehindItsRows) {
    advanceTo(240);
    m_user.port.writeRegister(0x12, 8000);
    advanceTo(530);
    EXPECT_EQ(m_head.frames(), 3U);
    m_user.pulses.write(0, 0);
    EXPECT_THAT(since(edgesOf(m_head).frames), ElementsAre(100'000, 200'000, 400'000));
}

// One that is lost with the alignment keeps the sensor busy all the same: for 160 ms, from 100 ms
// on.
TEST_F(FramePhase, WaitsForAFrameThatIsLost) {
    m_user.port.writeRegister(0x12, 6400);
    advanceTo(120);
    m_user.frameControl.write(11, 0); // aligned again 25 ms after this
    m_user.frameControl.write(11, 0xFFF);
    advanceTo(150);
    m_user.pulses.write(1, 1'800'000); // 50 ms; 50 ms after the last pulse
    advanceTo(340);
    EXPECT_EQ(m_head.frames(), 1U);
    m_user.pulses.write(0, 0);
    const tsEdges edges = edgesOf(m_head);
    EXPECT_THAT(since(edges.pulses), ElementsAre(0, 100'000, 150'000, 200'000, 250'000, 300'000));
    EXPECT_THAT(since(edges.frames), ElementsAre(100'000, 300'000));
    EXPECT_THAT(since(edges.ends), ElementsAre(120'000, 325'700));
}

// Polarity and length of the pulses do not move them.
TEST_F(FramePhase, StaysWithAnotherPolarityAndLength) {
    advanceTo(210);
    m_user.pulses.write(2, 36'000); // 1 ms
    advanceTo(250);
    m_user.pulses.write(0, 0x8000'0001);
    advanceTo(430);
    EXPECT_EQ(m_head.frames(), 4U);
    m_user.pulses.write(0, 1);
    const tsEdges edges = edgesOf(m_head);
    // High pulses until 250 ms, then the ends of low ones.
    EXPECT_THAT(since(edges.pulses), ElementsAre(0, 100'000, 200'000, 250'000, 301'000, 401'000));
    EXPECT_THAT(since(edges.frames), ElementsAre(100'000, 200'000, 300'000, 400'000));
}

// Pulses that stop and run again begin anew; the lanes are held, and align again 28 ms later.
TEST_F(FramePhase, BeginsAnewWithPulsesThatRunAgain) {
    advanceTo(210);
    m_user.pulses.write(0, 0); // in the middle of the rows
    advanceTo(250);
    m_user.pulses.write(0, 0x8000'0000);
    advanceTo(390);
    EXPECT_EQ(m_head.frames(), 2U); // of 100 and 350 ms
    m_user.pulses.write(0, 0);
    const tsEdges edges = edgesOf(m_head);
    EXPECT_THAT(since(edges.pulses), ElementsAre(0, 100'000, 200'000, 250'000, 350'000));
    EXPECT_THAT(since(edges.frames), ElementsAre(100'000, 200'000, 350'000));
    EXPECT_THAT(since(edges.ends), ElementsAre(125'700, 210'000, 375'700));
}

TEST(ValueChangeDump, RefusesWhatNoHeadWrites) {
    EXPECT_THROW(static_cast<void>(dumpOf({"[    0.000000000] STATE VDD9 1 2"})),
                 std::runtime_error);
    EXPECT_THROW(static_cast<void>(dumpOf({"[    0.000000000] STATE PULSES 50 10 0"})),
                 std::runtime_error);
    EXPECT_THROW(static_cast<void>(dumpOf({"[    0.000000000] STATE NOISE 1"})),
                 std::runtime_error);
    EXPECT_THROW(static_cast<void>(dumpOf({"[    0.000000000] STATE SPI-WIRE 0 0 1"})),
                 std::runtime_error);
    EXPECT_THROW(static_cast<void>(dumpOf({"[    0.000000000] STATE SPI-WIRE 0 8 0"})),
                 std::runtime_error);
    EXPECT_THROW(static_cast<void>(dumpOf({"[    0.000000000] SPI zz"})), std::runtime_error);
    EXPECT_THROW(static_cast<void>(dumpOf({"[    0.000000000] STATE I2C 0x49"})),
                 std::runtime_error);
}

} // namespace

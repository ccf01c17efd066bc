// The picture of a value-change dump.

#include <gmock/gmock.h>
#include <regex>
#include <stdexcept>

#include "sim/after/drawing.h"
#include "sim/after/waveform.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::string pictureOf(const std::vector<std::string>& lines) {
    return sim::drawing(sim::waveform(sim::parseTrace(lines)));
}

std::string errorOf(const std::string& dump) {
    try {
        static_cast<void>(sim::drawing(dump));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

// Names of the rows from top to bottom; those in red end in "!".
std::vector<std::string> rowsOf(const std::string& picture) {
    std::vector<std::string> rows;
    const std::regex name("fill=\"(#222|#b00020)\"[^>]*>([^<]*)</text>\n<path [^>]* "
                          "stroke=\"(#[0-9a-f]*)\"[^>]*/>");
    for (std::sregex_iterator at(picture.begin(), picture.end(), name), end; at != end; ++at) {
        const bool red = (*at)[1] == "#b00020";
        EXPECT_EQ(red, (*at)[3] == "#b00020") << (*at)[2]; // name and line
        rows.push_back((*at)[2].str() + (red ? "!" : ""));
    }
    return rows;
}

// Lanes that lock 1 us after their resets; one bit a lane.
std::vector<std::string> lanesThatLock(unsigned lanes) {
    std::vector<std::string> lines{"[    0.000001000] STATE DPA-RESET 4095",
                                   "[    0.000002000] STATE DPA-FIFO-RESET 4095"};
    for (unsigned lane = 0; lane < 12; ++lane) {
        if ((lanes >> lane & 1) != 0) {
            lines.push_back("[    0.000003000] STATE LANE" + std::to_string(lane) + "-LOCK 1");
        }
    }
    lines.emplace_back("[    0.000004000] STATE END");
    return lines;
}

constexpr const char* kResets = "DPA-RESET0 to DPA-RESET11";
constexpr const char* kFifoResets = "DPA-FIFO-RESET0 to DPA-FIFO-RESET11";

TEST(Drawing, ShowsOnlyWhatChanges) {
    const std::string picture =
        pictureOf({"[    0.000001000] GPIO LED_STATUS = 1", "[    0.000002000] STATE END"});
    EXPECT_THAT(picture, StartsWith("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox="));
    EXPECT_THAT(rowsOf(picture), ElementsAre("LED_STATUS"));
}

TEST(Drawing, DrawsALevelThatRisesInTheMiddle) {
    const std::string picture =
        pictureOf({"[    0.000001000] GPIO LED_STATUS = 1", "[    0.000002000] GPIO LED_STATUS = 0",
                   "[    0.000002000] STATE END"});
    // Idle times are 56 wide; the change at the end is the last stretch.
    EXPECT_THAT(picture, HasSubstr("<path d=\"M225.0 55.0 H225.0 V55.0"));
    EXPECT_THAT(picture, HasSubstr(">0.001 ms</text>"));
}

TEST(Drawing, GivesWiresThatDoTheSameOneRow) {
    EXPECT_THAT(
        rowsOf(pictureOf({"[    0.000001000] STATE DPA-HOLD 4095", "[    0.000002000] STATE END"})),
        ElementsAre("DPA-HOLD0 to DPA-HOLD11"));
    EXPECT_THAT(rowsOf(pictureOf(lanesThatLock(0xFFF))),
                ElementsAre("LANE0-LOCK to LANE11-LOCK", kResets, kFifoResets));
}

TEST(Drawing, ShowsADeadLaneInRedAndNoRowThatNamesIt) {
    EXPECT_THAT(rowsOf(pictureOf(lanesThatLock(0xFF7))),
                ElementsAre("LANE0-LOCK to LANE2-LOCK", "LANE3-LOCK!", "LANE4-LOCK to LANE11-LOCK",
                            kResets, kFifoResets));
    EXPECT_THAT(rowsOf(pictureOf(lanesThatLock(0xFFE))),
                ElementsAre("LANE0-LOCK!", "LANE1-LOCK to LANE11-LOCK", kResets, kFifoResets));
    EXPECT_THAT(rowsOf(pictureOf(lanesThatLock(0))),
                ElementsAre("LANE0-LOCK to LANE11-LOCK!", kResets, kFifoResets));
}

// Wires that stay as they are need not be wrong: nobody reset lane 5, so it has no row, and the
// row of its neighbours does not reach over it.
TEST(Drawing, NamesNoWireThatARowDoesNotHold) {
    EXPECT_THAT(
        rowsOf(pictureOf({"[    0.000001000] STATE DPA-HOLD 4063", "[    0.000002000] STATE END"})),
        ElementsAre("DPA-HOLD0 to DPA-HOLD4", "DPA-HOLD6 to DPA-HOLD11"));
    EXPECT_THAT(
        rowsOf(pictureOf(
            {"[    0.000001000] STATE PLL-LOCKED 1", "[    0.000001000] STATE PLL-RG-LOCKED 1",
             "[    0.000001000] STATE PLL-GB-LOCKED 1", "[    0.000002000] STATE END"})),
        ElementsAre("PLL-LOCKED", "PLL-RG-LOCKED", "PLL-GB-LOCKED"));
}

TEST(Drawing, ShowsInRedWhatASwitchedOnPartDidNotDo) {
    EXPECT_THAT(
        rowsOf(pictureOf(
            {"[    0.000001000] STATE CORE-ENABLED 1", "[    0.000002000] STATE PLL-LOCKED 1",
             "[    0.000002000] STATE PLL-RG-LOCKED 1", "[    0.000003000] STATE END"})),
        ElementsAre("SPI-CS!", "SPI-CLK!", "SPI-MOSI!", "FRAME-START!", "CORE-ENABLED",
                    "PLL-LOCKED", "PLL-RG-LOCKED", "PLL-GB-LOCKED!", "ALIGNED!"));
    EXPECT_THAT(
        rowsOf(pictureOf({"[    0.000001000] GPIO PS_1.2V_EN = 1", "[    0.000002000] STATE END"})),
        ElementsAre("PS_1.2V_EN", "PS_3.3SVDD_EN!", "PS_3.3AVDDH_EN!", "RESET_B!", "VDD1.2!",
                    "VDD1.2-GOOD!"));
}

TEST(Drawing, NamesTheLineThatIsWrong) {
    const std::string head = "$timescale 1 ns $end\n$var wire 1 ! A $end\n";
    EXPECT_EQ(errorOf(""), "line 0: the dump has no variables");
    EXPECT_EQ(errorOf("$timescale 1 ps $end\n"), "line 1: only a scale of 1 ns can be drawn");
    EXPECT_EQ(errorOf("$var wire 8 ! A $end\n"),
              "line 1: only scalar wires and real variables can be drawn");
    EXPECT_EQ(errorOf(head + "#x\n"), "line 3: the time is not a number");
    EXPECT_EQ(errorOf(head + "#5\n1!\n#4\n"), "line 5: time goes back");
    EXPECT_EQ(errorOf(head + "2!\n"), "line 3: a wire is 0, 1, x or z");
    EXPECT_EQ(errorOf(head + "1?\n"), "line 3: no variable has the code \"?\"");
    EXPECT_EQ(errorOf(head + "rabc !\n"), "line 3: \"abc\" is not a number");
    EXPECT_EQ(errorOf(head + "#0\n0!\n"), "none");
}

TEST(Drawing, EscapesNames) {
    EXPECT_THAT(sim::drawing("$timescale 1 ns $end\n$var wire 1 ! <A&B> $end\n#0\n0!\n#5\n1!\n"),
                HasSubstr(">&lt;A&amp;B&gt;</text>"));
}

} // namespace

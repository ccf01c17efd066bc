// The picture of a value-change dump.

#include <gmock/gmock.h>
#include <stdexcept>

#include "sim/after/drawing.h"
#include "sim/after/waveform.h"

namespace {

using testing::HasSubstr;
using testing::Not;
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

TEST(Drawing, ShowsOnlyWhatChanges) {
    const std::string picture =
        pictureOf({"[    0.000001000] GPIO RESET_B = 1", "[    0.000002000] STATE END"});
    EXPECT_THAT(picture, StartsWith("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox="));
    EXPECT_THAT(picture, HasSubstr(">RESET_B</text>"));
    EXPECT_THAT(picture, Not(HasSubstr("LED_STATUS")));
}

TEST(Drawing, DrawsALevelThatRisesInTheMiddle) {
    const std::string picture =
        pictureOf({"[    0.000001000] GPIO RESET_B = 1", "[    0.000002000] GPIO RESET_B = 0",
                   "[    0.000002000] STATE END"});
    // Idle times are 56 wide; the change at the end is the last stretch.
    EXPECT_THAT(picture, HasSubstr("<path d=\"M225.0 55.0 H225.0 V55.0"));
    EXPECT_THAT(picture, HasSubstr(">0.001 ms</text>"));
}

TEST(Drawing, GivesWiresThatDoTheSameOneRow) {
    const std::string picture =
        pictureOf({"[    0.000001000] STATE DPA-HOLD 4095", "[    0.000002000] STATE END"});
    EXPECT_THAT(picture, HasSubstr(">DPA-HOLD0 to DPA-HOLD11</text>"));
    EXPECT_THAT(picture, Not(HasSubstr(">DPA-HOLD5")));
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

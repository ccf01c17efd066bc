#include "apps/camhost/arguments.h"

#include <limits>

#include <gmock/gmock.h>

#include "apps/camhost/errors.h"

using camhost::splitLine;
using camhost::tcArguments;
using camhost::tcCommandError;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

tcArguments argumentsOf(const std::string& line) {
    return {"cmd", "VALUE", splitLine(line)};
}

/// \return the text of the error that `f` throws
template<typename F>
std::string errorOf(F&& f) {
    try {
        f();
    } catch (const tcCommandError& error) {
        return error.what();
    }
    return "no error";
}

} // namespace

TEST(Line, IsTakenApartAtBlanks) {
    EXPECT_THAT(splitLine("roi 0\t24  240 20\r").words, ElementsAre("roi", "0", "24", "240", "20"));
    EXPECT_THAT(splitLine("  init ").words, ElementsAre("init"));
}

TEST(Line, HasNoWordsWhenItIsBlankOrAComment) {
    EXPECT_THAT(splitLine("").words, IsEmpty());
    EXPECT_THAT(splitLine(" \t ").words, IsEmpty());
    EXPECT_THAT(splitLine("# init").words, IsEmpty());
    EXPECT_THAT(splitLine("   # init").words, IsEmpty());
}

TEST(Line, EndsWhereACommentBegins) {
    EXPECT_THAT(splitLine("wait 5 # a moment").words, ElementsAre("wait", "5"));
    EXPECT_THAT(splitLine("echo a#b").words, ElementsAre("echo", "a#b"));
    EXPECT_EQ(splitLine("EXPM 1 # external").rest, "1");
}

TEST(Line, HoldsQuotedWordsTogether) {
    EXPECT_THAT(splitLine(R"(save "my file" x)").words, ElementsAre("save", "my file", "x"));
    EXPECT_THAT(splitLine(R"(save my" "file "" )").words, ElementsAre("save", "my file", ""));
    EXPECT_THAT(splitLine(R"(save "#1")").words, ElementsAre("save", "#1"));
}

TEST(Line, KeepsWhatFollowsTheCommandAsItWasTyped) {
    EXPECT_EQ(splitLine("EXPM  1   2 ").rest, "1   2");
    EXPECT_EQ(splitLine("EXPM \"a b\"").rest, "\"a b\"");
    EXPECT_EQ(splitLine("EXPM").rest, "");
}

TEST(Line, IsRefusedWithAnOpenQuoteOrAControlCharacter) {
    EXPECT_EQ(errorOf([] { splitLine("save \"my file"); }),
              "the quote before \"my file\" is not closed; end it with \"");
    EXPECT_EQ(errorOf([] { splitLine("ex\x01"); }),
              "the line holds a control character, number 1; a command is plain text: leave the "
              "character out");
    EXPECT_NE(errorOf([] { splitLine(std::string_view("a\0b", 3)); }), "no error");
    EXPECT_NE(errorOf([] { splitLine("a\x7f"); }), "no error");
    EXPECT_EQ(errorOf([] { splitLine("save \xc3\xa4"); }), "no error");
}

TEST(Arguments, ComeOneByOne) {
    tcArguments arguments = argumentsOf("cmd 5 0x10 word");
    EXPECT_EQ(arguments.count(), 3U);
    EXPECT_EQ(arguments.takeInt("A", 0, 10), 5);
    EXPECT_EQ(arguments.takeInt("B", 0, 16), 16);
    EXPECT_TRUE(arguments.more());
    EXPECT_EQ(arguments.takeWord("C"), "word");
    EXPECT_FALSE(arguments.more());
    arguments.end();
}

TEST(Arguments, SayWhatIsMissing) {
    tcArguments arguments = argumentsOf("cmd");
    EXPECT_EQ(errorOf([&] { arguments.takeWord("VALUE"); }),
              "cmd: VALUE is missing; usage: cmd VALUE");
}

TEST(Arguments, SayWhatIsTooMuch) {
    const tcArguments arguments = argumentsOf("cmd 1");
    EXPECT_EQ(errorOf([&] { arguments.end(); }),
              "cmd: unexpected argument \"1\"; usage: cmd VALUE");
}

TEST(Arguments, SayWhatIsNoNumber) {
    for (const char* word :
         {"abc", "1x", "0x", "1.5", "--1", "0xg", "9223372036854775808", "0x-1"}) {
        tcArguments arguments = argumentsOf(std::string("cmd ") + word);
        EXPECT_EQ(errorOf([&] { arguments.takeInt("VALUE", 0, 9); }),
                  std::string("cmd: VALUE \"") + word +
                      "\" is not a number, decimal or after 0x hexadecimal; usage: cmd VALUE");
    }
}

TEST(Arguments, SayWhatIsOutOfRange) {
    for (const char* word : {"-1", "10", "4294967296"}) {
        tcArguments arguments = argumentsOf(std::string("cmd ") + word);
        EXPECT_EQ(errorOf([&] { arguments.takeInt("VALUE", 0, 9); }),
                  std::string("cmd: VALUE \"") + word +
                      "\" is out of range; it takes 0 to 9; usage: cmd VALUE");
    }
}

TEST(Arguments, TakeTheWholeRangeOfWords) {
    tcArguments arguments = argumentsOf("cmd 0xFFFFFFFF -1 0 -2147483648");
    EXPECT_EQ(arguments.takeWord32("VALUE"), 0xFFFFFFFFU);
    EXPECT_EQ(arguments.takeWord32("VALUE"), 0xFFFFFFFFU);
    EXPECT_EQ(arguments.takeWord32("VALUE"), 0U);
    EXPECT_EQ(arguments.takeWord32("VALUE"), 0x80000000U);
    tcArguments wide = argumentsOf("cmd 0x100000000");
    EXPECT_NE(errorOf([&] { wide.takeWord32("VALUE"); }), "no error");
}

TEST(Arguments, TakeSwitchesByNameAndNumber) {
    tcArguments arguments = argumentsOf("cmd on off 1 0");
    EXPECT_TRUE(arguments.takeSwitch("VALUE"));
    EXPECT_FALSE(arguments.takeSwitch("VALUE"));
    EXPECT_TRUE(arguments.takeSwitch("VALUE"));
    EXPECT_FALSE(arguments.takeSwitch("VALUE"));
    tcArguments wrong = argumentsOf("cmd yes");
    EXPECT_EQ(errorOf([&] { wrong.takeSwitch("VALUE"); }),
              "cmd: VALUE \"yes\" is not known; it takes off, on, or a number from 0 to 1; usage: "
              "cmd VALUE");
    tcArguments two = argumentsOf("cmd 2");
    EXPECT_NE(errorOf([&] { two.takeSwitch("VALUE"); }), "no error");
}

TEST(Arguments, GiveTheRestAsItWasTyped) {
    tcArguments arguments = argumentsOf("cmd  a   b");
    EXPECT_EQ(arguments.takeRest(), "a   b");
    EXPECT_FALSE(arguments.more());
}

TEST(Names, StandForTheirValues) {
    constexpr camhost::tsChoice kChoices[] = {{"free", 0}, {"external", 1}};
    EXPECT_EQ(camhost::nameOf(kChoices, 1), "external");
    EXPECT_EQ(camhost::nameOf(kChoices, 2), "2");
    EXPECT_EQ(camhost::nameOf(kChoices, -1), "-1");
}

TEST(Numbers, AreShownInHexadecimalWithLeadingZeros) {
    EXPECT_EQ(camhost::hexText(0), "0x0");
    EXPECT_EQ(camhost::hexText(0xD8, 3), "0x0D8");
    EXPECT_EQ(camhost::hexText(0xFFFFFFFF, 3), "0xFFFFFFFF");
}

TEST(Numbers, AreReadUpToTheirLimits) {
    std::int64_t value = 0;
    EXPECT_TRUE(camhost::parseNumber("9223372036854775807", value));
    EXPECT_EQ(value, std::numeric_limits<std::int64_t>::max());
    EXPECT_TRUE(camhost::parseNumber("-9223372036854775808", value));
    EXPECT_EQ(value, std::numeric_limits<std::int64_t>::min());
    EXPECT_TRUE(camhost::parseNumber("-0x8000000000000000", value));
    EXPECT_EQ(value, std::numeric_limits<std::int64_t>::min());
    EXPECT_FALSE(camhost::parseNumber("-9223372036854775809", value));
    EXPECT_FALSE(camhost::parseNumber("18446744073709551615", value));
    EXPECT_FALSE(camhost::parseNumber("0x8000000000000000", value));
    EXPECT_FALSE(camhost::parseNumber("-0x8000000000000001", value));
    EXPECT_FALSE(camhost::parseNumber("+-1", value));
    EXPECT_FALSE(camhost::parseNumber("", value));
    EXPECT_FALSE(camhost::parseNumber("+", value));
}

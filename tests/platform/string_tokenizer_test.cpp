#include <varnox/string_tokenizer.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::vector<std::string> tokensOf(const std::string& text, char separator) {
    tcStringTokenizer tokenizer(text, separator);
    std::vector<std::string> tokens;
    while (tokenizer.hasMoreTokens())
        tokens.push_back(tokenizer.nextToken());
    return tokens;
}

using tsTokens = std::vector<std::string>;

constexpr int kUntouched = 4711;

struct tsNumber {
    const char* text;
    int value;
};

class IntegerToken : public testing::TestWithParam<tsNumber> {};

class WordToken : public testing::TestWithParam<const char*> {};

} // namespace

TEST(StringTokenizer, SplitsAtSeparators) {
    EXPECT_EQ(tokensOf("1 two 0x3", ' '), (tsTokens{"1", "two", "0x3"}));
}

TEST(StringTokenizer, TakesRunsOfSeparatorsForOne) {
    EXPECT_EQ(tokensOf("  1   2  ", ' '), (tsTokens{"1", "2"}));
}

TEST(StringTokenizer, SplitsAtTheGivenSeparatorOnly) {
    EXPECT_EQ(tokensOf("a b,c\td", ','), (tsTokens{"a b", "c\td"}));
}

TEST(StringTokenizer, FindsNothingInNothing) {
    EXPECT_EQ(tokensOf("", ' '), tsTokens{});
    EXPECT_EQ(tokensOf("   ", ' '), tsTokens{});
}

TEST(StringTokenizer, AnswersAnEmptyTokenAfterTheLast) {
    tcStringTokenizer tokenizer("one  ", ' ');
    EXPECT_EQ(tokenizer.nextToken(), "one");
    EXPECT_FALSE(tokenizer.hasMoreTokens());
    EXPECT_EQ(tokenizer.nextToken(), "");
    EXPECT_FALSE(tokenizer.hasMoreTokens());
}

TEST(StringTokenizer, AsksForMoreWithoutTakingIt) {
    const tcStringTokenizer tokenizer("one", ' ');
    EXPECT_TRUE(tokenizer.hasMoreTokens());
    EXPECT_TRUE(tokenizer.hasMoreTokens());
}

TEST_P(IntegerToken, IsTakenAsItsValue) {
    tcStringTokenizer tokenizer(GetParam().text, ' ');
    int value = kUntouched;
    EXPECT_TRUE(tokenizer.nextInt(value));
    EXPECT_EQ(value, GetParam().value);
    EXPECT_FALSE(tokenizer.hasMoreTokens());
}

INSTANTIATE_TEST_SUITE_P(StringTokenizer, IntegerToken,
                         testing::Values(tsNumber{"0", 0}, tsNumber{"-0", 0}, tsNumber{"+0", 0},
                                         tsNumber{"7", 7}, tsNumber{"+7", 7}, tsNumber{"-7", -7},
                                         tsNumber{"010", 10}, tsNumber{"0x10", 16},
                                         tsNumber{"0X1f", 31}, tsNumber{"0xAbC", 2748},
                                         tsNumber{"-0x10", -16}, tsNumber{"2147483647", 2147483647},
                                         tsNumber{"2147483648", -2147483647 - 1},
                                         tsNumber{"4294967295", -1}, tsNumber{"0xFFFFFFFF", -1},
                                         tsNumber{"0x80000000", -2147483647 - 1},
                                         tsNumber{"-2147483648", -2147483647 - 1},
                                         tsNumber{"-0x80000000", -2147483647 - 1},
                                         tsNumber{"000000000000000000000000000001", 1}));

TEST_P(WordToken, IsTakenAndLeavesTheValueAlone) {
    tcStringTokenizer tokenizer(std::string(GetParam()) + " 5", ' ');
    int value = kUntouched;
    EXPECT_FALSE(tokenizer.nextInt(value));
    EXPECT_EQ(value, kUntouched);
    EXPECT_TRUE(tokenizer.nextInt(value));
    EXPECT_EQ(value, 5);
}

INSTANTIATE_TEST_SUITE_P(StringTokenizer, WordToken,
                         testing::Values("x", "-", "+", "+-1", "--1", "1-", "0x", "0xg", "-0x",
                                         "1.5", "1e3", "12a", "4294967296", "-2147483649",
                                         "0x100000000", "-0x80000001", "18446744073709551616",
                                         "99999999999999999999999", "\t1", "0x-1", "0x+1", "x10",
                                         "10h"));

TEST(StringTokenizer, FindsNoNumberWhereThereIsNoToken) {
    tcStringTokenizer tokenizer("  ", ' ');
    int value = kUntouched;
    EXPECT_FALSE(tokenizer.nextInt(value));
    EXPECT_EQ(value, kUntouched);
}

TEST(StringTokenizer, TakesNumbersAndWordsInTurn) {
    tcStringTokenizer tokenizer("1 two 3", ' ');
    int value = 0;
    EXPECT_TRUE(tokenizer.nextInt(value));
    EXPECT_EQ(value, 1);
    EXPECT_EQ(tokenizer.nextToken(), "two");
    EXPECT_TRUE(tokenizer.nextInt(value));
    EXPECT_EQ(value, 3);
}

#include "common/print.h"

#include <cstdint>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>

#include <gtest/gtest.h>

namespace {

template<class... Pieces>
std::string printed(const Pieces&... pieces) {
    std::ostringstream stream;
    print(stream, pieces...);
    return stream.str();
}

TEST(Print, NothingPrintsNothing) {
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(printed(""), "");
}

TEST(Print, TextsAreAsTheyAre) {
    const std::string text = "three";
    EXPECT_EQ(printed("one ", std::string_view("two "), text, "\n"), "one two three\n");
}

TEST(Print, BytesAreNumbers) {
    EXPECT_EQ(printed(static_cast<unsigned char>(65), ' ', static_cast<signed char>(-1), ' ',
                      std::uint8_t{255}),
              "6532-132255");
}

TEST(Print, NumbersAreDecimal) {
    EXPECT_EQ(printed(std::uint16_t{65535}), "65535");
    EXPECT_EQ(printed(std::int16_t{-32768}), "-32768");
    EXPECT_EQ(printed(-1), "-1");
    EXPECT_EQ(printed(4294967295U), "4294967295");
    EXPECT_EQ(printed(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(printed(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
}

TEST(Print, FlagsAre0And1) {
    EXPECT_EQ(printed(true, false), "10");
}

TEST(Print, HexadecimalIsLowerCaseWithoutPrefix) {
    EXPECT_EQ(printed(tsHex{0}), "0");
    EXPECT_EQ(printed(tsHex{0xDEADBEEF}), "deadbeef");
}

TEST(Print, FloatsHaveSixSignificantDigitsAsAStreamPrintsThem) {
    EXPECT_EQ(printed(1.2F), "1.2");
    EXPECT_EQ(printed(3.3F), "3.3");
    EXPECT_EQ(printed(0.0F), "0");
    EXPECT_EQ(printed(-0.0F), "-0");
    EXPECT_EQ(printed(2.0F), "2");
    EXPECT_EQ(printed(1.19995117F), "1.19995");
    EXPECT_EQ(printed(123456.0F), "123456");
    EXPECT_EQ(printed(1234567.0F), "1.23457e+06");
    EXPECT_EQ(printed(0.0001F), "0.0001");
    EXPECT_EQ(printed(0.00001F), "1e-05");
    EXPECT_EQ(printed(-1.17549435e-38F), "-1.17549e-38");
    EXPECT_EQ(printed(std::numeric_limits<float>::quiet_NaN()), "nan");
    EXPECT_EQ(printed(std::numeric_limits<float>::infinity()), "inf");
    EXPECT_EQ(printed(-std::numeric_limits<float>::infinity()), "-inf");
}

TEST(Print, TextsOfEveryLengthComeWhole) {
    for (std::size_t length = 0; length < 1100; ++length) {
        const std::string text(length, 'x');
        ASSERT_EQ(printed("<", text, ">", 12, text, "\n"), "<" + text + ">12" + text + "\n");
    }
}

class tcGrouping : public std::numpunct<char> {
    char do_thousands_sep() const override { return '\''; }
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
    std::string do_truename() const override { return "yes"; }
};

TEST(Print, WhateverAStreamWasLeftWithHasNoEffectAndStays) {
    std::ostringstream stream;
    stream.imbue(std::locale(std::locale::classic(), new tcGrouping)); // owned by the locale
    stream << std::hex << std::showbase << std::uppercase << std::boolalpha << std::showpos
           << std::scientific << std::left << std::setfill('*') << std::setprecision(2)
           << std::setw(30);
    const auto flags = stream.flags();
    print(stream, "a", 1234567, true, 1.5F, std::uint8_t{200}, tsHex{0xAB});
    EXPECT_EQ(stream.str(), "a123456711.5200ab");
    EXPECT_EQ(stream.flags(), flags);
    EXPECT_EQ(stream.width(), 30);
    EXPECT_EQ(stream.precision(), 2);
    EXPECT_EQ(stream.fill(), '*');
}

TEST(Print, FlushesWhenAskedTo) {
    class tcBuffer : public std::stringbuf {
    public:
        int flushes = 0;

    private:
        int sync() override {
            ++flushes;
            return 0;
        }
    };
    tcBuffer buffer;
    std::ostream stream(&buffer);
    print(stream, "one\n");
    EXPECT_EQ(buffer.flushes, 0);
    printFlushed(stream, "two\n");
    EXPECT_EQ(buffer.flushes, 1);
    EXPECT_EQ(buffer.str(), "one\ntwo\n");
}

} // namespace

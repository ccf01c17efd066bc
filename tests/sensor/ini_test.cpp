#include "common/ini.h"

#include <INIReader.h>
#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"

namespace {

class Ini : public testing::Test {
protected:
    unsigned int unsignedOf(const std::string& value) {
        m_directory.write("test.ini", "[Settings]\nKey = " + value + "\n");
        return readUnsigned(INIReader("test.ini"), "Settings", "Key", 77);
    }
    std::int32_t integerOf(const std::string& value) {
        m_directory.write("test.ini", "[Settings]\nKey = " + value + "\n");
        return readInteger(INIReader("test.ini"), "Settings", "Key", 77);
    }

private:
    tcTemporaryDirectory m_directory;
};

TEST_F(Ini, UnsignedNumbersAreDecimalOrHexadecimal) {
    EXPECT_EQ(unsignedOf("0"), 0U);
    EXPECT_EQ(unsignedOf("1497"), 1497U);
    EXPECT_EQ(unsignedOf("0x5D9"), 1497U);
    EXPECT_EQ(unsignedOf("0X5d9"), 1497U);
}

TEST_F(Ini, UnsignedNumbersReachAll32Bits) {
    EXPECT_EQ(unsignedOf("0x7FFFFFFF"), 0x7FFFFFFFU);
    EXPECT_EQ(unsignedOf("0x80000000"), 0x80000000U);
    EXPECT_EQ(unsignedOf("0xFFFFFFFF"), 0xFFFFFFFFU);
    EXPECT_EQ(unsignedOf("4294967295"), 4294967295U);
}

// As where `long` has 32 bits.
TEST_F(Ini, UnsignedNumbersBeyond32BitsAreTheLargest) {
    EXPECT_EQ(unsignedOf("4294967296"), 0xFFFFFFFFU);
    EXPECT_EQ(unsignedOf("0x100000001"), 0xFFFFFFFFU);
    EXPECT_EQ(unsignedOf("9223372036854775808"), 0xFFFFFFFFU);
    EXPECT_EQ(unsignedOf("99999999999999999999"), 0xFFFFFFFFU);
    EXPECT_EQ(unsignedOf("-4294967296"), 0xFFFFFFFFU);
    // In 64 bits these look like small numbers, wrapped.
    EXPECT_EQ(unsignedOf("18446744071709551616"), 0xFFFFFFFFU);
    EXPECT_EQ(unsignedOf("18446744073709551615"), 0xFFFFFFFFU);
    EXPECT_EQ(unsignedOf("-18446744071709551616"), 0xFFFFFFFFU);
}

TEST_F(Ini, AMinusSignWraps) {
    EXPECT_EQ(unsignedOf("-1"), 0xFFFFFFFFU);
    EXPECT_EQ(unsignedOf("-2"), 0xFFFFFFFEU);
    EXPECT_EQ(unsignedOf("-4294967295"), 1U);
}

TEST_F(Ini, UnsignedNumbersEndWhereTheirDigitsDo) {
    EXPECT_EQ(unsignedOf("12 lanes"), 12U);
    EXPECT_EQ(unsignedOf("12.9"), 12U);
}

TEST_F(Ini, WhatIsNoUnsignedNumberGivesTheDefault) {
    EXPECT_EQ(unsignedOf(""), 77U);
    EXPECT_EQ(unsignedOf("lanes"), 77U);
    EXPECT_EQ(unsignedOf("-"), 77U);
    EXPECT_EQ(unsignedOf("-x"), 77U);
    EXPECT_EQ(readUnsigned(INIReader("missing.ini"), "Settings", "Key", 0xFFFFFFFF), 0xFFFFFFFFU);
    unsignedOf("1");
    EXPECT_EQ(readUnsigned(INIReader("test.ini"), "Settings", "Other", 3), 3U);
    EXPECT_EQ(readUnsigned(INIReader("test.ini"), "Other", "Key", 4), 4U);
}

TEST_F(Ini, IntegersReachBothEndsOf32Bits) {
    EXPECT_EQ(integerOf("0"), 0);
    EXPECT_EQ(integerOf("-24"), -24);
    EXPECT_EQ(integerOf("0x18 columns"), 24);
    EXPECT_EQ(integerOf("030"), 24);
    EXPECT_EQ(integerOf("2147483647"), 2147483647);
    EXPECT_EQ(integerOf("-2147483648"), -2147483647 - 1);
}

// As where `long` has 32 bits.
TEST_F(Ini, IntegersBeyond32BitsAreTheirEnds) {
    EXPECT_EQ(integerOf("2147483648"), 2147483647);
    EXPECT_EQ(integerOf("4294967320"), 2147483647);
    EXPECT_EQ(integerOf("9223372036854775808"), 2147483647);
    EXPECT_EQ(integerOf("99999999999999999999"), 2147483647);
    EXPECT_EQ(integerOf("-2147483649"), -2147483647 - 1);
    EXPECT_EQ(integerOf("-4294967320"), -2147483647 - 1);
    EXPECT_EQ(integerOf("-99999999999999999999"), -2147483647 - 1);
}

TEST_F(Ini, WhatIsNoIntegerGivesTheDefault) {
    EXPECT_EQ(integerOf(""), 77);
    EXPECT_EQ(integerOf("left"), 77);
    EXPECT_EQ(readInteger(INIReader("missing.ini"), "Settings", "Key", -5), -5);
}

} // namespace

// The arithmetic by itself: boundaries of the numbers, worked out by hand.

#include "sensor/exposure_arithmetic.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

using namespace exposureArithmetic;
using std::chrono::microseconds;

namespace {

constexpr auto kLongest = std::numeric_limits<std::int64_t>::max();
constexpr auto kShortest = std::numeric_limits<std::int64_t>::min();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

TEST(Lines, AreTruncated) {
    EXPECT_EQ(lines(microseconds(0), 36.0F, 899), 0U);
    EXPECT_EQ(lines(microseconds(24), 36.0F, 899), 0U);
    EXPECT_EQ(lines(microseconds(25), 36.0F, 899), 1U);
    EXPECT_EQ(lines(microseconds(49), 36.0F, 899), 1U);
    EXPECT_EQ(lines(microseconds(50), 36.0F, 899), 2U);
    EXPECT_EQ(lines(microseconds(30000), 24.0F, 899), 800U);
}

TEST(Lines, OfOneClockAndOfTheLongestLine) {
    EXPECT_EQ(lines(microseconds(1), 36.0F, 0), 36U);
    EXPECT_EQ(lines(microseconds(4096), 36.0F, 4095), 36U);
}

TEST(Lines, AreSinglePrecision) {
    // 431.99997 in higher precision
    EXPECT_EQ(lines(microseconds(10803), 35.99F, 899), 432U);
    // 1864225 * 36 = 67112100 is 67112096 in single precision; 74569 in higher precision
    EXPECT_EQ(lines(microseconds(1864225), 36.0F, 899), 74568U);
    // 16777217 is 16777216 in single precision
    EXPECT_EQ(lines(microseconds(16777217), 1.0F, 0), 16777216U);
}

TEST(Lines, SaturateInsteadOfWrapping) {
    EXPECT_EQ(lines(microseconds(4294967040), 1.0F, 0), 4294967040U); // largest float below 2^32
    EXPECT_EQ(lines(microseconds(4294967296), 1.0F, 0), 4294967295U);
    EXPECT_EQ(lines(microseconds(kLongest), 36.0F, 899), 4294967295U);
    EXPECT_EQ(lines(microseconds(1), kInfinity, 899), 4294967295U);
}

TEST(Lines, OfNegativeTimesAndOfNothingAreZero) {
    EXPECT_EQ(lines(microseconds(-1), 36.0F, 0), 0U);
    EXPECT_EQ(lines(microseconds(-1000000), 36.0F, 899), 0U);
    EXPECT_EQ(lines(microseconds(kShortest), 36.0F, 899), 0U);
    EXPECT_EQ(lines(microseconds(100), 0.0F, 899), 0U);
    EXPECT_EQ(lines(microseconds(100), -36.0F, 899), 0U);
    EXPECT_EQ(lines(microseconds(0), kInfinity, 899), 0U); // not a number
    EXPECT_EQ(lines(microseconds(100), std::nanf(""), 899), 0U);
}

TEST(FrameLength, KeepsTheLow16BitsBeforeItIsLimited) {
    EXPECT_EQ(frameLength(microseconds(16382), 1.0F, 0), 16382);
    EXPECT_EQ(frameLength(microseconds(16383), 1.0F, 0), 16383);
    EXPECT_EQ(frameLength(microseconds(16384), 1.0F, 0), 16383);
    EXPECT_EQ(frameLength(microseconds(65535), 1.0F, 0), 16383);
    EXPECT_EQ(frameLength(microseconds(65536), 1.0F, 0), 0);
    EXPECT_EQ(frameLength(microseconds(65536 + 100), 1.0F, 0), 100);
    EXPECT_EQ(frameLength(microseconds(4294967296), 1.0F, 0), 16383);
}

TEST(ReadoutTime, OfTheWholeArray) {
    EXPECT_EQ(readoutTime(2056, 900, 36.0F, false).count(), 27125);
    EXPECT_EQ(readoutTime(2056, 900, 36.0F, true).count(), 54250);
}

TEST(ReadoutTime, OfTheMostRows) {
    // (2147483647 + 57) * 4096 = 8796093255680 is 2^43 in single precision; / 36 = 244335917283.6
    EXPECT_EQ(readoutTime(4294967295U, 4096, 36.0F, false).count(), 244335919104);
}

TEST(ReadoutTime, WithoutAClockIsTheLargestUnsignedCount) {
    EXPECT_EQ(readoutTime(0, 1, 0.0F, false).count(), -1);
    EXPECT_EQ(readoutTime(0, 1, 0.0F, true).count(), -2);
    EXPECT_EQ(readoutTime(0, 1, std::nanf(""), false).count(), 0);
    EXPECT_EQ(readoutTime(0, 1, -1.0F, true).count(), 0);
}

TEST(ReadoutTime, KeepsCountsThatNeed64Bits) {
    // 57 / 2^-50 = 57 * 2^50
    EXPECT_EQ(readoutTime(0, 1, std::ldexp(1.0F, -50), false).count(), 64176294690029568);
    // 57 * 2^58 lies between 2^63 and 2^64
    EXPECT_EQ(readoutTime(0, 1, std::ldexp(1.0F, -58), false).count(),
              -2017612633061982208); // 57 * 2^58 - 2^64
}

TEST(SingleExposure, OfAFrameOf1000Lines) {
    const auto result = singleExposure(microseconds(0), 36.0F, 899, 1000);
    EXPECT_EQ(result.gsPos1, 998);
    EXPECT_EQ(result.gresPos, 996);
    EXPECT_EQ(result.requestedLines, 0U);
    EXPECT_FALSE(result.limited);
    EXPECT_EQ(result.accFposBeforeRaise, 998U);
    EXPECT_TRUE(result.raised);
    EXPECT_EQ(result.accFpos, 997U);
    EXPECT_EQ(result.applied.count(), 25);
}

TEST(SingleExposure, OfAFrameOfNoLines) {
    const auto result = singleExposure(microseconds(kLongest), 36.0F, 4095, 0);
    EXPECT_EQ(result.gsPos1, 65534);
    EXPECT_EQ(result.gresPos, 65532);
    EXPECT_EQ(result.requestedLines, 4294967295U);
    EXPECT_TRUE(result.limited);
    EXPECT_FALSE(result.raised);
    EXPECT_EQ(result.accFpos, 0U);
    // 4096 * 65534 = 268427264; / 36 = 7456312.9, in single precision 7456313
    EXPECT_EQ(result.applied.count(), 7456313);
}

TEST(SingleExposure, StartsAFullTurnBeforeAPositionOfZero) {
    const auto result = singleExposure(microseconds(0), 36.0F, 899, 2);
    EXPECT_EQ(result.gsPos1, 0);
    EXPECT_EQ(result.gresPos, 65534);
    EXPECT_TRUE(result.raised);
    EXPECT_EQ(result.accFpos, 4294967295U);
    EXPECT_EQ(result.applied.count(), 25);
}

TEST(DualExposure, StartsAFullTurnBeforeAPositionOfZero) {
    const auto result = dualExposure(microseconds(0), 36.0F, 899, 2);
    EXPECT_EQ(result.gsPos2, 0);
    EXPECT_EQ(result.accFposBeforeRaise, 0U);
    EXPECT_TRUE(result.raised);
    EXPECT_EQ(result.accFposBeforeEven, 4294967294U);
    EXPECT_FALSE(result.madeEven);
    EXPECT_EQ(result.accFpos, 4294967294U);
    EXPECT_EQ(result.gsPos1, 65535);
    EXPECT_EQ(result.gresPos, 65533);
    EXPECT_EQ(result.applied.count(), 50);
}

TEST(DualExposure, OfAnOddCount) {
    const auto result = dualExposure(microseconds(10025), 36.0F, 899, 1000);
    EXPECT_EQ(result.requestedLines, 401U);
    EXPECT_FALSE(result.limited);
    EXPECT_FALSE(result.raised);
    EXPECT_EQ(result.accFposBeforeEven, 597U);
    EXPECT_TRUE(result.madeEven);
    EXPECT_EQ(result.accFpos, 598U);
    EXPECT_EQ(result.gsPos1, 798);
    EXPECT_EQ(result.gresPos, 796);
    EXPECT_EQ(result.applied.count(), 10000);
}

TEST(TriggeredExposure, IsLimitedFrom16384LinesOn) {
    const auto longest = triggeredExposure(microseconds(16383), 1.0F, 0);
    EXPECT_FALSE(longest.limited);
    EXPECT_EQ(longest.count, 16383U);
    EXPECT_EQ(longest.end, 16381U);
    const auto tooLong = triggeredExposure(microseconds(16384), 1.0F, 0);
    EXPECT_TRUE(tooLong.limited);
    EXPECT_EQ(tooLong.count, 16383U);
    EXPECT_EQ(tooLong.end, 16381U);
}

TEST(TriggeredExposure, IsAtLeastTwoLines) {
    for (const int lines : {-5, 0, 1, 2}) {
        const auto result = triggeredExposure(microseconds(lines), 1.0F, 0);
        EXPECT_FALSE(result.limited);
        EXPECT_EQ(result.count, 2U);
        EXPECT_EQ(result.end, 0U);
    }
    EXPECT_EQ(triggeredExposure(microseconds(3), 1.0F, 0).count, 3U);
}

} // namespace

#include "common/saturate.h"

#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>

namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinite = std::numeric_limits<float>::infinity();

TEST(Saturate, TruncatesTowardsZero) {
    EXPECT_EQ(saturatingTo<std::uint32_t>(0.999F), 0U);
    EXPECT_EQ(saturatingTo<std::uint32_t>(1.0F), 1U);
    EXPECT_EQ(saturatingTo<std::uint32_t>(1.999F), 1U);
    EXPECT_EQ(saturatingTo<std::uint64_t>(8388607.5F), 8388607U);
}

TEST(Saturate, NegativeNumbersAndWhatIsNoNumberGive0) {
    for (const float value : {-0.0F, -0.5F, -1.0F, -1e30F, -kInfinite, kNan, -kNan}) {
        EXPECT_EQ(saturatingTo<std::uint16_t>(value), 0U);
        EXPECT_EQ(saturatingTo<std::uint32_t>(value), 0U);
        EXPECT_EQ(saturatingTo<std::uint64_t>(value), 0U);
    }
}

TEST(Saturate, TheLargestFloatBelowTheEndIsExact) {
    EXPECT_EQ(saturatingTo<std::uint16_t>(65535.0F), 65535U);
    EXPECT_EQ(saturatingTo<std::uint16_t>(65535.996F), 65535U);
    EXPECT_EQ(saturatingTo<std::uint32_t>(4294967040.0F), 4294967040U);
    EXPECT_EQ(saturatingTo<std::uint64_t>(18446742974197923840.0F), 18446742974197923840U);
}

TEST(Saturate, FromTheEndOnItIsTheMaximum) {
    EXPECT_EQ(saturatingTo<std::uint16_t>(65536.0F), 65535U);
    EXPECT_EQ(saturatingTo<std::uint32_t>(4294967296.0F), 4294967295U);
    EXPECT_EQ(saturatingTo<std::uint64_t>(18446744073709551616.0F), 18446744073709551615U);
    for (const float value : {1e38F, kInfinite}) {
        EXPECT_EQ(saturatingTo<std::uint16_t>(value), 65535U);
        EXPECT_EQ(saturatingTo<std::uint32_t>(value), 4294967295U);
        EXPECT_EQ(saturatingTo<std::uint64_t>(value), 18446744073709551615U);
    }
}

} // namespace

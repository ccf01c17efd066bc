#include <varnox/roi.h>

#include <cstddef>
#include <limits>

#include <gtest/gtest.h>

using Varnox::ROI;

TEST(Roi, TextNamesEveryField) {
    EXPECT_EQ((ROI{2, 24, 240, 20}.toString()), "[y: 2, x: 24, width: 240, height: 20]");
}

TEST(Roi, TextShowsNegativeAndExtremeNumbers) {
    constexpr auto kLowest = std::numeric_limits<std::int32_t>::min();
    constexpr auto kHighest = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ((ROI{-1, kLowest, kHighest, 0}.toString()),
              "[y: -1, x: -2147483648, width: 2147483647, height: 0]");
}

TEST(Roi, IsAllZeroAtFirst) {
    EXPECT_EQ(ROI{}.toString(), "[y: 0, x: 0, width: 0, height: 0]");
}

TEST(Roi, FieldsStandInTheHostsOrder) {
    EXPECT_EQ(offsetof(ROI, y), 0U);
    EXPECT_EQ(offsetof(ROI, x), 4U);
    EXPECT_EQ(offsetof(ROI, width), 8U);
    EXPECT_EQ(offsetof(ROI, height), 12U);
    EXPECT_EQ(sizeof(ROI), 16U);
}

TEST(Roi, DiffersInEveryField) {
    const ROI roi{1, 2, 3, 4};
    EXPECT_EQ(roi, (ROI{1, 2, 3, 4}));
    EXPECT_FALSE(roi != roi);
    EXPECT_NE(roi, (ROI{0, 2, 3, 4}));
    EXPECT_NE(roi, (ROI{1, 0, 3, 4}));
    EXPECT_NE(roi, (ROI{1, 2, 0, 4}));
    EXPECT_NE(roi, (ROI{1, 2, 3, 0}));
}

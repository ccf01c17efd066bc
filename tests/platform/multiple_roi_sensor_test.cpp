#include <varnox/multiple_roi_sensor.h>

#include <gtest/gtest.h>

TEST(MultipleRoiSensor, HasAsManyEmptyRegionsAsSlots) {
    const Varnox::tcMultipleROISensor sensor(8);
    ASSERT_EQ(sensor.regions.size(), 8U);
    for (const Varnox::ROI& roi : sensor.regions)
        EXPECT_EQ(roi, (Varnox::ROI{0, 0, 0, 0}));
    EXPECT_EQ(sensor.numberOfRegions, 0);
}

TEST(MultipleRoiSensor, ProgramsNothingByItself) {
    Varnox::tcMultipleROISensor sensor(1);
    EXPECT_EQ(sensor.programMultipleROI(), 7);
}

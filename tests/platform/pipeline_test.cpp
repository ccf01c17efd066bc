#include <varnox/pipeline.h>

#include <gtest/gtest.h>

using Varnox::ROI;
using Varnox::tcPipeline;

TEST(Pipeline, StartsWithTwelveBitsAndNothingElse) {
    tcPipeline pipeline;
    EXPECT_EQ(pipeline.getPixelPacking(), 2);
    EXPECT_EQ(pipeline.getFrameCount(), 0);
    EXPECT_EQ(pipeline.getGeometry(), ROI());
    EXPECT_EQ(pipeline.getGamma(), 100);
    EXPECT_FALSE(pipeline.getColor());
    EXPECT_FALSE(pipeline.isStreaming());
}

TEST(Pipeline, RemembersWhatItIsTold) {
    tcPipeline pipeline;
    EXPECT_EQ(pipeline.setFrameCount(12), 0);
    EXPECT_EQ(pipeline.setGeometry(ROI{1, 2, 3, 4}), 0);
    EXPECT_EQ(pipeline.setColor(true), 0);
    EXPECT_EQ(pipeline.setGamma(45), 0);
    EXPECT_EQ(pipeline.getFrameCount(), 12);
    EXPECT_EQ(pipeline.getGeometry(), (ROI{1, 2, 3, 4}));
    EXPECT_TRUE(pipeline.getColor());
    EXPECT_EQ(pipeline.getGamma(), 45);
}

TEST(Pipeline, TakesTheThreePackingsOnly) {
    tcPipeline pipeline;
    for (const int packing : {1, 2, 3}) {
        EXPECT_EQ(pipeline.setPixelPacking(packing), 0);
        EXPECT_EQ(pipeline.getPixelPacking(), packing);
    }
    for (const int packing : {-1, 0, 4}) {
        EXPECT_EQ(pipeline.setPixelPacking(packing), 3);
        EXPECT_EQ(pipeline.getPixelPacking(), 3);
    }
}

TEST(Pipeline, StreamsBetweenStartAndStop) {
    tcPipeline pipeline;
    EXPECT_EQ(pipeline.open(), 0);
    EXPECT_FALSE(pipeline.isStreaming());
    EXPECT_EQ(pipeline.startStream(), 0);
    EXPECT_TRUE(pipeline.isStreaming());
    EXPECT_EQ(pipeline.flush(), 0);
    EXPECT_TRUE(pipeline.isStreaming());
    EXPECT_EQ(pipeline.stopStream(), 0);
    EXPECT_FALSE(pipeline.isStreaming());
}

TEST(Pipeline, StopsStreamingWhenItIsClosed) {
    tcPipeline pipeline;
    EXPECT_EQ(pipeline.startStream(), 0);
    EXPECT_EQ(pipeline.close(), 0);
    EXPECT_FALSE(pipeline.isStreaming());
}

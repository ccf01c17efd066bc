// Pixel depth, colour, test pattern and gain.

#include <varnox/pipeline.h>

#include "tests/plugin/plugin_test.h"

using Varnox::teBPPMode;
using Varnox::teTestPattern;

namespace {

class Features : public tcPluginTest {};

} // namespace

// ---- setBPP

TEST_F(Features, DepthZeroClearsTheShiftThenPacksTwelveBits) {
    makeReadyBoard();
    head().setFpgaWord(0xFF217000, 0x80000014); // held, to the left, by 4
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setBPP(static_cast<teBPPMode>(0)); }),
              text({
                  status(6, "setBPP: 0"),
                  load(0xFF217000, 0x80000014),
                  store(0xFF217000, 0x80000000),
                  packing(2),
              }));
    EXPECT_EQ(result, 0);
}

TEST_F(Features, DepthTwoShiftsToTheLeftByFourThenPacksEightBits) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setBPP(static_cast<teBPPMode>(2)); }),
              text({
                  status(6, "setBPP: 2"),
                  load(0xFF217000, 0x80000000), // held, as before a capture
                  store(0xFF217000, 0x80000014),
                  packing(1),
              }));
    EXPECT_EQ(result, 0);
}

TEST_F(Features, DepthThreeShiftsToTheLeftByFourThenPacksSixteenBits) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setBPP(static_cast<teBPPMode>(3)); }),
              text({
                  status(6, "setBPP: 3"),
                  load(0xFF217000, 0x80000000), // held, as before a capture
                  store(0xFF217000, 0x80000014),
                  packing(3),
              }));
    EXPECT_EQ(result, 0);
}

TEST_F(Features, OtherDepthsAreReportedAndRefused) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().setBPP(static_cast<teBPPMode>(1)); }),
              text({status(6, "setBPP: 1")}));
    EXPECT_EQ(result, 4);
    EXPECT_EQ(seen([&] { result = board().setBPP(static_cast<teBPPMode>(4)); }),
              text({status(6, "setBPP: 4")}));
    EXPECT_EQ(result, 4);
    EXPECT_EQ(seen([&] { result = board().setBPP(static_cast<teBPPMode>(-1)); }),
              text({status(6, "setBPP: 4294967295")}));
    EXPECT_EQ(result, 4);
}

TEST_F(Features, ADepthIsSetWhateverPixelShiftAndPipelineAnswer) {
    class tcAnsweringPipeline : public Varnox::tcPipeline {
    public:
        int answer = 0;
        std::vector<int> codes;
        int setPixelPacking(int code) override {
            codes.push_back(code);
            return answer;
        }
    };
    useHead(aQuickHead().withSilentCore(sim::teCore::pixelShift)); // answers false
    makeBoard();
    tcAnsweringPipeline pipeline;
    board().setPipeline(&pipeline);
    EXPECT_EQ(
        seen([&] { EXPECT_EQ(board().setBPP(static_cast<teBPPMode>(0)), 0); }),
        text({
            status(6, "setBPP: 0"),
            complained("tcPixelShift at 0xFF217000: setShift: the core is not there\n"), // once
        }));
    for (const int answer : {1, 3, 4, 6, 7, -1}) {
        pipeline.answer = answer;
        pipeline.codes.clear();
        for (const int mode : {0, 2, 3}) {
            EXPECT_EQ(seen([&] { EXPECT_EQ(board().setBPP(static_cast<teBPPMode>(mode)), 0); }),
                      text({status(6, "setBPP: " + std::to_string(mode))}));
        }
        EXPECT_THAT(pipeline.codes, testing::ElementsAre(2, 1, 3));
    }
    board().setPipeline(nullptr);
}

// ---- setColor

TEST_F(Features, ColorIsReportedWithoutALevelAndGivenToTheBadPixelCore) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setColor(true), 0); }), text({
                                                                       status(-1, "setColor: 1"),
                                                                       load(0xFF215000, 0x1),
                                                                       store(0xFF215000, 0x5),
                                                                   }));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setColor(false), 0); }), text({
                                                                        status(-1, "setColor: 0"),
                                                                        load(0xFF215000, 0x5),
                                                                        store(0xFF215000, 0x1),
                                                                    }));
}

// ---- Test pattern

TEST_F(Features, TestPatternIsOffAtFirst) {
    makeBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().getTestPattern(), 0); }), "");
}

TEST_F(Features, KnownTestPatternsReachTheSensorAndAreStoredAsGiven) {
    makeReadyBoard();
    const auto set = [&](int pattern) {
        return seen(
            [&] { EXPECT_EQ(board().setTestPattern(static_cast<teTestPattern>(pattern)), 0); });
    };
    EXPECT_EQ(set(1), text({spi(0x300, 0x30000)}));
    EXPECT_EQ(board().getTestPattern(), 1);
    EXPECT_EQ(set(17), text({spi(0x300, 0x40000)}));
    EXPECT_EQ(board().getTestPattern(), 17);
    EXPECT_EQ(set(16), text({spi(0x300, 0x30000)}));
    EXPECT_EQ(board().getTestPattern(), 16);
    EXPECT_EQ(set(0), text({spi(0x300, 0)}));
    EXPECT_EQ(board().getTestPattern(), 0);
}

TEST_F(Features, EveryOtherTestPatternIsRefusedAndChangesNothing) {
    makeReadyBoard();
    ASSERT_EQ(board().setTestPattern(static_cast<teTestPattern>(17)), 0);
    for (const int pattern :
         {-1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 18, 32, 0x7FFFFFFF}) {
        int result = -1;
        EXPECT_EQ(
            seen([&] { result = board().setTestPattern(static_cast<teTestPattern>(pattern)); }),
            "");
        EXPECT_EQ(result, 3) << pattern;
        EXPECT_EQ(board().getTestPattern(), 17) << pattern;
    }
}

TEST_F(Features, GetTestPatternDoesNotAskTheSensor) {
    makeReadyBoard();
    ASSERT_EQ(board().setTestPattern(static_cast<teTestPattern>(16)), 0);
    board().poke(0x300, 0x40000);
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().getTestPattern(), 16); }), "");
}

// ---- Gain

TEST_F(Features, DigitalGainReachesTheSensorAndIsAnsweredFromTheDriver) {
    makeReadyBoard();
    board().poke(0x42, 0x50); // the fine gain in the same register stays
    for (const std::uint32_t gain : {1U, 3U, 2U, 0U}) {
        int result = -1;
        EXPECT_EQ(
            seen([&] { result = board().setDGain(static_cast<tc3U5MGXS::teDGainCoarse>(gain)); }),
            text({spi(0x42, 0x50 + gain)}));
        EXPECT_EQ(result, 0);
        EXPECT_EQ(seen([&] { EXPECT_EQ(board().getDGain(), gain); }), "");
    }
}

TEST_F(Features, DigitalGainIsNotPublishedWhenItIsSet) {
    makeReadyBoard();
    ASSERT_EQ(registerFile().read_word(0x3D004), 0U);
    board().setDGain(tc3U5MGXS::eDGain2);
    EXPECT_EQ(registerFile().read_word(0x3D004), 0U);
}

// Reading back a trace.

#include <gmock/gmock.h>
#include <stdexcept>

#include "sim/after/trace_reader.h"
#include "sim/base/timed_text.h"

namespace {

using testing::ElementsAre;

std::string errorOfTrace(const std::string& text) {
    try {
        static_cast<void>(sim::parseTrace(std::string_view(text)));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

TEST(Trace, HasTimeWordsAndText) {
    const auto trace = sim::parseTrace(
        std::string_view("[    0.301003200] SPI 0F B9\n[   12.000000001] NOTE a b\n"));
    ASSERT_EQ(trace.size(), 2U);
    EXPECT_EQ(trace[0].timeNs, 301003200U);
    EXPECT_THAT(trace[0].words, ElementsAre("SPI", "0F", "B9"));
    EXPECT_EQ(trace[1].timeNs, 12000000001U);
    EXPECT_EQ(trace[1].text, "NOTE a b");
}

TEST(Trace, IsPutInTheOrderOfTimeAndKeepsTheOrderOfAnInstant) {
    const auto trace = sim::parseTrace(std::vector<std::string>{
        "[    0.000000002] B", "[    0.000000002] A", "[    0.000000001] C"});
    ASSERT_EQ(trace.size(), 3U);
    EXPECT_EQ(trace[0].text, "C");
    EXPECT_EQ(trace[1].text, "B");
    EXPECT_EQ(trace[2].text, "A");
}

TEST(Trace, NamesTheLineThatIsWrong) {
    const std::string good = "[    0.000000002] B\n";
    EXPECT_EQ(errorOfTrace(good + "hello\n"), "line 2: expected \"[TIME] EVENT\"");
    EXPECT_EQ(errorOfTrace("\n"), "line 1: expected \"[TIME] EVENT\"");
    EXPECT_EQ(errorOfTrace("[ ] A"), "line 1: a time is seconds with nine digits after the point");
    EXPECT_EQ(errorOfTrace("[    1.5] A"),
              "line 1: a time is seconds with nine digits after the point");
    EXPECT_EQ(errorOfTrace(good + good + "[   -1.000000000] A"),
              "line 3: the time is not a number");
    EXPECT_EQ(errorOfTrace("[99999999999999999999.000000000] A"),
              "line 1: the time is not a number");
    EXPECT_EQ(errorOfTrace("[9999999999.000000000] A"), "line 1: the time is out of range");
    EXPECT_EQ(errorOfTrace("[    0.000000000]  "), "line 1: there is no event behind the time");
}

TEST(Trace, KnowsNumbers) {
    EXPECT_EQ(sim::numberFrom("12"), 12U);
    EXPECT_EQ(sim::numberFrom("0x1F"), 31U);
    EXPECT_EQ(sim::numberFrom("1F", 16), 31U);
    EXPECT_THROW(static_cast<void>(sim::numberFrom("1F")), std::runtime_error);
    EXPECT_THROW(static_cast<void>(sim::numberFrom("")), std::runtime_error);
    EXPECT_THROW(static_cast<void>(sim::numberFrom("0x")), std::runtime_error);
    EXPECT_THROW(static_cast<void>(sim::numberFrom("18446744073709551616")), std::runtime_error);
}

} // namespace

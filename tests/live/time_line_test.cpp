// The events of a run, kept within a budget, and the state at any of them.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/live/time_line.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kPlenty = std::size_t{64} * 1024 * 1024;

std::vector<std::string> told(const live::tcTimeLine& timeLine, std::uint64_t from,
                              std::size_t most) {
    std::vector<std::string> result;
    for (const live::tsShownEvent& event : timeLine.events(from, most)) {
        result.push_back(std::to_string(event.number) + " of " + std::to_string(event.process) +
                         " at " + std::to_string(event.timeNs) + ": " + event.text);
    }
    return result;
}

TEST(TimeLine, IsEmptyAtFirst) {
    const live::tcTimeLine timeLine(kPlenty);
    EXPECT_EQ(timeLine.first(), 0U);
    EXPECT_EQ(timeLine.next(), 0U);
    EXPECT_THAT(timeLine.events(0, 10), IsEmpty());
    EXPECT_FALSE(timeLine.stateAt(0));
    EXPECT_EQ(timeLine.processAt(0), 0U);
}

TEST(TimeLine, NumbersEventsOverAllHeads) {
    live::tcTimeLine timeLine(kPlenty);
    timeLine.begin(1);
    timeLine.add(5, "STATE ALIGNED 1");
    timeLine.add(6, "NOTE a");
    timeLine.begin(2);
    EXPECT_FALSE(timeLine.state().flag("ALIGNED")); // another head
    timeLine.add(1, "NOTE b");
    EXPECT_THAT(told(timeLine, 0, 10), ElementsAre("0 of 1 at 5: STATE ALIGNED 1",
                                                   "1 of 1 at 6: NOTE a", "2 of 2 at 1: NOTE b"));
    EXPECT_THAT(told(timeLine, 1, 1), ElementsAre("1 of 1 at 6: NOTE a"));
    EXPECT_THAT(told(timeLine, 3, 1), IsEmpty());
    EXPECT_TRUE(timeLine.stateAt(1)->flag("ALIGNED"));
    EXPECT_FALSE(timeLine.stateAt(2)->flag("ALIGNED"));
    EXPECT_FALSE(timeLine.stateAt(3));
    EXPECT_EQ(timeLine.processAt(1), 1U);
    EXPECT_EQ(timeLine.processAt(2), 2U);
}

TEST(TimeLine, TellsOfLostEvents) {
    live::tcTimeLine timeLine(kPlenty);
    timeLine.begin(1);
    timeLine.add(5, "STATE ALIGNED 1");
    timeLine.lost(120);
    EXPECT_THAT(told(timeLine, 1, 10), ElementsAre("1 of 1 at 5: LOST 120 events"));
    EXPECT_TRUE(timeLine.stateAt(0)->flag("ALIGNED"));
    EXPECT_FALSE(timeLine.stateAt(1)->flag("ALIGNED"));
    EXPECT_EQ(timeLine.stateAt(1)->lostEvents(), 120U);
}

// The state at an event is that of all events before, however long ago they were let go.
TEST(TimeLine, StaysExactWithinItsBudget) {
    constexpr std::size_t budget = std::size_t{1} * 1024 * 1024;
    live::tcTimeLine timeLine(budget);
    timeLine.begin(1);
    timeLine.add(0, "STATE ALIGNED 1");
    for (std::uint64_t at = 1; at < 100'000; ++at) {
        timeLine.add(at, at % 2 == 0 ? "STATE LANE3-LOCK 1" : "STATE LANE3-LOCK 0");
    }
    EXPECT_EQ(timeLine.next(), 100'000U);
    // An event takes some 34 bytes here: about 30,000 of them fit, a piece of 2,048 more or less.
    EXPECT_GT(timeLine.first(), 60'000U);
    EXPECT_LT(timeLine.first(), 80'000U);
    EXPECT_FALSE(timeLine.stateAt(timeLine.first() - 1));
    for (const std::uint64_t at :
         {timeLine.first(), std::uint64_t{90'000}, std::uint64_t{99'999}}) {
        EXPECT_EQ(timeLine.stateAt(at)->flag("LANE3-LOCK"), at % 2 == 0) << at;
        EXPECT_EQ(timeLine.stateAt(at)->timeNs(), at);
        EXPECT_TRUE(timeLine.stateAt(at)->flag("ALIGNED"));
    }
    EXPECT_EQ(timeLine.events(0, 1).front().number, timeLine.first());
}

} // namespace

#include "apps/camhost/board_talk.h"

#include <cmath>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>

using camhost::lanesOf;
using camhost::tcBoardTalk;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::Pair;
using testing::SizeIs;

TEST(BoardTalk, HandsEverythingOnAsItComes) {
    std::ostringstream stream;
    {
        tcBoardTalk talk(stream);
        stream << "Opening..." << std::flush << "Done!\n" << 'x' << std::hex << 255;
    }
    stream << "!";
    EXPECT_EQ(stream.str(), "Opening...Done!\nxff!");
}

TEST(BoardTalk, KeepsTheLastVoltageOfEverySupply) {
    std::ostringstream stream;
    const tcBoardTalk talk(stream);
    stream << "VDD1.2: 1.19995\nVDD3.3: 3.29956\nVersion: 3 of 4\nVDD1.2: 1.25\nUDD: 5\nVDD9: 9.";
    EXPECT_THAT(talk.supplies(), ElementsAre(Pair("VDD1.2", 1.25), Pair("VDD3.3", 3.29956)));
}

TEST(BoardTalk, KeepsASupplyThatIsNoNumber) {
    std::ostringstream stream;
    const tcBoardTalk talk(stream);
    stream << "VDD1.2: nan\n";
    ASSERT_EQ(talk.supplies().size(), 1U);
    EXPECT_TRUE(std::isnan(talk.supplies().at("VDD1.2")));
}

TEST(BoardTalk, KeepsTheLinesOfTheLinkInTheirOrder) {
    std::ostringstream stream;
    const tcBoardTalk talk(stream);
    stream << "Status: Aligned 0 Locked 1\n tries: 0\nmaster clock 36 MHz\n"
           << "DPA Lock:\t" << std::hex << 0xFFF << "\nunlocked\n";
    EXPECT_THAT(talk.link(),
                ElementsAre("Status: Aligned 0 Locked 1", "DPA Lock:\tfff", "unlocked"));
}

TEST(BoardTalk, ForgetsTheLinkWhenALaterCommandSpeaksOfItAnew) {
    std::ostringstream stream;
    tcBoardTalk talk(stream);
    stream << "DPA Lock: 0\n";
    talk.beginCommand();
    stream << "exposure 30000\n";
    EXPECT_THAT(talk.link(), ElementsAre("DPA Lock: 0"));
    stream << "DPA Lock: 1\nDPA Lock: 3\n";
    EXPECT_THAT(talk.link(), ElementsAre("DPA Lock: 1", "DPA Lock: 3"));
}

TEST(BoardTalk, KeepsTheLast512LinesAndNoEndlessOne) {
    std::ostringstream stream;
    const tcBoardTalk talk(stream);
    for (int i = 100; i <= 612; ++i)
        stream << "lock " << i << '\n';
    ASSERT_EQ(talk.link().size(), 512U);
    EXPECT_EQ(talk.link().front(), "lock 101");
    EXPECT_EQ(talk.link().back(), "lock 612");
    stream << "lock " << std::string(5000, 'x') << '\n';
    EXPECT_EQ(talk.link().back().size(), 4096U);
    EXPECT_EQ(stream.str().size(), 513U * 9U + 5006U);
}

TEST(BoardTalk, HearsSeveralThreads) {
    std::ostringstream stream;
    const tcBoardTalk talk(stream);
    std::ostream& heard = stream; // with the buffer that it prints to now
    const auto print = [&talk, &heard] {
        std::ostream own(heard.rdbuf()); // a stream's state is one thread's, the buffer everybody's
        for (int i = 0; i < 1000; ++i)
            own << "Lock: 5\n";
        (void)talk.link();
    };
    std::thread other(print);
    print();
    other.join();
    EXPECT_EQ(stream.str().size(), 16000U);
    EXPECT_THAT(talk.link(), AllOf(SizeIs(512), Each("Lock: 5")));
}

TEST(Lanes, AreTheBitsOfAMask) {
    EXPECT_THAT(lanesOf("DPA Lock: fff"),
                Optional(ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11)));
    EXPECT_THAT(lanesOf("DPA Lock:\t0x80000001"), Optional(ElementsAre(0, 31)));
    EXPECT_THAT(lanesOf("DPA Lock: 0"), Optional(IsEmpty()));
}

TEST(Lanes, AreNotReadOutOfOtherLines) {
    EXPECT_EQ(lanesOf("DPA Lock: 0 tries: 0"), std::nullopt);
    EXPECT_EQ(lanesOf("Status: Aligned 1"), std::nullopt);
    EXPECT_EQ(lanesOf("Clock: 36"), std::nullopt);
    EXPECT_EQ(lanesOf("locked"), std::nullopt);
    EXPECT_EQ(lanesOf("Lock: 1ffffffff"), std::nullopt);
    EXPECT_EQ(lanesOf("Lock:"), std::nullopt);
}

TEST(Lanes, TheBestOfEachAttemptCounts) {
    EXPECT_THAT(camhost::lanesByAttempt({"DPA Lock: 0 tries: 0", "DPA Lock: 7 tries: 1",
                                         "DPA Lock: 5 tries: 2", "DPA Lock: 5",
                                         "DPA Lock: 0 tries: 0", "DPA Lock: 3 tries: 1",
                                         "DPA Lock: 3", "Status: Locked 1", "DPA Lock:\t0x0"}),
                ElementsAre(ElementsAre(0, 1, 2), ElementsAre(0, 1)));
    EXPECT_THAT(camhost::lanesByAttempt({"DPA Lock: 6 tries: 9", "DPA Lock: 9 tries: 9"}),
                ElementsAre(ElementsAre(1, 2), ElementsAre(0, 3)))
        << "a count that stands is a new one";
    EXPECT_THAT(camhost::lanesByAttempt({"Lock: 3", "Lock: 5"}), ElementsAre(ElementsAre(0, 1)))
        << "of two as good the first";
    EXPECT_THAT(camhost::lanesByAttempt({"Lock: 0"}), ElementsAre(IsEmpty()));
    EXPECT_THAT(camhost::lanesByAttempt({"Status: Locked 1", "DPA Lock: 3 tries: x1"}),
                ElementsAre(ElementsAre(0, 1)));
    EXPECT_THAT(camhost::lanesByAttempt({}), IsEmpty());
}

TEST(Lanes, TheBestAttemptHasMostOfThem) {
    EXPECT_THAT(camhost::mostLanes({{0}, {1, 2}, {3, 4}}), Optional(ElementsAre(1, 2)));
    EXPECT_THAT(camhost::mostLanes({{}}), Optional(IsEmpty()));
    EXPECT_EQ(camhost::mostLanes({}), std::nullopt);
}

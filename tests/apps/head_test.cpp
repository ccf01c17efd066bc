#include "apps/camhost/head.h"

#include <gmock/gmock.h>

#include "tests/apps/fake_board.h"

using camhost::tcHead;
using camhost::tcOutput;
using testing::ElementsAre;

TEST(Head, DeletesEveryHandlerOnceAndBeforeTheBoard) {
    tcOutput output;
    testing::internal::CaptureStdout();
    {
        tcHead head(42, std::make_unique<tcFakeBoard>("x"), output);
        EXPECT_THAT(head.keywords(), ElementsAre("CLKS", "FAKE", "FAKE2"));
    }
    const std::string out = testing::internal::GetCapturedStdout();
    const auto count = [&](const std::string& line) {
        int found = 0;
        for (auto at = out.find(line); at != out.npos; at = out.find(line, at + 1))
            ++found;
        return found;
    };
    EXPECT_EQ(count("fake: FAKE handler deleted\n"), 1);
    EXPECT_EQ(count("fake: hidden handler deleted\n"), 1);
    EXPECT_EQ(count("fake: board deleted\n"), 1);
    EXPECT_TRUE(out.ends_with("fake: board deleted\n"));
}

TEST(Head, EndsARunningCapture) {
    tcOutput output;
    testing::internal::CaptureStdout();
    {
        tcHead head(42, std::make_unique<tcFakeBoard>("x"), output);
        EXPECT_EQ(head.board().start(), 0);
    }
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::StartsWith("[0] Starting capture...\n[1] Ending capture...\n"));
}

TEST(Head, HandsKeywordsToTheirHandlersAndOthersToTheChain) {
    tcOutput output;
    testing::internal::CaptureStdout();
    {
        tcHead head(42, std::make_unique<tcFakeBoard>("x"), output);
        EXPECT_EQ(head.execute("CLKS", ""), "<ack ^1>");
        EXPECT_EQ(head.execute("FAKE", "a  b"), "<ack>");
        EXPECT_EQ(head.execute("FAKE", ""), "<ack a  b>");
        EXPECT_EQ(head.execute("HIDDEN", ""), "<ack found>");
        EXPECT_EQ(head.execute("WHAT", ""), "<nack 1>");
        EXPECT_TRUE(head.hasKeyword("FAKE2"));
        EXPECT_FALSE(head.hasKeyword("HIDDEN"));
    }
    testing::internal::GetCapturedStdout();
}

TEST(Head, AnswersNothingKnownForABoardWithoutHandlers) {
    class tcBareBoard : public Varnox::tcSensorBoard {
    public:
        tcBareBoard() : tcSensorBoard(0, 0, 0, 0, nullptr) {}
    };
    tcOutput output;
    tcHead head(0, std::make_unique<tcBareBoard>(), output);
    EXPECT_EQ(head.execute("CLKS", ""), "<nack 1>");
    EXPECT_TRUE(head.keywords().empty());
    EXPECT_EQ(head.regions(), nullptr);
}

TEST(Head, TakesEverythingOffTheRegisterFile) {
    Varnox::tcRegisterFile& file = *Varnox::tcRegisterFile::getInstance(nullptr, true);
    tcOutput output;
    testing::internal::CaptureStdout();
    {
        tcHead head(42, std::make_unique<tcFakeBoard>("x"), output);
        EXPECT_TRUE(file.write_word(0x3A074, 1).handled);   // by a handler
        EXPECT_TRUE(file.write_word(0x3A004, 100).handled); // by the board
    }
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(file.write_word(0x3A074, 1).handled);
    EXPECT_FALSE(file.write_word(0x3A004, 100).handled);
}

TEST(Head, KeepsWhatBoardsDoNotTell) {
    tcOutput output;
    testing::internal::CaptureStdout();
    {
        tcHead head(42, std::make_unique<tcFakeBoard>("x"), output);
        EXPECT_EQ(head.remembered("bpp"), std::nullopt);
        head.remember("bpp", 2);
        EXPECT_EQ(head.remembered("bpp"), 2);
        head.forgetSettings();
        EXPECT_EQ(head.remembered("bpp"), std::nullopt);
    }
    testing::internal::GetCapturedStdout();
}

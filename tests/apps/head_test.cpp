#include "apps/camhost/head.h"

#include <fstream>
#include <iostream>

#include <gmock/gmock.h>

#include "apps/camhost/command_table.h"
#include "apps/camhost/executor.h"
#include "tests/apps/fake_board.h"
#include "tests/support/temporary_directory.h"

using camhost::tcHead;
using camhost::tcOutput;
using testing::ElementsAre;

TEST(Head, DeletesEveryHandlerOnceAndBeforeTheBoard) {
    tcOutput output;
    testing::internal::CaptureStdout();
    {
        tcHead head(
            42, [] { return std::make_unique<tcFakeBoard>("x"); }, output);
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
        tcHead head(
            42, [] { return std::make_unique<tcFakeBoard>("x"); }, output);
        EXPECT_EQ(head.board().start(), 0);
    }
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::StartsWith("[0] Starting capture...\n[1] Ending capture...\n"));
}

TEST(Head, HandsKeywordsToTheirHandlersAndOthersToTheChain) {
    tcOutput output;
    testing::internal::CaptureStdout();
    {
        tcHead head(
            42, [] { return std::make_unique<tcFakeBoard>("x"); }, output);
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
    tcHead head(
        0, [] { return std::make_unique<tcBareBoard>(); }, output);
    EXPECT_EQ(head.execute("CLKS", ""), "<nack 1>");
    EXPECT_TRUE(head.keywords().empty());
    EXPECT_EQ(head.regions(), nullptr);
}

TEST(Head, TakesEverythingOffTheRegisterFile) {
    Varnox::tcRegisterFile& file = *Varnox::tcRegisterFile::getInstance(nullptr, true);
    tcOutput output;
    testing::internal::CaptureStdout();
    {
        tcHead head(
            42, [] { return std::make_unique<tcFakeBoard>("x"); }, output);
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
        tcHead head(
            42, [] { return std::make_unique<tcFakeBoard>("x"); }, output);
        EXPECT_EQ(head.remembered("bpp"), std::nullopt);
        head.remember("bpp", 2);
        EXPECT_EQ(head.remembered("bpp"), 2);
        head.forgetSettings();
        EXPECT_EQ(head.remembered("bpp"), std::nullopt);
    }
    testing::internal::GetCapturedStdout();
}

// Says what a board of this test said, as it was made and later.
camhost::tcHead& teach(camhost::tcHead& head, const std::string& expression) {
    const tcTemporaryDirectory folder;
    const auto path = folder.path() / "x.failures.json";
    std::ofstream(path)
        << R"({"format": 1, "lanes": 1, "blocks": {}, "supplies": {}, "failures": [
        {"name": "n", "stage": "s", "when": {"lines": [")" +
               expression + R"("]}, "says": "{1}", "causes": [{"cause": "c", "measure": "m"}]}]})";
    head.knowFailures(failures::tcFailureTable(path.string()));
    return head;
}

TEST(Head, ExplainsAFailureByAllThatTheBoardSaid) {
    tcOutput output;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        tcHead head(
            42,
            [] {
                std::cerr << "made: no line\n";
                return std::make_unique<tcFakeBoard>("x");
            },
            output);
        EXPECT_FALSE(head.explanation(-2)) << "without a table";
        head.beginCommand();
        std::cout << "out: 1\n";
        std::cerr << "err: 2\n";
        EXPECT_EQ(head.board().start(), 0); // a status line: "[0] Starting capture..."
        const std::string rest = "\n  likely: c\n  measure: m";
        EXPECT_EQ(failures::textOf(teach(head, "^made: (.*)$").explanation(-2).value()),
                  "  no line" + rest);
        EXPECT_EQ(failures::textOf(teach(head, "^out: (.*)$").explanation(-2).value()),
                  "  1" + rest);
        EXPECT_EQ(failures::textOf(teach(head, "^err: (.*)$").explanation(-2).value()),
                  "  2" + rest);
        EXPECT_EQ(failures::textOf(teach(head, "^\\\\[0\\\\] (Starting) ").explanation(-2).value()),
                  "  Starting" + rest);
        head.beginCommand();
        EXPECT_EQ(failures::textOf(teach(head, "^made: (.*)$").explanation(-2).value()),
                  "  no line" + rest);
        EXPECT_FALSE(teach(head, "^out: (.*)$").explanation(-2));
        EXPECT_FALSE(teach(head, "^err: (.*)$").explanation(-2));
        EXPECT_FALSE(teach(head, "^\\\\[0\\\\] (Starting) ").explanation(-2));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "made: no line\nerr: 2\n");
    testing::internal::GetCapturedStdout();
}

// A diagnosis makes the board anew, and its making may fail: the next command tries again.
TEST(Head, ThatCouldNotBeMadeAnewIsMadeByTheNextCommand) {
    testing::internal::CaptureStdout();
    int made = 0;
    {
        tcOutput output;
        const camhost::tcCommandTable table = camhost::makeCommandTable();
        tcHead head(
            42,
            [&made]() -> std::unique_ptr<Varnox::tcSensorBoard> {
                if (++made == 2)
                    throw std::runtime_error("gone");
                return std::make_unique<tcFakeBoard>("x");
            },
            output);
        camhost::tcExecutor executor(head, table, output);
        const camhost::tsReply diagnosis = executor.execute("diagnose power --json");
        EXPECT_FALSE(diagnosis.ok());
        EXPECT_THAT(
            diagnosis.text,
            testing::HasSubstr("\"left\":\"the head may still be ON: its board could not be made "
                               "anew, which would have switched it off: gone\""));
        EXPECT_FALSE(head.hasBoard());
        EXPECT_FALSE(executor.isCapturing());
        EXPECT_EQ(executor.stopCapture(), std::nullopt);
        EXPECT_TRUE(executor.completions("expo").empty());
        EXPECT_EQ(executor.execute("exposure").text, "exposure 30000 us");
        EXPECT_EQ(made, 3);
        EXPECT_EQ(executor.execute("CLKS").text, "<ack ^1>") << "with its handlers";
    }
    testing::internal::GetCapturedStdout();
}

TEST(Head, ForgetsWhatWasSetWhenItIsMadeAnew) {
    testing::internal::CaptureStdout();
    {
        tcOutput output;
        tcHead head(
            42, [] { return std::make_unique<tcFakeBoard>("x"); }, output);
        head.remember("bpp", 8);
        EXPECT_EQ(head.initialize(), 0);
        EXPECT_TRUE(head.isUp());
        EXPECT_TRUE(head.mayBeOn());
        head.board().setExposure(5000);
        head.rebuild();
        EXPECT_FALSE(head.isUp());
        EXPECT_FALSE(head.mayBeOn());
        EXPECT_EQ(head.remembered("bpp"), std::nullopt);
        EXPECT_EQ(head.board().getExposure(), 30000);
        EXPECT_TRUE(head.hasKeyword("FAKE"));
    }
    testing::internal::GetCapturedStdout();
}

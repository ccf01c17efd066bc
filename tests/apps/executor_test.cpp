#include "apps/camhost/executor.h"

#include <thread>

#include <gmock/gmock.h>

#include "apps/camhost/interrupt.h"
#include "tests/apps/camhost_fixture.h"

using camhost::teExit;
using camhost::tsReply;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class ExecutorTest : public CamhostTest {
protected:
    void waitForCapture() {
        waitUntil([this] { return executor->isCapturing(); });
    }
};

class StubbornBoardTest : public CamhostTest {
protected:
    StubbornBoardTest() : CamhostTest("stubborn") {}
};

class FailingInitializationTest : public CamhostTest {
protected:
    FailingInitializationTest() : CamhostTest("init=-4") {}
};

} // namespace

TEST_F(ExecutorTest, AnswersNothingToABlankLineOrAComment) {
    EXPECT_EQ(reply(""), "");
    EXPECT_EQ(reply("  \t"), "");
    EXPECT_EQ(reply("# init"), "");
}

TEST_F(ExecutorTest, SaysThatACommandIsNotKnown) {
    EXPECT_EQ(refusal("exposur 5"),
              "\"exposur\" is no command and no keyword of the plug-in; did you mean \"exposure\"? "
              "\"help\" lists all");
    EXPECT_EQ(refusal("nonsense"),
              "\"nonsense\" is no command and no keyword of the plug-in; \"help\" lists all");
}

TEST_F(ExecutorTest, HandsKeywordsToThePlugInAsTheyAre) {
    EXPECT_EQ(reply("CLKS"), "<ack ^1>");
    EXPECT_EQ(reply("FAKE  a   \"b c\" # comment"), "<ack>");
    EXPECT_EQ(reply("FAKE"), "<ack a   \"b c\">");
    EXPECT_EQ(reply("keyword HIDDEN"), "<ack found>");
    EXPECT_EQ(reply("keyword FAKE x  y"), "<ack>");
    EXPECT_EQ(reply("FAKE"), "<ack x  y>");
}

TEST_F(ExecutorTest, TakesARefusalOfAKeywordForAFailureUnlessItsNumberIsZero) {
    EXPECT_EQ(reply("FAKE2"), "<nack 0>");
    EXPECT_EQ(refusal("FAKE2 1"), "<nack 3>");
    EXPECT_EQ(refusal("keyword NOBODY"), "<nack 1>");
    EXPECT_EQ(run("FAKE2 1").status, teExit::eCommand);
}

TEST_F(ExecutorTest, TellsWhoWantsNoMore) {
    EXPECT_TRUE(run("quit").quit);
    EXPECT_FALSE(run("status").quit);
    EXPECT_EQ(refusal("quit now"), "quit: unexpected argument \"now\"; usage: quit");
}

TEST_F(FailingInitializationTest, IsAStageOfItsOwn) {
    const tsReply got = run("init");
    EXPECT_EQ(got.status, teExit::eInitialize);
    EXPECT_EQ(got.text, "init failed, result -4: a code of the board's lower layers; see the "
                        "board's lines above");
}

TEST_F(StubbornBoardTest, SaysWhatThePlugInThrew) {
    const tsReply got = run("exposure 5");
    EXPECT_EQ(got.status, teExit::eCommand);
    EXPECT_EQ(got.text, "exposure: the plug-in threw \"the exposure is stuck\"; see the board's "
                        "lines above");
}

TEST_F(StubbornBoardTest, SaysThatACaptureDidNotEnd) {
    EXPECT_EQ(refusal("capture 0"),
              "capture: stop failed, result 6: serial link or pipeline failure; see the board's "
              "lines above; end a running capture, or run \"init\" again");
}

TEST_F(ExecutorTest, CompletesCommandsAndKeywords) {
    EXPECT_THAT(executor->completions("exp"), ElementsAre("exposure"));
    EXPECT_THAT(executor->completions("FA"), ElementsAre("FAKE", "FAKE2"));
    EXPECT_THAT(executor->completions("whi"), ElementsAre("white", "whitecal"));
    EXPECT_THAT(executor->completions("nothing like it"), IsEmpty());
    EXPECT_EQ(executor->completions("").size(), table.commands().size() + 3);
}

TEST_F(ExecutorTest, CompletesArguments) {
    EXPECT_THAT(executor->completions("trigger "), ElementsAre("external", "free"));
    EXPECT_THAT(executor->completions("trigger f"), ElementsAre("free"));
    EXPECT_THAT(executor->completions("trigger free "), IsEmpty());
    EXPECT_THAT(executor->completions("mirror h o"), ElementsAre("off", "on"));
    EXPECT_THAT(executor->completions("regfile read exp"), ElementsAre("exposure"));
    EXPECT_THAT(executor->completions("help FAKE"), ElementsAre("FAKE", "FAKE2"));
    EXPECT_THAT(executor->completions("wait "), IsEmpty());
    EXPECT_THAT(executor->completions("wait 5 -"), ElementsAre("--json"));
    EXPECT_THAT(executor->completions("trigger --j"), ElementsAre("--json"));
    EXPECT_THAT(executor->completions("--j"), IsEmpty());
    EXPECT_THAT(executor->completions("save \"open"), IsEmpty());
}

TEST_F(ExecutorTest, ServesOthersWhileACommandWaits) {
    std::thread waiting([&] { EXPECT_EQ(run("capture 3600000").status, teExit::eInterrupted); });
    waitForCapture();
    EXPECT_EQ(executor->execute("exposure").text, "exposure 30000 us");
    EXPECT_TRUE(executor->isCapturing());
    camhost::tcInterrupt::request();
    waiting.join();
    camhost::tcInterrupt::clear();
}

TEST_F(ExecutorTest, StopsTheCaptureThatIsInterrupted) {
    std::thread interrupting([this] {
        waitForCapture();
        camhost::tcInterrupt::request();
    });
    const tsReply got = run("capture 3600000");
    interrupting.join();
    EXPECT_EQ(got.status, teExit::eInterrupted);
    EXPECT_EQ(got.text, "capture (stopped, result 0: success) was interrupted");
    EXPECT_FALSE(head->board().isCapturing());
    EXPECT_EQ(run("wait 1000").status, teExit::eInterrupted);
    camhost::tcInterrupt::clear();
    EXPECT_EQ(reply("wait 0"), "wait: 0 ms");
}

TEST_F(ExecutorTest, SaysThatSomebodyElseEndedTheCapture) {
    std::thread ending([&] {
        waitForCapture();
        executor->execute("stop");
    });
    EXPECT_EQ(reply("capture 2000"), "capture: 2000 ms, ended early by somebody else, result 0: "
                                     "success");
    ending.join();
}

TEST_F(ExecutorTest, ServesSeveralThreads) {
    const auto asking = [&] {
        for (int i = 0; i < 200; ++i) {
            executor->execute("exposure " + std::to_string(i * 10));
            EXPECT_THAT(executor->execute("exposure").text, HasSubstr("exposure "));
            EXPECT_THAT(executor->completions("tri"), ElementsAre("trigger"));
        }
    };
    std::thread one(asking);
    std::thread two(asking);
    one.join();
    two.join();
}

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>

#include "tests/apps/process.h"
#include "tests/apps/terminal.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char* kPrompt = "camhost> ";
/// Progress of a capture that waits. The line before it comes ahead of the first wait, and the
/// thread sanitizer loses a signal that arrives while it prepares for that.
constexpr const char* kWaiting = "0.1 s of 3600.0 s";

/// A console whose history is the test's own.
class ConsoleTest : public testing::Test {
protected:
    ConsoleTest() { ::setenv("XDG_STATE_HOME", folder.path().c_str(), 1); }

    static std::vector<std::string> arguments(std::vector<std::string> more = {}) {
        std::vector<std::string> all = {"--plugin", FAKE_PLUGIN, "--spi", "x"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    tcFolder folder;
};

} // namespace

TEST_F(ConsoleTest, CarriesOutWhatIsTyped) {
    tcTerminal terminal(arguments());
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("serves sensor type 42"));
    terminal.type("exposure 2004\n");
    EXPECT_THAT(terminal.until(kPrompt),
                HasSubstr("exposure: asked 2004 us, applied 2000 us (result 0: success)\n"));
    terminal.type("exposure x\n");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("error: exposure: MICROSECONDS \"x\" is not a "
                                                   "number"));
    terminal.type("quit\n");
    EXPECT_EQ(terminal.finish(), 0);
}

TEST_F(ConsoleTest, EndsAtTheEndOfTheInput) {
    tcTerminal terminal(arguments());
    terminal.until(kPrompt);
    terminal.type("\x04");
    EXPECT_EQ(terminal.finish(), 0);
}

TEST_F(ConsoleTest, CompletesWithTheTabKey) {
    tcTerminal terminal(arguments());
    terminal.until(kPrompt);
    terminal.type("expos\t700\n");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("exposure: asked 700 us"));
    terminal.type("trig\tex\t\n");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("trigger: asked external"));
    terminal.type("FA\t\n");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("<ack nothing>"));
    terminal.type("regfile read expo\t\n");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("0x3A004 exposure = 700"));
}

TEST_F(ConsoleTest, ListsWhatMayCome) {
    tcTerminal terminal(arguments());
    terminal.until(kPrompt);
    terminal.type("wh\t\t");
    EXPECT_THAT(terminal.until("whitecal  \n"), EndsWith("\nwhite  whitecal  \n"));
    terminal.until("camhost> white"); // the line is there again
}

TEST_F(ConsoleTest, RemembersLinesFromOneTimeToTheNext) {
    {
        tcTerminal terminal(arguments());
        terminal.until(kPrompt);
        terminal.type("exposure 1230\n");
        terminal.until("applied 1230");
        terminal.type("quit\n");
        EXPECT_EQ(terminal.finish(), 0);
    }
    tcTerminal terminal(arguments());
    terminal.until(kPrompt);
    terminal.type("\x1b[A\x1b[A\n"); // two lines up: the one before "quit"
    EXPECT_THAT(terminal.until("success)"), HasSubstr("asked 1230 us"));
}

TEST_F(ConsoleTest, ForgetsALineAtCtrlC) {
    tcTerminal terminal(arguments());
    terminal.until(kPrompt);
    terminal.type("exposure 999");
    terminal.until("exposure 999");
    terminal.type("\x03");
    terminal.until(kPrompt);
    terminal.type("exposure\n");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("exposure 30000 us"));
}

TEST_F(ConsoleTest, EndsACommandAndItsCaptureAtCtrlC) {
    tcTerminal terminal(arguments());
    terminal.until(kPrompt);
    terminal.type("capture 3600000\n");
    terminal.until(kWaiting);
    terminal.type("\x03");
    EXPECT_THAT(terminal.until(kPrompt),
                HasSubstr("[1] Ending capture...\nerror: capture (stopped, result 0: success) was "
                          "interrupted\n"));
    terminal.type("start\n");
    terminal.until("camhost (capturing)> ");
    terminal.type("\x03");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("capture stopped, result 0\n"));
}

TEST_F(ConsoleTest, EndsWhenItIsAskedToAndStopsItsCapture) {
    tcTerminal terminal(arguments());
    terminal.until(kPrompt);
    terminal.type("start\n");
    terminal.until("camhost (capturing)> ");
    terminal.signal(SIGTERM);
    terminal.until("[1] Ending capture...");
    EXPECT_EQ(terminal.finish(), 0);
}

TEST_F(ConsoleTest, OpensAfterTheCommandsOfTheCommandLine) {
    tcTerminal terminal(arguments({"-i", "-c", "exposure 100"}));
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("asked 100 us"));
    terminal.type("quit\n");
    EXPECT_EQ(terminal.finish(), 0);
}

TEST_F(ConsoleTest, TakesAnyText) {
    tcTerminal terminal(arguments());
    terminal.until(kPrompt);
    terminal.type("FAKE x\xc3\xa4y\n");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("<ack>"));
    terminal.type("FAKE\n");
    EXPECT_THAT(terminal.until(kPrompt), HasSubstr("<ack x"));
}

TEST_F(ConsoleTest, ShowsProgressOnATerminalOnly) {
    tcTerminal terminal(arguments({"-c", "wait 300"}));
    EXPECT_THAT(terminal.until("of 0.3 s"), HasSubstr("wait [ "));
    EXPECT_EQ(terminal.finish(), 0);
    const tsFinished piped = runCamhost(arguments({"-c", "wait 300"}));
    EXPECT_THAT(piped.out + piped.err, Not(HasSubstr("[ ")));
}

TEST_F(ConsoleTest, EndsAScriptAtCtrlCWithItsOwnStatus) {
    tcTerminal terminal(arguments({"-c", "capture 3600000", "-c", "exposure"}));
    terminal.until(kWaiting);
    terminal.type("\x03");
    terminal.until("camhost: command line: capture (stopped, result 0: success) was interrupted");
    EXPECT_EQ(terminal.finish(), 130);
}

TEST_F(ConsoleTest, ServesClientsUntilItIsAskedToEnd) {
    tcTerminal terminal(arguments({"--listen", "0", "-c", "exposure 100"}));
    EXPECT_THAT(terminal.until("camhost: listening on 127.0.0.1:"), HasSubstr("asked 100 us"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // it waits for clients by now
    terminal.signal(SIGTERM);
    EXPECT_EQ(terminal.finish(), 0);
}

TEST_F(ConsoleTest, EndsWithEightWhenTheAddressCannotBeHad) {
    const tsFinished run = runCamhost(arguments({"--listen", "192.0.2.1:4000", "-c", "init"}));
    EXPECT_EQ(run.status, 8);
    EXPECT_EQ(run.err, "camhost: not listening on 192.0.2.1:4000: Cannot assign requested address. "
                       "Give a free ADDRESS:PORT of this machine with --listen.\n");
    EXPECT_THAT(run.out, Not(HasSubstr("init:")));
    EXPECT_EQ(runCamhost(arguments({"--listen", "nowhere"})).status, 8);
}

// A program at a terminal, with a page about its run: it notices nothing, and its clamps are told.

#include <algorithm>
#include <array>
#include <csignal>
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/patience.h"
#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

using testing::HasSubstr;

// A shell command on a terminal of its own, 40 lines of 200 columns.
class tcTerminal {
public:
    explicit tcTerminal(const std::string& command) {
        winsize size{};
        size.ws_row = 40;
        size.ws_col = 200;
        m_child = forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_child == 0) {
            setenv("TERM", "xterm", 1);
            execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
            _exit(127);
        }
    }
    tcTerminal(const tcTerminal&) = delete;
    tcTerminal& operator=(const tcTerminal&) = delete;
    ~tcTerminal() {
        if (m_child > 0) {
            kill(m_child, SIGKILL);
            waitpid(m_child, nullptr, 0);
        }
        close(m_terminal);
    }
    void type(const std::string& keys) const {
        EXPECT_EQ(write(m_terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    void resize(unsigned short rows, unsigned short columns) const {
        winsize size{};
        size.ws_row = rows;
        size.ws_col = columns;
        EXPECT_EQ(ioctl(m_terminal, TIOCSWINSZ, &size), 0);
    }
    // Everything up to a text, as the terminal got it.
    std::string until(const std::string& text) {
        while (m_got.find(text) == std::string::npos) {
            if (!fetch()) {
                ADD_FAILURE() << "\"" << text << "\" does not come, but: " << m_got;
                return m_got;
            }
        }
        const std::size_t end = m_got.find(text) + text.size();
        std::string result = m_got.substr(0, end);
        m_got.erase(0, end);
        return result;
    }
    std::string rest() {
        while (fetch()) {
        }
        return m_got;
    }
    // \return exit status, 128 and the signal
    int finish() {
        rest();
        if (m_silent) {
            ADD_FAILURE() << "the program does not end, but: " << m_got;
            kill(m_child, SIGKILL);
        }
        int status = 0;
        waitpid(m_child, &status, 0);
        m_child = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    bool fetch() {
        pollfd source{m_terminal, POLLIN, 0};
        std::array<char, 4096> buffer{};
        m_silent = poll(&source, 1, kPatienceMs) <= 0;
        const ssize_t count = m_silent ? 0 : read(m_terminal, buffer.data(), buffer.size());
        m_got.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return count > 0;
    }
    int m_terminal = -1;
    pid_t m_child = -1;
    bool m_silent = false;
    std::string m_got;
};

class ReportAtATerminal : public testing::Test {
protected:
    [[nodiscard]] std::string launched(const std::string& program) const {
        return std::string(HEAD_LAUNCHER) + " --workdir " + HEAD_SOURCE_DIRECTORY +
               "/data --summary /dev/null --report " + m_page.string() + " -- " + program;
    }
    tcTemporaryDirectory m_folder;
    std::filesystem::path m_page = m_folder.path() / "run.html";
};

TEST_F(ReportAtATerminal, TellsTheClampsOfAConversation) {
    tcTerminal terminal(launched(camhostCommand("")));
    terminal.type("init\nexposure 500000\nexposure 20000\nexposure 1\n");
    terminal.until("exposure: asked 1 us, applied ");
    terminal.type("quit\n");
    EXPECT_EQ(terminal.finish(), 0);
    EXPECT_THAT(contentOf(m_page),
                HasSubstr("<tr><td>exposure</td><td>500000 us</td><td>99850 us</td><td>the frame "
                          "interval of 99900 us</td></tr>\n<tr><td>exposure</td><td>1 us</td>"
                          "<td>25 us</td><td>the sensor's range</td></tr>\n"
                          "</table>"));
}

TEST_F(ReportAtATerminal, LeavesTheProgramATerminalOfItsSize) {
    tcTerminal terminal(
        launched("sh -c 'test -t 0 && test -t 1 && test -t 2 && stty size <&1; read "
                 "word; echo got $word; exit 3'"));
    terminal.until("40 200\r\n");
    terminal.type("keys\n");
    EXPECT_EQ(terminal.until("got keys\r\n"), "keys\r\ngot keys\r\n"); // echoed once
    EXPECT_EQ(terminal.finish(), 3);
}

// The last word is another program's: perl leaves memory behind that a sanitizer complains of.
TEST_F(ReportAtATerminal, TellsTheProgramOfANewSize) {
    tcTerminal terminal(
        launched("perl -e '$SIG{WINCH} = sub { system(\"stty size <&1\") }; $| = 1; "
                 "print \"ready\\n\"; vec($in, 0, 1) = 1; until (select($_ = $in, undef, undef, "
                 "0.2) > 0) {} "
                 "print \"end\\n\"; exec \"true\"'"));
    terminal.until("ready\r\n");
    terminal.resize(50, 120);
    terminal.until("50 120\r\n");
    terminal.resize(24, 80);
    terminal.until("24 80\r\n");
    terminal.type("\n");
    terminal.until("end\r\n");
    EXPECT_EQ(terminal.finish(), 0);
}

TEST_F(ReportAtATerminal, LeavesTheKeyboardsSignalsToTheProgram) {
    tcTerminal ended(launched("sh -c 'echo ready; exec tail -f /dev/null'"));
    ended.until("ready\r\n");
    ended.type("\x03"); // Ctrl-C
    EXPECT_EQ(ended.finish(), 128 + SIGINT);
    tcTerminal caught(launched("perl -e '$SIG{INT} = sub { print \"caught\\n\" }; $| = 1; "
                               "print \"ready\\n\"; vec($in, 0, 1) = 1; "
                               "until (select($_ = $in, undef, undef, 0.2) > 0) {} "
                               "sysread(STDIN, $_, 9); print \"got $_\"; exec \"true\"'"));
    caught.until("ready\r\n");
    caught.type("\x03");
    caught.until("caught\r\n");
    caught.type("more\n");
    caught.until("got more\r\n");
    EXPECT_EQ(caught.finish(), 0);
}

TEST_F(ReportAtATerminal, PassesOnEveryByteInItsOrder) {
    const std::string program = "sh -c 'for i in 1 2 3 4 5 6 7 8; do echo out $i; echo err $i >&2; "
                                "done; printf \"\\033[1mtab\\t\\r\\n\"; seq 20000; printf end'";
    const std::string plain = tcTerminal(program).rest();
    EXPECT_THAT(plain, HasSubstr("out 7\r\nerr 7\r\nout 8\r\nerr 8\r\n"));
    EXPECT_EQ(tcTerminal(launched(program)).rest(), plain);
}

TEST_F(ReportAtATerminal, GoesOnWhenTheKeysAreNotWaitedFor) {
    // Both ends of a terminal are one file: what the program asks of its input holds for the
    // output.
    tcTerminal terminal(launched("perl -MFcntl -e 'fcntl(STDIN, F_SETFL, O_RDWR | O_NONBLOCK); "
                                 "print \"x\" x 300000, \"end\\n\"; exec \"true\"'"));
    EXPECT_EQ(terminal.until("end\r\n").size(), 300'005U);
    EXPECT_EQ(terminal.finish(), 0);
}

// ---- A diagnosis at a terminal

std::string onHead(const std::string& environment, const std::string& arguments) {
    return "env " + environment + " " + HEAD_LAUNCHER + " --workdir " + HEAD_SOURCE_DIRECTORY +
           "/data --summary /dev/null -- " + camhostCommand(arguments);
}

TEST(DiagnoseAtATerminal, StatesAreInColour) {
    tcTerminal terminal(onHead("NO_COLOR=", "--diagnose --power"));
    EXPECT_EQ(terminal.finish(), 0);
    const std::string shown = terminal.rest();
    EXPECT_THAT(shown, HasSubstr("|-- lanes: \033[32mgood\033[0m\r\n"));
    EXPECT_THAT(shown,
                HasSubstr("`-- verdict: \033[32mnothing is wrong with this head\033[0m\r\n"));
    EXPECT_LE(std::count(shown.begin(), shown.end(), '\n'), 40) << "more than a screen";
}

TEST(DiagnoseAtATerminal, NobodyIsGivenColoursWhoDoesNotWantThem) {
    for (const char* environment : {"NO_COLOR=1", "TERM=dumb", "-u TERM"}) {
        tcTerminal terminal(onHead(environment, "--diagnose"));
        EXPECT_EQ(terminal.finish(), 0);
        EXPECT_THAT(terminal.rest(), HasSubstr("|-- device files: good\r\n")) << environment;
    }
}

TEST(DiagnoseAtATerminal, ForProgramsThereAreNone) {
    tcTerminal terminal(onHead("NO_COLOR=", "--diagnose --json"));
    EXPECT_EQ(terminal.finish(), 0);
    EXPECT_EQ(terminal.rest().find('\033'), std::string::npos);
}

TEST(DiagnoseAtATerminal, AtTheConsole) {
    const tcTemporaryDirectory home;
    tcTerminal terminal(
        onHead("NO_COLOR= XDG_STATE_HOME=" + home.path().string(), "--board-output /dev/null"));
    terminal.until("camhost> ");
    terminal.type("diagnose power\n");
    EXPECT_THAT(terminal.until("`-- verdict: \033[32mnothing is wrong with this head\033[0m\r\n"),
                HasSubstr("|-- FPGA: \033[32mgood\033[0m\r\n"));
    terminal.type("quit\n");
    EXPECT_EQ(terminal.finish(), 0);
}

} // namespace

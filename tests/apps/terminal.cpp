#include "tests/apps/terminal.h"

#include <chrono>
#include <csignal>
#include <cstdlib>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/apps/process.h"
#include "tests/support/patience.h"

namespace {

/// \return the text without the sequences that move the cursor
std::string withoutControls(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\x1b' && i + 1 < text.size() && text[i + 1] == '[') {
            i += 2;
            while (i < text.size() && (text[i] < '@' || text[i] > '~'))
                ++i;
        } else if (text[i] != '\r' && text[i] != '\a') {
            plain += text[i];
        }
    }
    return plain;
}

} // namespace

tcTerminal::tcTerminal(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = camhostCommand(arguments);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    winsize size{};
    size.ws_row = 40;
    size.ws_col = 200;
    m_child = ::forkpty(&m_terminal, nullptr, nullptr, &size);
    if (m_child == 0) {
        ::setenv("TERM", "xterm", 1);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
}

tcTerminal::~tcTerminal() {
    if (m_child > 0) {
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
    }
    ::close(m_terminal);
}

void tcTerminal::type(const std::string& keys) {
    if (::write(m_terminal, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        ADD_FAILURE() << "the terminal takes no keys";
}

bool tcTerminal::fetch() {
    pollfd source{m_terminal, POLLIN, 0};
    if (::poll(&source, 1, kPatienceMs) <= 0)
        return false;
    char buffer[4096];
    const ssize_t count = ::read(m_terminal, buffer, sizeof buffer);
    if (count <= 0)
        return false;
    m_got.append(buffer, static_cast<std::size_t>(count));
    return true;
}

std::string tcTerminal::until(const std::string& text) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (true) {
        const std::string plain = withoutControls(m_got);
        const auto at = plain.find(text);
        if (at != std::string::npos) {
            m_got = plain.substr(at + text.size());
            return plain.substr(0, at + text.size());
        }
        if (std::chrono::steady_clock::now() > end || !fetch()) {
            ADD_FAILURE() << "\"" << text << "\" does not come; there is \"" << plain << "\"";
            return plain;
        }
    }
}

int tcTerminal::finish() {
    while (fetch()) {
    }
    int status = 0;
    ::waitpid(m_child, &status, 0);
    m_child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void tcTerminal::signal(int number) const {
    ::kill(m_child, number);
}

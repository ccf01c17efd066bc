#include "apps/launcher/kept_output.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr std::size_t kRead = 0;
constexpr std::size_t kWrite = 1;
constexpr int kQuietMs = 100; // nothing more comes from a program that has ended

bool writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        // A program that does not wait for its keys makes its terminal's other ends not wait
        // either.
        if (written < 0 && errno == EAGAIN) {
            pollfd room{STDOUT_FILENO, POLLOUT, 0};
            poll(&room, 1, kQuietMs);
        } else if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

// The size of one's own terminal. \return whether it is another one now
bool copySize(int terminal) {
    winsize own{};
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &own) != 0 || ioctl(terminal, TIOCGWINSZ, &size) != 0) {
        return false;
    }
    ioctl(terminal, TIOCSWINSZ, &own);
    return own.ws_row != size.ws_row || own.ws_col != size.ws_col;
}

} // namespace

tcKeptOutput::tcKeptOutput(bool shown)
    : m_shown(shown), m_terminal(shown && isatty(STDOUT_FILENO) == 1) {
    if (m_terminal) {
        openTerminal();
    } else {
        openPipe();
    }
}

void tcKeptOutput::openPipe() {
    if (pipe2(m_ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("no pipe: ") + std::strerror(errno));
    }
}

void tcKeptOutput::openTerminal() {
    m_ends[kRead] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::array<char, 64> name{};
    if (m_ends[kRead] >= 0 && grantpt(m_ends[kRead]) == 0 && unlockpt(m_ends[kRead]) == 0 &&
        ptsname_r(m_ends[kRead], name.data(), name.size()) == 0) {
        m_ends[kWrite] = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    if (m_ends[kWrite] < 0) {
        const std::string why = std::strerror(errno);
        closeEnd(kRead);
        throw std::runtime_error("no pseudo-terminal: " + why);
    }
    // As the real one, but for what that does to the output itself.
    termios modes{};
    if (tcgetattr(STDOUT_FILENO, &modes) == 0) {
        modes.c_oflag &= ~static_cast<tcflag_t>(OPOST);
        modes.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(m_ends[kWrite], TCSANOW, &modes);
    }
    copySize(m_ends[kRead]);
}

tcKeptOutput::~tcKeptOutput() {
    m_ended = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
    closeEnd(kRead);
    closeEnd(kWrite);
    if (m_changes >= 0) {
        close(m_changes);
    }
}

void tcKeptOutput::closeEnd(std::size_t end) {
    if (m_ends[end] >= 0) {
        close(m_ends[end]);
    }
    m_ends[end] = -1;
}

void tcKeptOutput::take() const {
    dup2(m_ends[kWrite], STDOUT_FILENO);
    if (m_terminal && isatty(STDERR_FILENO) == 1) {
        dup2(m_ends[kWrite], STDERR_FILENO);
    }
}

void tcKeptOutput::begin(pid_t program) {
    std::signal(SIGPIPE, SIG_IGN);
    m_program = program;
    if (m_terminal) {
        sigset_t changes;
        sigemptyset(&changes);
        sigaddset(&changes, SIGWINCH);
        pthread_sigmask(SIG_BLOCK, &changes, nullptr); // of every thread that comes
        m_changes = signalfd(-1, &changes, SFD_CLOEXEC | SFD_NONBLOCK);
        followSize(); // what changed before
    }
    closeEnd(kWrite);
    m_thread = std::thread([this] { passOn(); });
}

// The real terminal has told the program as well, but perhaps before its own had the new size.
void tcKeptOutput::followSize() {
    if (copySize(m_ends[kRead]) && !m_ended) {
        kill(m_program, SIGWINCH);
    }
}

void tcKeptOutput::passOn() {
    std::array<char, 4096> buffer{};
    std::array<pollfd, 2> sources{pollfd{m_ends[kRead], POLLIN, 0}, pollfd{m_changes, POLLIN, 0}};
    while (true) {
        const int ready = poll(sources.data(), sources.size(), kQuietMs);
        if (ready < 0 && errno != EINTR) {
            break;
        }
        if (ready <= 0) {
            if (m_ended) {
                break;
            }
            continue;
        }
        signalfd_siginfo change{};
        if (sources[1].revents != 0 && read(m_changes, &change, sizeof change) > 0) {
            followSize();
        }
        if (sources[0].revents == 0) {
            continue;
        }
        const ssize_t count = read(m_ends[kRead], buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        const std::string_view text(buffer.data(), static_cast<std::size_t>(count));
        m_text += text;
        if (m_shown && !writeAll(text)) {
            break;
        }
    }
    closeEnd(kRead); // whoever still writes learns that nobody reads
}

std::string tcKeptOutput::finish() {
    m_ended = true; // the program's number may soon be somebody else's
    if (m_thread.joinable()) {
        m_thread.join();
    }
    return m_text;
}

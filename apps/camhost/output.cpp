#include "apps/camhost/output.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

#include "apps/camhost/errors.h"

namespace camhost {

namespace {

constexpr std::string_view kToLineStart = "\r\033[K"; // and erase the line

/// Writes everything. A reader that went away is no reason to stop the camera.
void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

/// Takes O_NONBLOCK away.
void waitWhenFull(int descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFL);
    ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

} // namespace

tcOutput::tcOutput() : m_terminal(::isatty(STDERR_FILENO) == 1) {
    // Plug-ins print on both streams: line by line they stay in order, in a pipe as well.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

void tcOutput::sendLogTo(const std::string& file) {
    constexpr mode_t kReadableByAll = 0644;
    const tcDescriptor log(
        file == "-" ? ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)
                    // A pipe that nobody reads is refused, not waited for.
                    : ::open(file.c_str(),
                             O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                             kReadableByAll));
    if (!log.isOpen())
        throw tcFatalError(teExit::eUsage, "the board's output cannot go to \"" + file +
                                               "\": " + std::strerror(errno) +
                                               ". Name another file with --board-output.");
    if (file != "-")
        waitWhenFull(log.get());
    m_replies = tcDescriptor(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    ::dup2(log.get(), STDOUT_FILENO);
}

int tcOutput::replyDescriptor() const {
    return m_replies.isOpen() ? m_replies.get() : STDOUT_FILENO;
}

bool tcOutput::coloured() const {
    const char* const refused = std::getenv("NO_COLOR"); // a custom among programs: not empty
    const char* const terminal = std::getenv("TERM");
    return ::isatty(replyDescriptor()) == 1 && (refused == nullptr || *refused == '\0') &&
           terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

void tcOutput::print(int descriptor, const std::string& text) {
    if (text.empty())
        return;
    const std::lock_guard lock(m_lock);
    eraseProgress();
    std::cout.flush(); // what a plug-in printed before comes before
    std::fflush(stdout);
    writeAll(descriptor, text + "\n");
}

void tcOutput::reply(const std::string& text) {
    print(replyDescriptor(), text);
}

void tcOutput::log(const std::string& text) {
    print(STDOUT_FILENO, text);
}

void tcOutput::error(const std::string& text) {
    print(STDERR_FILENO, text);
}

void tcOutput::progress(const std::string& text) {
    if (!m_terminal)
        return;
    const std::lock_guard lock(m_lock);
    if (text == m_progress)
        return;
    writeAll(STDERR_FILENO, std::string(kToLineStart) + text);
    m_progress = text;
}

void tcOutput::endProgress() {
    const std::lock_guard lock(m_lock);
    eraseProgress();
}

void tcOutput::eraseProgress() {
    if (!m_progress.empty())
        writeAll(STDERR_FILENO, kToLineStart);
    m_progress.clear();
}

} // namespace camhost

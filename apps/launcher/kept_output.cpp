#include "apps/launcher/kept_output.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace {

constexpr std::size_t kRead = 0;
constexpr std::size_t kWrite = 1;
constexpr int kQuietMs = 100; // nothing more comes from a program that has ended

bool writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace

tcKeptOutput::tcKeptOutput() {
    if (pipe2(m_ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("no pipe: ") + std::strerror(errno));
    }
}

tcKeptOutput::~tcKeptOutput() {
    m_ended = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
    closeEnd(kRead);
    closeEnd(kWrite);
}

void tcKeptOutput::closeEnd(std::size_t end) {
    if (m_ends[end] >= 0) {
        close(m_ends[end]);
    }
    m_ends[end] = -1;
}

void tcKeptOutput::take() const {
    dup2(m_ends[kWrite], STDOUT_FILENO);
}

void tcKeptOutput::begin() {
    std::signal(SIGPIPE, SIG_IGN);
    closeEnd(kWrite);
    m_thread = std::thread([this] { passOn(); });
}

void tcKeptOutput::passOn() {
    std::array<char, 4096> buffer{};
    pollfd source{m_ends[kRead], POLLIN, 0};
    while (true) {
        const int ready = poll(&source, 1, kQuietMs);
        if (ready < 0 && errno != EINTR) {
            break;
        }
        if (ready <= 0) {
            if (m_ended) {
                break;
            }
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
        if (!writeAll(text)) {
            break;
        }
    }
    closeEnd(kRead); // whoever still writes learns that nobody reads
}

std::string tcKeptOutput::finish() {
    m_ended = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
    return m_text;
}

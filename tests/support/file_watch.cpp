#include "tests/support/file_watch.h"

#include <array>
#include <cstring>
#include <stdexcept>

#include <sys/inotify.h>
#include <unistd.h>

tcFileWatch::tcFileWatch() : m_descriptor(inotify_init1(IN_NONBLOCK)) {
    if (inotify_add_watch(m_descriptor, ".", IN_OPEN | IN_CLOSE) < 0) {
        throw std::runtime_error("cannot watch the working directory");
    }
}

tcFileWatch::~tcFileWatch() {
    close(m_descriptor);
}

std::vector<std::string> tcFileWatch::take() {
    std::vector<std::string> events;
    alignas(inotify_event) std::array<char, 65536> buffer{};
    const ssize_t length = read(m_descriptor, buffer.data(), buffer.size());
    for (ssize_t at = 0; at < length;) {
        inotify_event event{};
        std::memcpy(&event, buffer.data() + at, sizeof event);
        if (event.len > 0) { // of a file, not of the directory itself
            const char* const what = (event.mask & IN_OPEN) != 0 ? "OPENED " : "CLOSED ";
            events.emplace_back(what + std::string(buffer.data() + at + sizeof event));
        }
        at += static_cast<ssize_t>(sizeof event + event.len);
    }
    return events;
}

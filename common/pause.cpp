#include "common/pause.h"

#include <cerrno>
#include <ctime>

void pauseFor(std::chrono::microseconds duration) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    const std::chrono::nanoseconds rest = duration - seconds;
    timespec left{};
    left.tv_sec = static_cast<decltype(left.tv_sec)>(seconds.count());
    left.tv_nsec = static_cast<decltype(left.tv_nsec)>(rest.count());
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

#include "apps/camhost/interrupt.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace camhost {

namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");
std::atomic<bool> theRequest = false;
std::atomic<bool> theEndRequest = false;

/// Readable while there is a request. Lives as long as the process: signals may come at any time.
int eventDescriptor() {
    static const int theDescriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return theDescriptor;
}

void raise() {
    const int error = errno;
    theRequest = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(eventDescriptor(), &one, sizeof one);
    errno = error;
}

extern "C" void onSignal(int signal) {
    if (signal == SIGTERM)
        theEndRequest = true;
    raise();
}

constexpr std::chrono::milliseconds kSlice{50}; // a person does not notice it

void sleepSlice(std::chrono::milliseconds duration) {
    const std::chrono::nanoseconds nanoseconds = duration;
    constexpr std::int64_t kSecond = 1'000'000'000; // ns
    timespec time{};
    time.tv_sec = static_cast<std::time_t>(nanoseconds.count() / kSecond);
    time.tv_nsec = static_cast<decltype(time.tv_nsec)>(nanoseconds.count() % kSecond);
    ::nanosleep(&time, nullptr); // a signal ends it early: that is what is wanted
}

} // namespace

void tcInterrupt::install() {
    eventDescriptor(); // made before a handler needs it
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool tcInterrupt::requested() {
    return theRequest;
}

bool tcInterrupt::endRequested() {
    return theEndRequest;
}

void tcInterrupt::clear() {
    if (endRequested())
        return;
    theRequest = false;
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t read = ::read(eventDescriptor(), &count, sizeof count);
}

void tcInterrupt::request() {
    raise();
}

int tcInterrupt::descriptor() {
    return eventDescriptor();
}

void tcInterrupt::waitForRequest() {
    pollfd request{eventDescriptor(), POLLIN, 0};
    while (!requested())
        ::poll(&request, 1, kLookAgain);
}

bool tcInterrupt::sleep(std::chrono::milliseconds duration,
                        const std::function<bool(std::chrono::milliseconds)>& goOn) {
    std::chrono::milliseconds slept{0};
    while (slept < duration) {
        if (requested() || (goOn && !goOn(slept)))
            return false;
        const auto slice = std::min(kSlice, duration - slept);
        sleepSlice(slice);
        slept += slice;
    }
    return !requested();
}

tcStartsUninterrupted::tcStartsUninterrupted() : m_before{} {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, &m_before);
}

tcStartsUninterrupted::~tcStartsUninterrupted() {
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

} // namespace camhost

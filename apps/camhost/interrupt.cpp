#include "apps/camhost/interrupt.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>

namespace camhost {

namespace {

static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");
std::atomic<bool> theRequest = false;
std::atomic<bool> theEndRequest = false;

extern "C" void onSignal(int signal) {
    if (signal == SIGTERM)
        theEndRequest = true;
    theRequest = true;
}

constexpr std::chrono::milliseconds kSlice{50}; // a person does not notice it

void sleepSlice(std::chrono::milliseconds duration) {
    const std::chrono::nanoseconds nanoseconds = duration;
    timespec time{};
    time.tv_sec = static_cast<std::time_t>(nanoseconds.count() / 1'000'000'000);
    time.tv_nsec = static_cast<long>(nanoseconds.count() % 1'000'000'000);
    ::nanosleep(&time, nullptr); // a signal ends it early: that is what is wanted
}

} // namespace

void tcInterrupt::install() {
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
    theRequest = theEndRequest.load();
}

void tcInterrupt::request() {
    theRequest = true;
}

bool tcInterrupt::sleep(std::chrono::milliseconds duration,
                        const std::function<void(std::chrono::milliseconds)>& tick) {
    std::chrono::milliseconds slept{0};
    while (slept < duration) {
        if (requested())
            return false;
        if (tick)
            tick(slept);
        const auto slice = std::min(kSlice, duration - slept);
        sleepSlice(slice);
        slept += slice;
    }
    return !requested();
}

} // namespace camhost

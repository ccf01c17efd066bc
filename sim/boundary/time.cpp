// The C library's clock and sleeps.

#include <cerrno>
#include <ctime>
#include <unistd.h>

#include "sim/base/calls.h"
#include "sim/base/export.h"
#include "sim/base/real_calls.h"
#include "sim/boundary/boundary.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/taped.h"

namespace sim {

namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

bool valid(const timespec& time) {
    return time.tv_sec >= 0 && time.tv_nsec >= 0 &&
           static_cast<std::uint64_t>(time.tv_nsec) < kNsPerSecond;
}

std::uint64_t nanoseconds(const timespec& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * kNsPerSecond +
           static_cast<std::uint64_t>(time.tv_nsec);
}

timespec timespecOf(std::uint64_t ns) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(ns / kNsPerSecond);
    time.tv_nsec = static_cast<decltype(time.tv_nsec)>(ns % kNsPerSecond);
    return time;
}

bool isMonotonic(clockid_t clock) {
    return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW ||
           clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}

// Sleeps. \param leftNs what is left when a signal came \return 0 or errno
int sleepReally(std::uint64_t durationNs, std::uint64_t& leftNs) {
    leftNs = 0;
    int error = 0;
    std::uint64_t sleptNs = durationNs;
    bool isReal = true;
    {
        const tcHeadAccess head;
        if (head) {
            head->timePassed();
            error = head->devices.count(teCall::sleep, teDevice::clock);
            if (error != 0) {
                sleptNs = durationNs / 2;
                leftNs = durationNs - sleptNs;
            }
            head->journal.event(teLine::sleep, 0, durationNs, error);
            isReal = head->journal.clock.isReal();
            if (!isReal) {
                head->journal.clock.advance(sleptNs);
                head->timePassed();
            }
        }
    }
    if (isReal) {
        const timespec duration = timespecOf(sleptNs);
        timespec remaining{};
        if (real::nanosleep(&duration, &remaining) != 0) {
            error = errno;
            leftNs += nanoseconds(remaining);
        }
    }
    return error;
}

int sleepFor(std::uint64_t durationNs, std::uint64_t& leftNs) {
    {
        const tcHeadAccess head;
        if (head && taped::sleepWanted(*head) && head->tape.playing()) {
            return taped::playSleep(*head, durationNs, leftNs);
        }
    }
    const int error = sleepReally(durationNs, leftNs);
    const tcHeadAccess head;
    if (head && taped::sleepWanted(*head)) {
        taped::keepSleep(*head, durationNs, error, leftNs);
    }
    return error;
}

int anyNanosleep(const timespec* duration, timespec* remaining) {
    if (duration == nullptr || !valid(*duration)) {
        return EINVAL;
    }
    std::uint64_t leftNs = 0;
    const int error = sleepFor(nanoseconds(*duration), leftNs);
    if (error == EINTR && remaining != nullptr) {
        *remaining = timespecOf(leftNs);
    }
    return error;
}

bool virtualTime(clockid_t clock, timespec& time) {
    const tcHeadAccess head;
    if (!head || head->journal.clock.isReal() || !isMonotonic(clock)) {
        return false;
    }
    time = timespecOf(head->journal.clock.readMonotonic());
    return true;
}

int anyClockGettime(clockid_t clock, timespec* time) {
    if (!outside() && time != nullptr && virtualTime(clock, *time)) {
        return 0;
    }
    return real::clockGettime(clock, time);
}

int anyClockNanosleep(clockid_t clock, int flags, const timespec* duration, timespec* remaining) {
    if ((flags & TIMER_ABSTIME) == 0) {
        return anyNanosleep(duration, remaining);
    }
    if (duration == nullptr || !valid(*duration)) {
        return EINVAL;
    }
    timespec now{};
    if (anyClockGettime(clock, &now) != 0) {
        return EINVAL;
    }
    const std::uint64_t until = nanoseconds(*duration);
    std::uint64_t leftNs = 0;
    return sleepFor(until > nanoseconds(now) ? until - nanoseconds(now) : 0, leftNs);
}

int asResult(int error) {
    if (error != 0) {
        errno = error;
        return -1;
    }
    return 0;
}

} // namespace

} // namespace sim

extern "C" {

SIM_API int nanosleep(const timespec* duration, timespec* remaining) {
    if (sim::outside()) {
        return sim::real::nanosleep(duration, remaining);
    }
    return sim::asResult(sim::anyNanosleep(duration, remaining));
}

SIM_API int clock_nanosleep(clockid_t clock, int flags, const timespec* duration,
                            timespec* remaining) {
    if (sim::outside()) {
        return sim::real::clockNanosleep(clock, flags, duration, remaining);
    }
    return sim::anyClockNanosleep(clock, flags, duration, remaining);
}

SIM_API int usleep(useconds_t microseconds) {
    const timespec duration = sim::timespecOf(std::uint64_t{microseconds} * 1000);
    return nanosleep(&duration, nullptr);
}

SIM_API unsigned sleep(unsigned seconds) {
    const timespec duration = sim::timespecOf(std::uint64_t{seconds} * sim::kNsPerSecond);
    timespec remaining{};
    return nanosleep(&duration, &remaining) == 0 ? 0 : static_cast<unsigned>(remaining.tv_sec);
}

SIM_API int clock_gettime(clockid_t clock, timespec* time) noexcept {
    return sim::anyClockGettime(clock, time);
}

#if !defined(__LP64__)
// What programs with 64-bit time on 32-bit targets call.
struct tsTime64 {
    std::int64_t tv_sec;
    std::int32_t tv_nsec;
    std::int32_t padding;
};

static timespec narrow(const tsTime64& wide) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(wide.tv_sec);
    time.tv_nsec = wide.tv_nsec;
    return time;
}

static void widen(const timespec& time, tsTime64* wide) {
    if (wide != nullptr) {
        *wide = {time.tv_sec, static_cast<std::int32_t>(time.tv_nsec), 0};
    }
}

SIM_API int __clock_gettime64(clockid_t clock, tsTime64* wide) {
    timespec time{};
    const int result = clock_gettime(clock, &time);
    widen(time, wide);
    return result;
}

SIM_API int __nanosleep64(const tsTime64* duration, tsTime64* remaining) {
    const timespec time = narrow(*duration);
    timespec left{};
    const int result = nanosleep(&time, &left);
    widen(left, remaining);
    return result;
}

SIM_API int __clock_nanosleep_time64(clockid_t clock, int flags, const tsTime64* duration,
                                     tsTime64* remaining) {
    const timespec time = narrow(*duration);
    timespec left{};
    const int result = clock_nanosleep(clock, flags, &time, &left);
    widen(left, remaining);
    return result;
}
#endif

} // extern "C"

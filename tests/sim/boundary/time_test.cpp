// The head's time.

#include <cerrno>
#include <chrono>
#include <ctime>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teEventKind;
using testing::ElementsAre;
using namespace std::chrono_literals;

// The kernel's own clock, which no head touches.
std::chrono::nanoseconds wallClock() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST(VirtualTime, EverySleepTakesExactlyItsDurationAndNoTime) {
    const auto head = sim::aVirtualHead().build();
    const auto start = wallClock();
    const timespec second{1, 5};
    EXPECT_EQ(usleep(300000), 0);
    EXPECT_EQ(nanosleep(&second, nullptr), 0);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &second, nullptr), 0);
    EXPECT_EQ(sleep(2), 0U);
    std::this_thread::sleep_for(7ms);
    EXPECT_EQ(head.now(), 4s + 307ms + 10ns);
    EXPECT_LT(wallClock() - start, 1s);
    EXPECT_THAT(head.lines(teEventKind::sleep),
                ElementsAre("SLEEP 300000000 ns", "SLEEP 1000000005 ns", "SLEEP 1000000005 ns",
                            "SLEEP 2000000000 ns", "SLEEP 7000000 ns"));
}

TEST(VirtualTime, TheMonotonicClockReadsIt) {
    auto head = sim::aVirtualHead().build();
    const auto start = std::chrono::steady_clock::now();
    usleep(1234);
    EXPECT_EQ(std::chrono::steady_clock::now() - start, 1234us);
    head.advance(1s);
    EXPECT_EQ(std::chrono::steady_clock::now() - start, 1s + 1234us);
    EXPECT_THAT(head.lines(teEventKind::sleep), ElementsAre("SLEEP 1234000 ns"));
}

TEST(VirtualTime, SleepingUntilAPointInTimeIsTheRest) {
    const auto head = sim::aVirtualHead().build();
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += 3;
    usleep(1000);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr), 0);
    EXPECT_EQ(head.now(), 3s);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr), 0);
    EXPECT_THAT(head.lines(teEventKind::sleep),
                ElementsAre("SLEEP 1000000 ns", "SLEEP 2999000000 ns", "SLEEP 0 ns"));
}

TEST(VirtualTime, ARegisterAccessTakesNone) {
    const auto head = sim::aVirtualHead().build();
    const tcRegisters base(0xFF200000);
    static_cast<void>(base.read(0));
    EXPECT_EQ(head.now(), 0ns);
}

TEST(VirtualTime, AnInterruptedSleepSaysWhatIsLeft) {
    const auto head =
        sim::aVirtualHead().withFailingCall(sim::teCall::sleep, "clock", 1, EINTR).build();
    const timespec duration{0, 10'000'000};
    timespec remaining{};
    EXPECT_EQ(nanosleep(&duration, &remaining), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(remaining.tv_nsec, 5'000'000);
    EXPECT_EQ(nanosleep(&remaining, nullptr), 0);
    EXPECT_EQ(head.now(), 10ms);
    EXPECT_THAT(head.lines(teEventKind::sleep),
                ElementsAre("SLEEP 10000000 ns failed EINTR", "SLEEP 5000000 ns"));
}

TEST(VirtualTime, WrongDurationsAreRefused) {
    const auto head = sim::aVirtualHead().build();
    const timespec wrong{0, 1'000'000'000};
    EXPECT_EQ(nanosleep(&wrong, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &wrong, nullptr), EINVAL);
    EXPECT_TRUE(head.lines().empty());
}

TEST(VirtualTime, WaitingForADeadlineEnds) {
    const auto head = sim::aVirtualHead().build();
    const auto deadline = std::chrono::steady_clock::now() + 10ms;
    while (std::chrono::steady_clock::now() < deadline) {
    }
    EXPECT_GE(head.now(), 10ms);
}

TEST(VirtualTime, AHundredReadingsOfTheClockLeaveItWhereItIs) {
    const auto head = sim::aVirtualHead().build();
    const auto start = std::chrono::steady_clock::now();
    for (int reading = 0; reading < 100; ++reading) {
        EXPECT_EQ(std::chrono::steady_clock::now(), start);
    }
}

TEST(VirtualTime, WithoutAHeadTimeIsTheKernels) {
    const auto start = wallClock();
    usleep(2000);
    EXPECT_GE(wallClock() - start, 2ms);
}

TEST(RealTime, SleepsReallySleep) {
    const auto head = sim::aVirtualHead().withRealTime().build();
    const auto start = wallClock();
    usleep(3000);
    EXPECT_GE(wallClock() - start, 3ms);
    EXPECT_GE(head.now(), 3ms);
    EXPECT_THAT(head.lines(teEventKind::sleep), ElementsAre("SLEEP 3000000 ns"));
}

TEST(RealTime, WireTimeKeepsTheCallerBusy) {
    const auto head =
        sim::aVirtualHead().withRealTime().withWireTime().withQuietViolations().build();
    tcPort port;
    port.configure();
    port.setSpeed(100'000); // 320 us a word
    const auto start = wallClock();
    for (int word = 0; word < 10; ++word) {
        port.writeRegister(0x20, 0);
    }
    EXPECT_GE(wallClock() - start, 3200us);
}

} // namespace

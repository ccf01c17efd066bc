#include <varnox/mutex.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include <gtest/gtest.h>

namespace {

/// Runs something on a thread of its own, to its end.
template<typename F>
void onAnotherThread(F&& f) {
    std::thread(std::forward<F>(f)).join();
}

void leaveLocked(tcMutex& mutex) {
    onAnotherThread([&] { EXPECT_EQ(mutex.lock(), 0); });
}

class AnyMutex : public testing::TestWithParam<bool> {};

} // namespace

INSTANTIATE_TEST_SUITE_P(Mutex, AnyMutex, testing::Values(false, true),
                         [](const auto& kind) { return kind.param ? "Recursive" : "Plain"; });

TEST_P(AnyMutex, LocksAndUnlocks) {
    tcMutex mutex(GetParam());
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(mutex.lock(), 0);
        EXPECT_EQ(mutex.unlock(), 0);
    }
}

TEST_P(AnyMutex, RefusesToBeUnlockedByWhoDoesNotHoldIt) {
#ifdef HEAD_THREAD_SANITIZER
    GTEST_SKIP() << "thread sanitizer takes the attempt itself for an error";
#endif
    tcMutex mutex(GetParam());
    EXPECT_EQ(mutex.unlock(), EPERM);
    ASSERT_EQ(mutex.lock(), 0);
    onAnotherThread([&] { EXPECT_EQ(mutex.unlock(), EPERM); });
    EXPECT_EQ(mutex.unlock(), 0);
}

TEST_P(AnyMutex, TellsThatItsOwnerDiedAndIsHeldThen) {
    tcMutex mutex(GetParam());
    leaveLocked(mutex);
    EXPECT_EQ(mutex.lock(), EOWNERDEAD);
    EXPECT_EQ(mutex.consistent(), 0);
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.unlock(), 0);
}

TEST_P(AnyMutex, IsLostWhenItIsUnlockedWithoutBeingMadeConsistent) {
    tcMutex mutex(GetParam());
    leaveLocked(mutex);
    EXPECT_EQ(mutex.lock(), EOWNERDEAD);
    EXPECT_EQ(mutex.unlock(), 0);
    EXPECT_EQ(mutex.lock(), ENOTRECOVERABLE);
}

TEST_P(AnyMutex, IsNotMadeConsistentWhenNobodyDied) {
    tcMutex mutex(GetParam());
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.consistent(), EINVAL);
    EXPECT_EQ(mutex.unlock(), 0);
}

TEST_P(AnyMutex, KeepsOtherThreadsOut) {
    constexpr int kRounds = 10000;
    tcMutex mutex(GetParam());
    int count = 0; // not atomic: the mutex has to do
    const auto work = [&] {
        for (int i = 0; i < kRounds; ++i) {
            mutex.lock();
            ++count;
            mutex.unlock();
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(count, 20000);
}

TEST(Mutex, RecursiveIsLockedAgainByItsOwnerOnly) {
    tcMutex mutex(true);
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.unlock(), 0);

    std::atomic<bool> entered = false;
    std::thread other([&] {
        EXPECT_EQ(mutex.lock(), 0);
        entered = true;
        EXPECT_EQ(mutex.unlock(), 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(entered); // unlocked once of two times
    EXPECT_EQ(mutex.unlock(), 0);
    other.join();
    EXPECT_TRUE(entered);
}

TEST(Mutex, PlainTellsItsOwnerThatItIsHeldAlready) {
    tcMutex mutex(false);
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.lock(), EDEADLK);
    EXPECT_EQ(mutex.unlock(), 0);
}

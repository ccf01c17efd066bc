#include "sim/base/spin_lock.h"

#include <sched.h>

#include "sim/base/real_calls.h"

// The thread sanitizer of a program, where it has one: it does not see the lock of a library that
// is compiled without it.
extern "C" {
[[gnu::weak, gnu::visibility("default")]] void __tsan_acquire(void* address);
[[gnu::weak, gnu::visibility("default")]] void __tsan_release(void* address);
}

namespace sim {

namespace {
// Its address tells threads apart without a system call. The model is known at link time, so that
// reading it in a signal handler never allocates.
[[gnu::tls_model("initial-exec")]] thread_local char t_thread;
constexpr int kSpinsBeforeYield = 100;
} // namespace

bool tcSpinLock::mine() const {
    return m_owner.load(std::memory_order_relaxed) == &t_thread;
}

void tcSpinLock::lock() {
    if (mine()) {
        stopProgram("virtual head: a signal handler reached the head while its thread was inside "
                    "the head\n");
    }
    int spins = 0;
    const void* nobody = nullptr;
    while (!m_owner.compare_exchange_weak(nobody, &t_thread, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
        nobody = nullptr;
        if (++spins >= kSpinsBeforeYield) {
            spins = 0;
            sched_yield();
        }
    }
    if (__tsan_acquire != nullptr) {
        __tsan_acquire(this);
    }
}

void tcSpinLock::unlock() {
    if (__tsan_release != nullptr) {
        __tsan_release(this);
    }
    m_owner.store(nullptr, std::memory_order_release);
}

} // namespace sim

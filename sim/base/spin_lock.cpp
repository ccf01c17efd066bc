#include "sim/base/spin_lock.h"

#include <sched.h>

#include "sim/base/real_calls.h"

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
}

} // namespace sim

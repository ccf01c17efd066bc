/// \file
/// The head of this process, and the one lock through which everybody reaches it.
#pragma once

#include <atomic>

#include "sim/base/spin_lock.h"
#include "sim/head/model.h"
#include "sim/journal/live_ring.h"

namespace sim {

/// Guards the head and everything in it.
extern tcSpinLock g_headLock;

/// The head that answers this process's devices, or null. Changes only under `g_headLock`.
extern std::atomic<tcModel*> g_head;

/// Where the head shows what happens while the program runs, or null. Changes only under
/// `g_headLock`.
extern tcLiveRing* g_live;

/// Who comes in although the program's calls wait: whoever looks at the run.
struct tsPastStop {};

/// Holds the head's lock. `model` is null when there is no head.
class tcHeadAccess {
public:
    /// Waits first while somebody has stopped the program's calls.
    tcHeadAccess() {
        g_headLock.lock();
        while (g_live != nullptr && g_live->stopped()) {
            tcLiveRing* const live = g_live; // it stays mapped
            g_headLock.unlock();
            live->wait();
            g_headLock.lock();
        }
        enter();
    }
    explicit tcHeadAccess(tsPastStop) {
        g_headLock.lock();
        enter();
    }
    tcHeadAccess(const tcHeadAccess&) = delete;
    tcHeadAccess& operator=(const tcHeadAccess&) = delete;
    ~tcHeadAccess() { g_headLock.unlock(); }
    explicit operator bool() const { return m_model != nullptr; }
    tcModel* operator->() const { return m_model; }
    tcModel& operator*() const { return *m_model; }

private:
    void enter() {
        m_model = g_head.load(std::memory_order_relaxed);
        if (m_model != nullptr) {
            m_model->catchUp();
        }
    }
    tcModel* m_model = nullptr;
};

/// From now on a child process gets the head with its lock free, whatever other threads did.
void survivesFork();

/// \return whether there is a head at all, without taking the lock
inline bool headPresent() {
    return g_head.load(std::memory_order_acquire) != nullptr;
}

} // namespace sim

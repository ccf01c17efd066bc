/// \file
/// The head of this process, and the one lock through which everybody reaches it.
#pragma once

#include <atomic>

#include "sim/base/spin_lock.h"
#include "sim/head/model.h"

namespace sim {

/// Guards the head and everything in it.
extern tcSpinLock g_headLock;

/// The head that answers this process's devices, or null. Changes only under `g_headLock`.
extern std::atomic<tcModel*> g_head;

/// Holds the head's lock. `model` is null when there is no head.
class tcHeadAccess {
public:
    tcHeadAccess() {
        g_headLock.lock();
        m_model = g_head.load(std::memory_order_relaxed);
        if (m_model != nullptr) {
            m_model->catchUp();
        }
    }
    tcHeadAccess(const tcHeadAccess&) = delete;
    tcHeadAccess& operator=(const tcHeadAccess&) = delete;
    ~tcHeadAccess() { g_headLock.unlock(); }
    explicit operator bool() const { return m_model != nullptr; }
    tcModel* operator->() const { return m_model; }
    tcModel& operator*() const { return *m_model; }

private:
    tcModel* m_model;
};

/// From now on a child process gets the head with its lock free, whatever other threads did.
void survivesFork();

/// \return whether there is a head at all, without taking the lock
inline bool headPresent() {
    return g_head.load(std::memory_order_acquire) != nullptr;
}

} // namespace sim

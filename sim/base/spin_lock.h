/// \file
/// A lock for signal handlers.
#pragma once

#include <atomic>

namespace sim {

/// A lock that a signal handler may take: no heap, no system call but yielding. It is not
/// recursive: a thread that takes it twice (a signal handler of the program that reaches the head
/// while its thread is inside the head) stops the program with a message instead of hanging.
class tcSpinLock {
public:
    void lock();
    void unlock();
    /// \return whether the calling thread holds the lock
    [[nodiscard]] bool mine() const;

private:
    std::atomic<const void*> m_owner{nullptr};
};

} // namespace sim

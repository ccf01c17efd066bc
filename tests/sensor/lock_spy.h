/// \file
/// Sees every lock and unlock of the host's mutex, and makes what goes wrong with locks go wrong.
#pragma once

#include <functional>

/// What the spy does, for the whole process. Set it while no other thread runs.
struct tsLockSpy {
    std::function<void()> afterLock;    ///< called by the thread that has just locked a mutex
    std::function<void()> beforeUnlock; ///< called by the thread that is about to unlock a mutex
    std::function<void()> beforeWrite;  ///< called before a SPI message; may throw
    std::function<void()> onConsistent; ///< called when a mutex is made consistent
    int consistentResult = 0;           ///< other than 0: pthread_mutex_consistent fails so
};

tsLockSpy& lockSpy();

/// While it is true, this thread's unlocks do nothing: it ends holding its locks, and dies so.
bool& keepsItsLocks();

/// \file
/// Sees every lock and unlock of the host's mutex, and lets threads die with their locks.
#pragma once

#include <functional>

class tcMutex;

/// What the spy does, for the whole process. Set it while no other thread runs.
struct tsLockSpy {
    /// Called by the thread that has just locked a mutex.
    std::function<void(const tcMutex& mutex)> afterLock;
    /// Called by the thread that is about to unlock a mutex.
    std::function<void(const tcMutex& mutex)> beforeUnlock;
    /// What every unlock answers, once it is done.
    int unlockResult = 0;
    /// Called before a SPI message; may throw.
    std::function<void()> beforeWrite;
};

tsLockSpy& lockSpy();

/// While it is true, this thread's unlocks do nothing: it ends holding its locks, and dies so.
bool& keepsItsLocks();

/// \file
/// Sees every mutex that is made consistent, and makes that fail.
#pragma once

#include <functional>

/// What the spy does, for the whole process. Set it while no other thread runs.
struct tsConsistencySpy {
    std::function<void()> before; ///< called before a mutex is made consistent
    int result = 0;               ///< other than 0: pthread_mutex_consistent fails so
};

tsConsistencySpy& consistencySpy();

/// \file
/// Every locked section of the product.
#pragma once

#include <varnox/mutex.h>

/// Holds a host mutex for a scope. A mutex whose previous owner died is made consistent; when that
/// fails, "pthread_mutex_consistent failed" goes to standard error through `perror`, and the
/// section is entered all the same.
class tcMutexGuard {
public:
    explicit tcMutexGuard(tcMutex& mutex);
    ~tcMutexGuard();
    tcMutexGuard(const tcMutexGuard&) = delete;
    tcMutexGuard& operator=(const tcMutexGuard&) = delete;

    /// Ends the section before the scope does.
    /// \return the code of `pthread_mutex_unlock`; when the mutex could not be locked at all, the
    ///         code of that
    int unlock();

private:
    tcMutex& m_mutex;
    int m_lockResult;
    bool m_held;
};

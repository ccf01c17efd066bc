/// \file
/// The host's mutex.
#pragma once

#include <pthread.h>

#include <varnox/export.h>

/// A POSIX mutex, always robust: a thread that dies holding it leaves it lockable.
class VARNOX_API tcMutex {
public:
    /// \param recursive the owning thread may lock again
    explicit tcMutex(bool recursive);
    tcMutex(const tcMutex&) = delete;
    tcMutex& operator=(const tcMutex&) = delete;
    ~tcMutex();

    /// \return the code of `pthread_mutex_lock`: 0, or EOWNERDEAD with the mutex held and in need
    /// of
    ///         `consistent`
    int lock();

    /// \return the code of `pthread_mutex_unlock`
    int unlock();

    /// Makes a mutex usable again whose previous owner died.
    /// \return the code of `pthread_mutex_consistent`
    int consistent();

private:
    pthread_mutex_t m_mutex;
};

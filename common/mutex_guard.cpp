#include "common/mutex_guard.h"

#include <cerrno>
#include <cstdio>

tcMutexGuard::tcMutexGuard(tcMutex& mutex)
    : m_mutex(mutex),
      m_lockResult(mutex.lock()),
      m_held(m_lockResult == 0 || m_lockResult == EOWNERDEAD) {
    if (m_lockResult == EOWNERDEAD) {
        // The pthread calls return their error instead of setting errno, where perror looks.
        if (const int result = m_mutex.consistent(); result != 0) {
            errno = result;
            std::perror("pthread_mutex_consistent failed");
        }
    }
}

tcMutexGuard::~tcMutexGuard() {
    if (m_held) {
        m_mutex.unlock();
    }
}

int tcMutexGuard::unlock() {
    if (!m_held) {
        return m_lockResult;
    }
    m_held = false;
    return m_mutex.unlock();
}

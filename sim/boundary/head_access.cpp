#include "sim/boundary/head_access.h"

#include <pthread.h>

namespace sim {

constinit tcSpinLock g_headLock;
constinit std::atomic<tcModel*> g_head{nullptr};

void survivesFork() {
    static constinit std::atomic<bool> done{false};
    if (!done.exchange(true)) {
        pthread_atfork([] { g_headLock.lock(); }, [] { g_headLock.unlock(); },
                       [] { g_headLock.unlock(); });
    }
}

} // namespace sim

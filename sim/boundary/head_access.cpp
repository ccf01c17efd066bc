#include "sim/boundary/head_access.h"

#include <pthread.h>

#include "sim/boundary/live.h"

namespace sim {

constinit tcSpinLock g_headLock;
constinit std::atomic<tcModel*> g_head{nullptr};
constinit tcLiveRing* g_live = nullptr;

void survivesFork() {
    static constinit std::atomic<bool> done{false};
    if (!done.exchange(true)) {
        pthread_atfork([] { g_headLock.lock(); }, [] { g_headLock.unlock(); },
                       [] {
                           live::forget();
                           g_headLock.unlock();
                       });
    }
}

} // namespace sim

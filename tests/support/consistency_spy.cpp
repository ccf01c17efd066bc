#include "tests/support/consistency_spy.h"

#include <dlfcn.h>
#include <pthread.h>

tsConsistencySpy& consistencySpy() {
    static tsConsistencySpy spy;
    return spy;
}

/// Stands before the C library's.
extern "C" __attribute__((visibility("default"))) int
pthread_mutex_consistent(pthread_mutex_t* mutex) noexcept {
    static const auto real =
        reinterpret_cast<int (*)(pthread_mutex_t*)>(dlsym(RTLD_NEXT, "pthread_mutex_consistent"));
    const tsConsistencySpy& spy = consistencySpy();
    if (spy.before) {
        spy.before();
    }
    return spy.result != 0 ? spy.result : real(mutex);
}

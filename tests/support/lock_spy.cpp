#include "tests/support/lock_spy.h"

#include <dlfcn.h>

#include <varnox/mutex.h>
#include <varnox/spi_device.h>

namespace {

template<class Spy, class... Arguments>
void call(const Spy& spy, const Arguments&... arguments) {
    if (spy) {
        spy(arguments...);
    }
}

/// The definition that this program's own stands before.
template<class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

tsLockSpy& lockSpy() {
    static tsLockSpy spy;
    return spy;
}

bool& keepsItsLocks() {
    thread_local bool keeps = false;
    return keeps;
}

int tcMutex::lock() {
    static const auto real = next<int (*)(tcMutex*)>("_ZN7tcMutex4lockEv");
    const int result = real(this);
    call(lockSpy().afterLock, *this);
    return result;
}

int tcMutex::unlock() {
    static const auto real = next<int (*)(tcMutex*)>("_ZN7tcMutex6unlockEv");
    if (keepsItsLocks()) {
        return 0;
    }
    call(lockSpy().beforeUnlock, *this);
    const int result = real(this);
    return lockSpy().unlockResult != 0 ? lockSpy().unlockResult : result;
}

int tcSPIDevice::write(const void* bytes, std::size_t count) {
    // The mangled name ends in the type that std::size_t is on the target.
    constexpr const char* kName =
        sizeof(std::size_t) == 8 ? "_ZN11tcSPIDevice5writeEPKvm" : "_ZN11tcSPIDevice5writeEPKvj";
    static const auto real = next<int (*)(tcSPIDevice*, const void*, std::size_t)>(kName);
    call(lockSpy().beforeWrite);
    return real(this, bytes, count);
}

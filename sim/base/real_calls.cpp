#include "sim/base/real_calls.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace sim {

namespace {

// One function of the C library. The pointer is looked up without a guard, because the first call
// may come before this library's constructors or from a signal handler.
template<class Function>
class tcReal;
template<class Result, class... Arguments>
class tcReal<Result(Arguments...)> {
public:
    constexpr explicit tcReal(const char* name) : m_name(name) {}

    void resolve() {
        if (m_function.load(std::memory_order_acquire) == nullptr) {
            void* found = dlsym(RTLD_NEXT, m_name);
            Function function = nullptr;
            static_assert(sizeof function == sizeof found);
            std::memcpy(&function, &found, sizeof function);
            m_function.store(function, std::memory_order_release);
        }
    }
    Result operator()(Arguments... arguments) {
        resolve();
        return m_function.load(std::memory_order_acquire)(arguments...);
    }

private:
    using Function = Result (*)(Arguments...);
    const char* m_name;
    std::atomic<Function> m_function{nullptr};
};

// Variadic functions are called as variadic functions: the register use differs on some targets.
using tOpen = int (*)(const char*, int, ...);
using tOpenat = int (*)(int, const char*, int, ...);
using tIoctl = int (*)(int, unsigned long, ...);

template<class Function>
class tcRealVariadic {
public:
    constexpr explicit tcRealVariadic(const char* name) : m_name(name) {}
    Function get() {
        Function function = m_function.load(std::memory_order_acquire);
        if (function == nullptr) {
            void* found = dlsym(RTLD_NEXT, m_name);
            std::memcpy(&function, &found, sizeof function);
            m_function.store(function, std::memory_order_release);
        }
        return function;
    }

private:
    const char* m_name;
    std::atomic<Function> m_function{nullptr};
};

// The 64-bit forms take every file offset on 32-bit targets as well.
constinit tcRealVariadic<tOpen> s_open("open64");
constinit tcRealVariadic<tOpenat> s_openat("openat64");
constinit tcRealVariadic<tIoctl> s_ioctl("ioctl");
constinit tcReal<int(int)> s_close("close");
constinit tcReal<int(const char*, void*)> s_stat("stat");
constinit tcReal<int(const char*, void*)> s_stat64("stat64");
constinit tcReal<int(const char*, void*)> s_lstat("lstat");
constinit tcReal<int(const char*, void*)> s_lstat64("lstat64");
constinit tcReal<int(int, const char*, void*, int)> s_fstatat("fstatat");
constinit tcReal<int(int, const char*, void*, int)> s_fstatat64("fstatat64");
constinit tcReal<int(const char*, int)> s_access("access");
constinit tcReal<int(int, const char*, int, int)> s_faccessat("faccessat");
constinit tcReal<ssize_t(int, void*, std::size_t)> s_read("read");
constinit tcReal<ssize_t(int, const void*, std::size_t)> s_write("write");
constinit tcReal<void*(void*, std::size_t, int, int, int, off64_t)> s_mmap("mmap64");
constinit tcReal<int(void*, std::size_t)> s_munmap("munmap");
constinit tcReal<int(const timespec*, timespec*)> s_nanosleep("nanosleep");
constinit tcReal<int(clockid_t, int, const timespec*, timespec*)>
    s_clockNanosleep("clock_nanosleep");
constinit tcReal<int(clockid_t, timespec*)> s_clockGettime("clock_gettime");
constinit tcReal<int(int, const struct ::sigaction*, struct ::sigaction*)> s_sigaction("sigaction");
constinit tcReal<sighandler_t(int, sighandler_t)> s_signal("signal");
constinit tcReal<int(int, const sigset_t*, sigset_t*)> s_sigprocmask("sigprocmask");
constinit tcReal<int(int, const sigset_t*, sigset_t*)> s_pthreadSigmask("pthread_sigmask");
constinit tcReal<void()> s_abort("abort");
constinit tcReal<void(int)> s_exitNow("_exit");

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

} // namespace

namespace real {

int open(const char* path, int flags, mode_t mode) {
    return s_open.get()(path, flags, mode);
}
int openat(int folder, const char* path, int flags, mode_t mode) {
    return s_openat.get()(folder, path, flags, mode);
}
int close(int descriptor) {
    return s_close(descriptor);
}
int stat(const char* path, void* status) {
    return s_stat(path, status);
}
int stat64(const char* path, void* status) {
    return s_stat64(path, status);
}
int lstat(const char* path, void* status) {
    return s_lstat(path, status);
}
int lstat64(const char* path, void* status) {
    return s_lstat64(path, status);
}
int fstatat(int folder, const char* path, void* status, int flags) {
    return s_fstatat(folder, path, status, flags);
}
int fstatat64(int folder, const char* path, void* status, int flags) {
    return s_fstatat64(folder, path, status, flags);
}
int access(const char* path, int mode) {
    return s_access(path, mode);
}
int faccessat(int folder, const char* path, int mode, int flags) {
    return s_faccessat(folder, path, mode, flags);
}
int ioctl(int descriptor, unsigned long request, void* argument) {
    return s_ioctl.get()(descriptor, request, argument);
}
ssize_t read(int descriptor, void* buffer, std::size_t count) {
    return s_read(descriptor, buffer, count);
}
ssize_t write(int descriptor, const void* buffer, std::size_t count) {
    return s_write(descriptor, buffer, count);
}
void* mmap(void* address, std::size_t length, int protection, int flags, int descriptor,
           std::int64_t offset) {
    return s_mmap(address, length, protection, flags, descriptor, offset);
}
int munmap(void* address, std::size_t length) {
    return s_munmap(address, length);
}
int nanosleep(const timespec* duration, timespec* remaining) {
    return s_nanosleep(duration, remaining);
}
int clockNanosleep(clockid_t clock, int flags, const timespec* duration, timespec* remaining) {
    return s_clockNanosleep(clock, flags, duration, remaining);
}
int clockGettime(clockid_t clock, timespec* time) {
    return s_clockGettime(clock, time);
}
int sigaction(int number, const struct ::sigaction* action, struct ::sigaction* old) {
    return s_sigaction(number, action, old);
}
sighandler_t signal(int number, sighandler_t handler) {
    return s_signal(number, handler);
}
int sigprocmask(int how, const sigset_t* set, sigset_t* old) {
    return s_sigprocmask(how, set, old);
}
int pthreadSigmask(int how, const sigset_t* set, sigset_t* old) {
    return s_pthreadSigmask(how, set, old);
}
void abort() {
    s_abort();
    __builtin_unreachable();
}
void exitNow(int status) {
    s_exitNow(status);
    __builtin_unreachable();
}

std::uint64_t monotonicNs() {
    timespec time{};
    clockGettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * kNsPerSecond +
           static_cast<std::uint64_t>(time.tv_nsec);
}

void resolveAll() {
    s_open.get();
    s_openat.get();
    s_ioctl.get();
    s_close.resolve();
    s_stat.resolve();
    s_stat64.resolve();
    s_lstat.resolve();
    s_lstat64.resolve();
    s_fstatat.resolve();
    s_fstatat64.resolve();
    s_access.resolve();
    s_faccessat.resolve();
    s_read.resolve();
    s_write.resolve();
    s_mmap.resolve();
    s_munmap.resolve();
    s_nanosleep.resolve();
    s_clockNanosleep.resolve();
    s_clockGettime.resolve();
    s_sigaction.resolve();
    s_signal.resolve();
    s_sigprocmask.resolve();
    s_pthreadSigmask.resolve();
    s_abort.resolve();
    s_exitNow.resolve();
}

} // namespace real

void writeError(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = real::write(STDERR_FILENO, text.data(), text.size());
        if (written <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void stopProgram(std::string_view text) {
    writeError(text);
    real::abort();
}

} // namespace sim

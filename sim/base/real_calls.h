/// \file
/// The C library's own functions behind those that the virtual head stands in for.
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <sys/types.h>

namespace sim {

/// Each is found with RTLD_NEXT when it is first called; safe from any thread and at any time.
namespace real {
int open(const char* path, int flags, mode_t mode);
int openat(int folder, const char* path, int flags, mode_t mode);
int close(int descriptor);
int ioctl(int descriptor, unsigned long request, void* argument);
// `status` is the structure of the form that is called.
int stat(const char* path, void* status);
int stat64(const char* path, void* status);
int lstat(const char* path, void* status);
int lstat64(const char* path, void* status);
int fstatat(int folder, const char* path, void* status, int flags);
int fstatat64(int folder, const char* path, void* status, int flags);
int access(const char* path, int mode);
int faccessat(int folder, const char* path, int mode, int flags);
ssize_t read(int descriptor, void* buffer, std::size_t count);
ssize_t write(int descriptor, const void* buffer, std::size_t count);
void* mmap(void* address, std::size_t length, int protection, int flags, int descriptor,
           std::int64_t offset);
int munmap(void* address, std::size_t length);
int nanosleep(const timespec* duration, timespec* remaining);
int clockNanosleep(clockid_t clock, int flags, const timespec* duration, timespec* remaining);
int clockGettime(clockid_t clock, timespec* time);
int sigaction(int number, const struct ::sigaction* action, struct ::sigaction* old);
sighandler_t signal(int number, sighandler_t handler);
int sigprocmask(int how, const sigset_t* set, sigset_t* old);
int pthreadSigmask(int how, const sigset_t* set, sigset_t* old);
[[noreturn]] void abort();
[[noreturn]] void exitNow(int status);

/// \return the kernel's monotonic time [ns]
std::uint64_t monotonicNs();
/// Finds all of them now.
void resolveAll();
} // namespace real

/// Writes to standard error, whole, past every buffer.
void writeError(std::string_view text);

/// Says why on standard error and aborts.
[[noreturn]] void stopProgram(std::string_view text);

} // namespace sim

#include "tests/reliability/file_opens.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// What becomes of one file.
struct tsWatch {
    enum class teMode { passes, refuses, breaksOff };

    std::array<char, 64> path{};
    teMode mode = teMode::passes;
    int error = 0;
    std::uint64_t nth = 0; // opening; 0: every one
    std::uint64_t opens = 0;
    bool struck = false;
    // Of a reading that breaks off.
    dev_t device = 0;
    ino_t inode = 0; // 0: nobody has it open
    std::size_t left = 0;
};

constexpr std::size_t kFewBytes = 7;

// Programs open files before their first constructor runs: nothing here needs one.
constinit std::array<tsWatch, 16> s_watches{};
constinit std::atomic<int> s_broken{0}; // files whose reading breaks off

tsWatch* watchOf(const char* path) {
    for (tsWatch& watch : s_watches) {
        if (path != nullptr && watch.path[0] != '\0' && std::strcmp(watch.path.data(), path) == 0) {
            return &watch;
        }
    }
    return nullptr;
}

void watch(const std::string& path, tsWatch::teMode mode, int error, std::uint64_t nth) {
    tsWatch* place = watchOf(path.c_str());
    for (tsWatch& free : s_watches) {
        if (place == nullptr && free.path[0] == '\0') {
            place = &free;
        }
    }
    if (place == nullptr || path.size() >= place->path.size()) {
        throw std::length_error("no room for another file");
    }
    s_broken -= place->mode == tsWatch::teMode::breaksOff ? 1 : 0;
    *place = {};
    std::memcpy(place->path.data(), path.c_str(), path.size() + 1);
    place->mode = mode;
    place->error = error;
    place->nth = nth;
    s_broken += mode == tsWatch::teMode::breaksOff ? 1 : 0;
}

bool refused(const char* path) {
    tsWatch* const watch = watchOf(path);
    if (watch == nullptr) {
        return false;
    }
    ++watch->opens;
    if (watch->mode != tsWatch::teMode::refuses ||
        (watch->nth != 0 && watch->nth != watch->opens)) {
        return false;
    }
    watch->struck = true;
    errno = watch->error;
    return true;
}

template<class Function>
Function* next(const char* name) {
    void* const found = dlsym(RTLD_NEXT, name);
    Function* function = nullptr;
    static_assert(sizeof function == sizeof found);
    std::memcpy(&function, &found, sizeof function);
    return function;
}

// ---- Readings that break off

/// Begins a reading, if it is one that breaks off.
void beginReading(const char* path, int descriptor) {
    tsWatch* const watch = watchOf(path);
    struct stat status {};
    if (watch != nullptr && watch->mode == tsWatch::teMode::breaksOff &&
        fstat(descriptor, &status) == 0) {
        watch->device = status.st_dev;
        watch->inode = status.st_ino;
        watch->left = static_cast<std::size_t>(status.st_size / 2);
    }
}

tsWatch* brokenFileOf(int descriptor) {
    struct stat status {};
    if (s_broken == 0 || fstat(descriptor, &status) != 0) {
        return nullptr;
    }
    const auto found =
        std::find_if(s_watches.begin(), s_watches.end(), [&status](const tsWatch& watch) {
            return watch.mode == tsWatch::teMode::breaksOff && watch.inode == status.st_ino &&
                   watch.device == status.st_dev;
        });
    return found == s_watches.end() ? nullptr : &*found;
}

ssize_t readOn(int descriptor, void* buffer, std::size_t count) {
    static auto* const real = next<ssize_t(int, void*, std::size_t)>("read");
    return real(descriptor, buffer, count);
}

ssize_t readAPart(tsWatch& watch, int descriptor, void* buffer, std::size_t count) {
    if (watch.error == 0) {
        watch.struck = true;
        return readOn(descriptor, buffer, std::min(count, kFewBytes));
    }
    if (watch.left > 0) {
        const ssize_t done = readOn(descriptor, buffer, std::min(count, watch.left));
        watch.left -= done > 0 ? static_cast<std::size_t>(done) : 0;
        return done;
    }
    if (watch.error == EINTR && watch.struck) {
        return readOn(descriptor, buffer, count);
    }
    watch.struck = true;
    errno = watch.error;
    return -1;
}

/// The C library's streams read without asking anybody: this one asks `read`.
std::FILE* throughRead(std::FILE* stream) {
    const cookie_io_functions_t functions{
        [](void* cookie, char* buffer, std::size_t size) {
            return read(fileno(static_cast<std::FILE*>(cookie)), buffer, size);
        },
        nullptr, nullptr,
        [](void* cookie) { return std::fclose(static_cast<std::FILE*>(cookie)); }};
    return fopencookie(stream, "r", functions);
}

std::FILE* passOn(const char* name, const char* path, const char* mode) {
    if (refused(path)) {
        return nullptr;
    }
    std::FILE* const stream = next<std::FILE*(const char*, const char*)>(name)(path, mode);
    const tsWatch* const watch = watchOf(path);
    if (stream == nullptr || watch == nullptr || watch->mode != tsWatch::teMode::breaksOff) {
        return stream;
    }
    beginReading(path, fileno(stream));
    // File streams of the C++ library open so too, but take the descriptor and read themselves.
    return std::string_view(path).ends_with(".ini") ? throughRead(stream) : stream;
}

int passOn(const char* name, const char* path, int flags, std::va_list arguments) {
    if (refused(path)) {
        return -1;
    }
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = creates ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
    const int descriptor = next<int(const char*, int, ...)>(name)(path, flags, mode);
    if (descriptor >= 0) {
        beginReading(path, descriptor);
    }
    return descriptor;
}

} // namespace

void watchOpening(const std::string& path) {
    watch(path, tsWatch::teMode::passes, 0, 0);
}

std::uint64_t opensOf(const std::string& path) {
    const tsWatch* const watch = watchOf(path.c_str());
    return watch == nullptr ? 0 : watch->opens;
}

void refuseOpening(const std::string& path, int error, std::uint64_t nth) {
    watch(path, tsWatch::teMode::refuses, error, nth);
}

void breakReading(const std::string& path, int error) {
    watch(path, tsWatch::teMode::breaksOff, error, 0);
}

void allowOpening(const std::string& path) {
    if (tsWatch* const watch = watchOf(path.c_str())) {
        s_broken -= watch->mode == tsWatch::teMode::breaksOff ? 1 : 0;
        watch->mode = tsWatch::teMode::passes;
    }
}

bool wasRefused(const std::string& path) {
    const tsWatch* const watch = watchOf(path.c_str());
    return watch != nullptr && watch->struck;
}

extern "C" {

__attribute__((visibility("default"))) std::FILE* fopen(const char* path, const char* mode) {
    return passOn("fopen", path, mode);
}

__attribute__((visibility("default"))) std::FILE* fopen64(const char* path, const char* mode) {
    return passOn("fopen64", path, mode);
}

__attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const int result = passOn("open", path, flags, arguments);
    va_end(arguments);
    return result;
}

__attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const int result = passOn("open64", path, flags, arguments);
    va_end(arguments);
    return result;
}

__attribute__((visibility("default"))) ssize_t read(int descriptor, void* buffer,
                                                    std::size_t count) {
    tsWatch* const watch = brokenFileOf(descriptor);
    return watch == nullptr ? readOn(descriptor, buffer, count)
                            : readAPart(*watch, descriptor, buffer, count);
}

} // extern "C"

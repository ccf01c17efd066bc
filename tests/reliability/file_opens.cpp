#include "tests/reliability/file_opens.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <stdexcept>

namespace {

struct tsRefusal {
    std::array<char, 64> path{};
    int error = 0; // 0: it opens
    bool struck = false;
};

// Programs open files before their first constructor runs: nothing here needs one.
constinit std::array<tsRefusal, 16> s_refusals{};

tsRefusal* refusalOf(const char* path) {
    for (tsRefusal& refusal : s_refusals) {
        if (path != nullptr && refusal.path[0] != '\0' &&
            std::strcmp(refusal.path.data(), path) == 0) {
            return &refusal;
        }
    }
    return nullptr;
}

bool refused(const char* path) {
    tsRefusal* const refusal = refusalOf(path);
    if (refusal == nullptr || refusal->error == 0) {
        return false;
    }
    refusal->struck = true;
    errno = refusal->error;
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

std::FILE* passOn(const char* name, const char* path, const char* mode) {
    return refused(path) ? nullptr : next<std::FILE*(const char*, const char*)>(name)(path, mode);
}

int passOn(const char* name, const char* path, int flags, std::va_list arguments) {
    if (refused(path)) {
        return -1;
    }
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = creates ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
    return next<int(const char*, int, ...)>(name)(path, flags, mode);
}

} // namespace

void refuseOpening(const std::string& path, int error) {
    tsRefusal* refusal = refusalOf(path.c_str());
    for (tsRefusal& free : s_refusals) {
        if (refusal == nullptr && free.path[0] == '\0') {
            refusal = &free;
        }
    }
    if (refusal == nullptr || path.size() >= refusal->path.size()) {
        throw std::length_error("no room for another file");
    }
    std::memcpy(refusal->path.data(), path.c_str(), path.size() + 1);
    refusal->error = error;
    refusal->struck = false;
}

void allowOpening(const std::string& path) {
    if (tsRefusal* const refusal = refusalOf(path.c_str())) {
        refusal->error = 0;
    }
}

bool wasRefused(const std::string& path) {
    const tsRefusal* const refusal = refusalOf(path.c_str());
    return refusal != nullptr && refusal->struck;
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

} // extern "C"

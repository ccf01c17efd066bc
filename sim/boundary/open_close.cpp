// `open` and `close` as programs call them. Everything that is not the head's goes on to the C
// library.

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>

#include "sim/base/calls.h"
#include "sim/base/export.h"
#include "sim/base/real_calls.h"
#include "sim/boundary/boundary.h"
#include "sim/boundary/descriptors.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/live.h"
#include "sim/boundary/taped.h"

namespace sim {

namespace {

int openModelled(tcModel& head, const char* path, int flags) {
    const std::optional<teDevice> device = head.devices.deviceAt(path);
    int result = -ENOENT;
    if (device) {
        const int refusal = head.devices.count(teCall::open, *device);
        int error = refusal != 0 ? refusal : head.devices.openError(*device);
        if (error == 0 && (flags & O_DIRECTORY) != 0) {
            error = ENOTDIR;
        }
        g_descriptors.sweep(head);
        result = error != 0 ? -error : g_descriptors.open(*device, flags);
    }
    head.journal.event(teLine::open, 0, 0, result < 0 ? -result : 0, path);
    return result;
}

int openDevice(const char* path, int flags) {
    const tcHeadAccess head;
    if (!head) {
        return -ENOENT;
    }
    if (taped::wanted(*head)) {
        return taped::open(*head, path, flags, [&] { return openModelled(*head, path, flags); });
    }
    return openModelled(*head, path, flags);
}

int anyOpen(const char* path, int flags, mode_t mode) {
    if (isHeadPath(path) && headPresent()) {
        live::firstUse();
        return finish(openDevice(path, flags));
    }
    return real::open(path, flags, mode);
}

int anyOpenat(int folder, const char* path, int flags, mode_t mode) {
    if (isHeadPath(path) && headPresent()) {
        live::firstUse();
        return finish(openDevice(path, flags));
    }
    return real::openat(folder, path, flags, mode);
}

int closeModelled(tcModel& head, const tsOpenFile& file, int descriptor) {
    const int refusal = head.devices.count(teCall::close, file.device);
    const bool wasLine = file.isLineRequest;
    const teDevice device = file.device;
    real::close(descriptor); // gone in any case, as in Linux
    if (!wasLine) {
        head.journal.event(teLine::close, 0, 0, refusal, head.devices.pathOf(device));
    }
    g_descriptors.sweep(head);
    return -refusal;
}

int closeDevice(int descriptor, bool& ours) {
    const tcHeadAccess head;
    tsOpenFile* file = head ? g_descriptors.find(descriptor) : nullptr;
    if (file == nullptr) {
        return 0;
    }
    ours = true;
    const auto answer = [&] { return closeModelled(*head, *file, descriptor); };
    return taped::wanted(*head) ? taped::close(*head, *file, descriptor, answer) : answer();
}

mode_t modeFrom(int flags, std::va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

} // namespace

} // namespace sim

extern "C" {

SIM_API int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::modeFrom(flags, arguments);
    va_end(arguments);
    return sim::anyOpen(path, flags, mode);
}

SIM_API int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::modeFrom(flags, arguments);
    va_end(arguments);
    return sim::anyOpen(path, flags, mode);
}

SIM_API int openat(int folder, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::modeFrom(flags, arguments);
    va_end(arguments);
    return sim::anyOpenat(folder, path, flags, mode);
}

SIM_API int openat64(int folder, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::modeFrom(flags, arguments);
    va_end(arguments);
    return sim::anyOpenat(folder, path, flags, mode);
}

// What fortified programs call where the flags are not constant.
SIM_API int __open_2(const char* path, int flags) {
    return sim::anyOpen(path, flags, 0);
}
SIM_API int __open64_2(const char* path, int flags) {
    return sim::anyOpen(path, flags, 0);
}
SIM_API int __openat_2(int folder, const char* path, int flags) {
    return sim::anyOpenat(folder, path, flags, 0);
}
SIM_API int __openat64_2(int folder, const char* path, int flags) {
    return sim::anyOpenat(folder, path, flags, 0);
}

SIM_API int close(int descriptor) {
    if (!sim::outside()) {
        bool ours = false;
        const int result = sim::closeDevice(descriptor, ours);
        if (ours) {
            return sim::finish(result);
        }
    }
    return sim::real::close(descriptor);
}

} // extern "C"

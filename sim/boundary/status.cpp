// `stat` and `access` as programs call them, for device files by their paths. They show in no log:
// whoever looks at a file's name reaches no chip.

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "sim/base/export.h"
#include "sim/base/real_calls.h"
#include "sim/boundary/boundary.h"
#include "sim/boundary/head_access.h"

namespace sim {

namespace {

constexpr mode_t kMode = S_IFCHR | S_IRUSR | S_IWUSR; // as the kernel makes device files
constexpr ino_t kFirstInode = 100;                    // of the kernel's file system of devices

// Numbers of the kernel's drivers; that of GPIO chips is given out anew at each start.
dev_t deviceNumberOf(teDevice device) {
    switch (device) {
    case teDevice::spi:
        return makedev(153, 0);
    case teDevice::gpio:
        return makedev(254, 0);
    case teDevice::i2c:
        return makedev(89, 1);
    default:
        return makedev(1, 1);
    }
}

/// \return the device that is there, or -errno; nothing where the machine's own file is meant
std::optional<int> deviceAt(const char* path, teDevice& device) {
    if (outside() || !isHeadPath(path)) {
        return std::nullopt;
    }
    const tcHeadAccess head;
    if (!head || head->options().hardware) {
        return std::nullopt;
    }
    const std::optional<teDevice> found = head->devices.deviceAt(path);
    if (!found || head->devices.openError(*found) == ENOENT) {
        return -ENOENT;
    }
    device = *found;
    return 0;
}

template<class Status>
void describe(teDevice device, Status& status) {
    std::memset(&status, 0, sizeof status);
    status.st_mode = kMode;
    status.st_nlink = 1;
    status.st_uid = geteuid(); // who starts the head may open its devices
    status.st_gid = getegid();
    status.st_ino = kFirstInode + static_cast<ino_t>(device);
    status.st_rdev = deviceNumberOf(device);
    status.st_blksize = static_cast<blksize_t>(getpagesize());
}

/// \param real the C library's own
template<class Status, class Real>
int anyStat(const char* path, Status* status, Real real) {
    teDevice device{};
    const std::optional<int> found = deviceAt(path, device);
    if (!found) {
        return real();
    }
    if (*found == 0) {
        describe(device, *status);
    }
    return finish(*found);
}

/// \param real the C library's own
template<class Real>
int anyAccess(const char* path, int mode, Real real) {
    teDevice device{};
    const std::optional<int> found = deviceAt(path, device);
    if (!found) {
        return real();
    }
    if ((mode & ~(R_OK | W_OK | X_OK)) != 0) {
        return finish(-EINVAL);
    }
    // Nobody may execute what has no bit for it, not even root.
    return finish(*found == 0 && (mode & X_OK) != 0 ? -EACCES : *found);
}

} // namespace

} // namespace sim

extern "C" {

SIM_API int stat(const char* path, struct stat* status) noexcept {
    return sim::anyStat(path, status, [&] { return sim::real::stat(path, status); });
}
SIM_API int stat64(const char* path, struct stat64* status) noexcept {
    return sim::anyStat(path, status, [&] { return sim::real::stat64(path, status); });
}
SIM_API int lstat(const char* path, struct stat* status) noexcept {
    return sim::anyStat(path, status, [&] { return sim::real::lstat(path, status); });
}
SIM_API int lstat64(const char* path, struct stat64* status) noexcept {
    return sim::anyStat(path, status, [&] { return sim::real::lstat64(path, status); });
}
SIM_API int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
    return sim::anyStat(path, status,
                        [&] { return sim::real::fstatat(folder, path, status, flags); });
}
SIM_API int fstatat64(int folder, const char* path, struct stat64* status, int flags) noexcept {
    return sim::anyStat(path, status,
                        [&] { return sim::real::fstatat64(folder, path, status, flags); });
}
SIM_API int access(const char* path, int mode) noexcept {
    return sim::anyAccess(path, mode, [&] { return sim::real::access(path, mode); });
}
SIM_API int faccessat(int folder, const char* path, int mode, int flags) noexcept {
    return sim::anyAccess(path, mode,
                          [&] { return sim::real::faccessat(folder, path, mode, flags); });
}

} // extern "C"

#include "tests/reliability/fault.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/reliability/file_opens.h"

namespace fs = std::filesystem;
using sim::teCall;

namespace {

constexpr std::array<const char*, 8> kCallNames{"open",   "close", "ioctl", "mmap",
                                                "munmap", "read",  "write", "sleep"};
constexpr std::array<const char*, 5> kDevices{"/dev/spidev1.0", "/dev/gpiochip0", "/dev/i2c-1",
                                              "/dev/mem", "clock"};
constexpr std::array<const char*, 6> kFileStates{"",          "missing", "loop",
                                                 "directory", "empty",   "cut"};

// What opening a file to read it can fail with: rights, path, limits, a disk or a network that is
// gone, a signal.
constexpr std::array kOpenErrors{EACCES,       EAGAIN,  EBUSY,    EINTR,  EINVAL, EIO,
                                 EISDIR,       ELOOP,   EMFILE,   ENFILE, ENODEV, ENOENT,
                                 ENAMETOOLONG, ENOMEM,  ENXIO,    EPERM,  ESTALE, EROFS,
                                 EOVERFLOW,    ENOTDIR, ETIMEDOUT};

// What reading an open file can fail with, in the middle of it.
constexpr std::array kReadErrors{EIO, ESTALE, ENOMEM, EINTR, sim::kShort};

constexpr std::array<const char*, 12> kFiles{"3U5MGXS_12bit.txt",
                                             "3u5mgxs_config.ini",
                                             "3u5mgxs_sensor.ini",
                                             "bad_pixel_map.txt",
                                             "version/cam_part.txt",
                                             "version/serial.txt",
                                             "version/sensor_part.txt",
                                             "version/sensor_serial.txt",
                                             "version/sensor_board_rev.txt",
                                             "version/soc_io_board_rev.txt",
                                             "version/io_board_rev.txt",
                                             "version/kernel_version.txt"};

std::string shipped(const std::string& file) {
    return std::string(HEAD_DATA_DIRECTORY) + "/" + file;
}

} // namespace

std::string tsFault::name() const {
    const std::string why = error == sim::kShort ? "short" : strerrorname_np(error);
    if (file == teFile::refused) {
        return device + (nth == 0 ? "" : " " + std::to_string(nth)) + " refused: " + why;
    }
    if (file == teFile::broken) {
        return device + " broken off: " + why;
    }
    if (file != teFile::none) {
        return device + " " + kFileStates[static_cast<std::size_t>(file)];
    }
    return std::string(kCallNames[static_cast<std::size_t>(call)]) + " " + std::to_string(nth) +
           " of " + device + ": " + why;
}

bool tsFault::is(teCall kind, const std::string& path) const {
    return file == teFile::none && call == kind && device == path;
}

std::vector<int> errorsOf(teCall call, const std::string& device) {
    switch (call) {
    case teCall::open: // path, rights, limits, a driver that is gone or busy, a signal
        return {EACCES, ENOENT, EBUSY, EMFILE, ENFILE, ENODEV, ENXIO, EPERM, ENOMEM, EINTR};
    case teCall::close:
        return {EINTR, EIO};
    case teCall::mmap:
        return {EACCES, EAGAIN, EINVAL, EMFILE, ENODEV, ENOMEM, EPERM};
    case teCall::munmap:
        return {EINVAL, ENOMEM};
    case teCall::sleep: // its arguments are right and in reach
        return {EINTR};
    case teCall::ioctl:
        if (device == "/dev/i2c-1") { // the adapter's: nobody answers, arbitration lost, ...
            return {EIO,    ENXIO, ETIMEDOUT, EAGAIN,     EBUSY,
                    ENODEV, EINTR, ENOMEM,    EOPNOTSUPP, sim::kShort};
        }
        if (device == "/dev/gpiochip0") {
            return {EIO, EBUSY, EINVAL, ENODEV, ENOMEM, EPERM};
        }
        return {EIO, EINVAL, ENODEV, ESHUTDOWN, ETIMEDOUT, ENOMEM, EINTR, EMSGSIZE, sim::kShort};
    default:
        return {EIO, EINTR, EAGAIN};
    }
}

std::vector<tsFault> faultsOfCalls(const sim::tcVirtualHead& head) {
    std::vector<tsFault> faults;
    for (const char* device : kDevices) {
        for (std::size_t kind = 0; kind < kCallNames.size(); ++kind) {
            const auto call = static_cast<teCall>(kind);
            const std::uint64_t calls = head.calls(call, device);
            for (std::uint64_t nth = 1; nth <= calls; ++nth) {
                for (const int error : errorsOf(call, device)) {
                    faults.push_back({call, device, nth, error});
                }
            }
        }
    }
    return faults;
}

void watchFiles() {
    std::for_each(kFiles.begin(), kFiles.end(), watchOpening);
}

std::vector<tsFault> faultsOfFiles() {
    std::vector<tsFault> faults;
    for (const char* file : kFiles) {
        for (std::size_t state = 1; state < kFileStates.size(); ++state) {
            faults.push_back({teCall::open, file, 0, 0, static_cast<tsFault::teFile>(state)});
        }
        for (const int error : kOpenErrors) {
            faults.push_back({teCall::open, file, 0, error, tsFault::teFile::refused});
        }
        for (std::uint64_t nth = 1; nth <= opensOf(file); ++nth) {
            for (const int error : {EACCES, EINTR, EMFILE}) {
                faults.push_back({teCall::open, file, nth, error, tsFault::teFile::refused});
            }
        }
        for (const int error : kReadErrors) {
            faults.push_back({teCall::read, file, 0, error, tsFault::teFile::broken});
        }
    }
    return faults;
}

void spoil(const tsFault& fault) {
    if (fault.file == tsFault::teFile::none) {
        return;
    }
    if (fault.file == tsFault::teFile::refused) {
        refuseOpening(fault.device, fault.error, fault.nth);
        return;
    }
    if (fault.file == tsFault::teFile::broken) {
        breakReading(fault.device, fault.error == sim::kShort ? 0 : fault.error);
        return;
    }
    const fs::path path(fault.device);
    fs::remove(path);
    switch (fault.file) {
    case tsFault::teFile::loop:
        fs::create_symlink(path.filename(), path);
        break;
    case tsFault::teFile::directory:
        fs::create_directory(path);
        break;
    case tsFault::teFile::empty:
        std::ofstream(path).flush();
        break;
    case tsFault::teFile::cut:
        fs::copy_file(shipped(fault.device), path);
        fs::resize_file(path, fs::file_size(path) - fs::file_size(path) / 10 - 2);
        break;
    default:
        break;
    }
}

void mend(const tsFault& fault) {
    if (fault.file != tsFault::teFile::none) {
        allowOpening(fault.device);
        fs::remove_all(fault.device);
        fs::copy_file(shipped(fault.device), fault.device);
    }
}

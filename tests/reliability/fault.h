/// \file
/// What can go wrong between the plug-in and the kernel, one thing at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/virtual_head.h"

/// One call on a device that fails, or one file that is not as it should be.
struct tsFault {
    /// Of a file of the working directory.
    enum class teFile {
        none,      ///< it is no file, but a device's call that fails
        missing,   ///< ENOENT
        loop,      ///< a link to itself, ELOOP
        directory, ///< opens, but reading fails with EISDIR
        empty,
        cut,     ///< in the middle of its last line
        refused, ///< opening fails with `error`: the nth opening, or every one when `nth` is 0
        broken,  ///< reading fails with `error` in the middle; `sim::kShort`: it gives few bytes
    };

    sim::teCall call = sim::teCall::open;
    std::string device; ///< path of the device, "clock" or the file's name
    std::uint64_t nth = 0;
    int error = 0;
    teFile file = teFile::none;

    /// Whether the opening or the reading of a file fails, whatever the file holds.
    [[nodiscard]] bool isOfAccess() const {
        return file == teFile::refused || file == teFile::broken;
    }
    /// \return for example "ioctl 17 of /dev/spidev1.0: EIO"
    [[nodiscard]] std::string name() const;
    /// Whether it is this kind of call on this device.
    [[nodiscard]] bool is(sim::teCall kind, const std::string& path) const;
};

/// \return the errnos that the call can return, as its manual page and the drivers have them
std::vector<int> errorsOf(sim::teCall call, const std::string& device);

/// \return every call that the head answered, with each of its errnos
std::vector<tsFault> faultsOfCalls(const sim::tcVirtualHead& head);

/// Counts from now on how often the plug-in opens each of its files.
void watchFiles();

/// \return every file that the plug-in reads, in each bad state, and each opening of it that fails
///         alone, as `watchFiles` counted them
std::vector<tsFault> faultsOfFiles();

/// Puts the working directory's file into its bad state, or does nothing.
void spoil(const tsFault& fault);
/// Puts the file back as it ships.
void mend(const tsFault& fault);

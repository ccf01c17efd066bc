/// \file
/// Calls on the device files while they are recorded or played: answered by the model, by the
/// machine's own devices, or by a recording.
///
/// Whoever calls holds `g_headLock`. Results are 0 and more, or -errno. `tcAnswer` asks the model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "sim/boundary/descriptors.h"
#include "sim/head/model.h"

namespace sim::taped {

using tcAnswer = std::function<std::ptrdiff_t()>;

/// What `mmap` is asked for.
struct tsMapping {
    std::uint32_t physicalAddress = 0;
    std::size_t length = 0;
    int protection = 0;
    int flags = 0;
};

/// \return whether calls go this way at all
inline bool wanted(const tcModel& head) {
    return head.tape.recording() || head.tape.playing();
}

/// \return the program's descriptor
int open(tcModel& head, const char* path, int flags, const tcAnswer& answer);
int close(tcModel& head, tsOpenFile& file, int descriptor, const tcAnswer& answer);
int ioctl(tcModel& head, const tsOpenFile& file, int descriptor, std::uint32_t request,
          void* argument, const tcAnswer& answer);
std::ptrdiff_t read(tcModel& head, const tsOpenFile& file, int descriptor,
                    std::span<std::uint8_t> buffer, const tcAnswer& answer);
std::ptrdiff_t write(tcModel& head, const tsOpenFile& file, int descriptor,
                     std::span<const std::uint8_t> bytes, const tcAnswer& answer);
/// \return 0 or -errno; the pages that the program gets are the caller's business
int map(tcModel& head, const tsOpenFile& file, int descriptor, const tsMapping& mapping,
        const tcAnswer& answer);
int unmap(tcModel& head, std::uint32_t physicalAddress, std::size_t length, const tcAnswer& answer);

/// Possible in a signal handler. \param width [bytes]
std::uint32_t load(tcModel& head, std::uint32_t physicalAddress, unsigned width);
/// Possible in a signal handler. \param width [bytes]
void store(tcModel& head, std::uint32_t physicalAddress, unsigned width, std::uint32_t value);

/// \return whether sleeps go this way: those before the first device is opened do not
inline bool sleepWanted(const tcModel& head) {
    return wanted(head) && head.tape.started();
}
/// A sleep that is over. \param error errno \param leftNs what is left of it [ns]
void keepSleep(tcModel& head, std::uint64_t durationNs, int error, std::uint64_t leftNs);
/// \param leftNs what is left of it [ns] \return errno
int playSleep(tcModel& head, std::uint64_t durationNs, std::uint64_t& leftNs);

} // namespace sim::taped

/// \file
/// What the functions that stand in for the C library's have in common.
#pragma once

#include <cerrno>
#include <cstdint>
#include <string_view>

#include "sim/head/model.h"

namespace sim {

/// \return whether a call goes straight to the C library: there is no head, or the call comes from
///         inside the head (an allocator that maps memory, for example)
bool outside();

/// \return whether a device file of the head has, or could have, this path: those of the machine's
/// own
///         of the same kind are out of a program's sight. \param path may be null
bool isHeadPath(const char* path);

/// \param result of the head: 0 and more, or -errno \return as the C library returns it
template<class Result>
Result finish(Result result) {
    if (result < 0) {
        errno = static_cast<int>(-result);
        return -1;
    }
    return result;
}

/// Reports a call that the device does not know: "ioctl 0x5401 on /dev/mem".
void unknownCall(tcModel& head, teDevice device, std::string_view what, std::uint32_t number);

} // namespace sim

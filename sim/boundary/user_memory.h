/// \file
/// Whether what a program hands to a device file can be read and written, as the kernel finds out.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sim/boundary/descriptors.h"

namespace sim::userMemory {

/// \return whether the program can read all of it. Changes nothing, errno included
bool readable(const void* start, std::size_t length);
/// \return whether the program can write all of it. A byte of each page changes for a moment
bool writable(void* start, std::size_t length);
/// \return bytes from the start on that the program can write
std::size_t writablePart(void* start, std::size_t length);

/// Looks at everything that a device reads and writes when it answers, buffers that are named in
/// the argument included. Requests that the device does not know read nothing.
/// \return 0 or -EFAULT
int checkIoctl(const tsOpenFile& file, std::uint32_t request, void* argument);

} // namespace sim::userMemory

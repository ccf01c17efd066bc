/// \file
/// System calls that a head answers, and how they fail.
#pragma once

#include <cstdint>

namespace sim {

/// Kinds of system call that a head answers.
enum class teCall : std::uint8_t {
    open,
    close,
    ioctl,
    mmap,
    munmap,
    read,
    write,
    sleep, ///< on the device "clock": nanosleep, clock_nanosleep, usleep
};

/// In place of an errno: the call succeeds, but does less than it was asked to. A SPI message and
/// `read` and `write` give half of their bytes, I2C_RDWR all messages but the last. Nothing of what
/// is missing happens on the wire; of a SPI message nothing at all. Calls that have no length are
/// not touched.
inline constexpr int kShort = -1;

} // namespace sim

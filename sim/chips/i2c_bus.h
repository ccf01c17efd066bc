/// \file
/// The I2C bus, as i2c-dev shows it.
#pragma once

#include <cstdint>
#include <span>
#include <sys/types.h>

#include "sim/chips/adc.h"

namespace sim::i2cBus {

/// \param bus     what hangs on it
/// \param address to which the descriptor's reads and writes go; I2C_SLAVE sets it
/// \param refusal errno or `kShort` that was asked for, else 0
/// \return the ioctl's result, or -errno; -EOPNOTSUPP for an SMBus transaction that is not modelled
int ioctl(tcAdc& bus, std::uint16_t& address, std::uint32_t request, void* argument, int refusal);
/// `read` on the device: one transfer. \return bytes, or -errno
ssize_t read(tcAdc& bus, std::uint16_t address, std::span<std::uint8_t> bytes, int refusal);
/// `write` on the device: one transfer. \return bytes, or -errno
ssize_t write(tcAdc& bus, std::uint16_t address, std::span<const std::uint8_t> bytes, int refusal);

} // namespace sim::i2cBus

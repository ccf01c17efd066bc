/// \file
/// SMBus transactions of i2c-dev, made of I2C messages as the kernel makes them.
#pragma once

#include <cstdint>
#include <linux/i2c-dev.h>

#include "sim/base/calls.h"
#include "sim/chips/adc.h"

namespace sim::smbus {

/// What the bus can do, as I2C_FUNCS has it.
[[nodiscard]] unsigned long functions();

/// I2C_SMBUS: quick, byte, byte data and word data. Takes no lock.
/// \param refusal errno or `kShort` that was asked for
/// \return 0; -EINVAL for what i2c-dev refuses, -EOPNOTSUPP for other transactions, -errno of the
/// bus
int transfer(tcAdc& bus, std::uint16_t address, const i2c_smbus_ioctl_data& transaction,
             int refusal);

} // namespace sim::smbus

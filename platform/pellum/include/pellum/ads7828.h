/// \file
/// TI ADS7828: eight-channel 12-bit ADC on I2C.
#pragma once

#include <cstdint>
#include <memory>

#include <pellum/export.h>

namespace Pellum {

/// The ADC, through the kernel's i2c-dev. Errors are reported once per operation and errno on
/// standard error with device, operation and errno; they never end the process. A transfer of which
/// the kernel made only a part is reported as EIO.
///
/// Command byte (data sheet, "Command Byte"): SD in bit 7, C2..C0 in bits 6..4, PD1..PD0 in bits
/// 3..2. The answer is two bytes, the upper four bits zero.
class PELLUM_API tcADS7828 {
public:
    /// Opens "/dev/i2c-BUS". Talks to no chip yet.
    /// \param bus            number of the I2C bus
    /// \param address        7-bit device address
    /// \param referenceVolts full scale [V]
    tcADS7828(int bus, int address, float referenceVolts);
    tcADS7828(const tcADS7828&) = delete;
    tcADS7828& operator=(const tcADS7828&) = delete;
    ~tcADS7828();

    /// Holds from the next command byte on.
    /// \param down true: the converter powers down between conversions (PD0 = 0)
    void SetPowerDown(bool down);

    /// Sends a command byte at once, so that the reference settles while the caller goes on.
    /// \param on true: the chip's own 2.5 V reference is on (PD1 = 1)
    void SetInternalReference(bool on);

    /// Converts one channel, in one I2C transfer.
    /// \param channel     0 to 7
    /// \param reading     [V]; 0 when the conversion fails, so that a dead ADC never reads as a
    ///                    supply within limits
    /// \param singleEnded true: against ground; false: against its neighbour
    /// \return whether the conversion worked
    bool Volts(int channel, float& reading, bool singleEnded);

private:
    struct PELLUM_LOCAL tsBus;

    void setPowerBit(std::uint8_t bit, bool set);

    std::unique_ptr<tsBus> m_bus;
    float m_referenceVolts;
};

} // namespace Pellum

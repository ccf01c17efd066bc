/// \file
/// One chip select of a SPI port, through the kernel's spidev character device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <varnox/export.h>

/// Settings of a SPI port, as spidev knows them.
struct tsSPIConfiguration {
    std::uint32_t mode = 0;                 ///< SPI_MODE_0 to SPI_MODE_3 and the kernel's flags
    std::uint16_t lsbFirstAndBits = 0x0800; ///< low byte: 1 = LSB first; high byte: bits per word
    std::uint32_t speedHz = 0;              ///< clock [Hz]

    /// \return whether all fields are the same
    friend bool operator==(const tsSPIConfiguration& one, const tsSPIConfiguration& other) {
        return one.mode == other.mode && one.lsbFirstAndBits == other.lsbFirstAndBits &&
               one.speedHz == other.speedHz;
    }
    /// \return whether a field differs
    friend bool operator!=(const tsSPIConfiguration& one, const tsSPIConfiguration& other) {
        return !(one == other);
    }
};

/// A SPI device. Errors of the kernel are reported once per operation and errno, on standard error
/// with device, operation and errno; they never end the process. All operations may be called from
/// several threads; none takes a lock around a transfer, the kernel orders them.
class VARNOX_API tcSPIDevice {
public:
    /// Opens the device; `isOpen` tells whether that worked.
    /// \param path for example "/dev/spidev1.0"
    explicit tcSPIDevice(std::string path);
    tcSPIDevice(const tcSPIDevice&) = delete;
    tcSPIDevice& operator=(const tcSPIDevice&) = delete;
    ~tcSPIDevice();

    /// \return whether the device was opened
    [[nodiscard]] bool isOpen() const;

    /// \return the port's settings as the kernel reports them; zeros where it does not
    [[nodiscard]] tsSPIConfiguration getConfiguration();

    /// Sets mode, bit order, bits per word and clock, in this order, up to the first one that the
    /// kernel refuses.
    /// \return whether the kernel took all of them
    bool setConfiguration(const tsSPIConfiguration& configuration);

    /// Sends bytes in one message, that is, under one chip select. A message of which the kernel
    /// sent only a part failed: it is reported as EIO.
    /// \return the number of bytes, all of them, or -1
    int write(const void* bytes, std::size_t count);

private:
    struct VARNOX_LOCAL tsPort;
    std::unique_ptr<tsPort> m_port;
};

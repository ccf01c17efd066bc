#include <varnox/spi_device.h>

#include <bit>
#include <cerrno>
#include <limits>
#include <utility>

#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

#include "platform/support/error_reports.h"
#include "platform/support/file_descriptor.h"

struct tcSPIDevice::tsPort {
    explicit tsPort(std::string devicePath)
        : path(std::move(devicePath)),
          descriptor(platform::tcFileDescriptor::open(path.c_str(), O_RDWR)) {
        if (!descriptor.isOpen())
            report("open", errno);
    }

    void report(const char* operation, int error) { reports.report(path, operation, error); }

    /// One ioctl on the port. A refusal is reported.
    /// \return whether the kernel took it
    template<typename T>
    bool control(const char* operation, unsigned long request, T& value) {
        if (::ioctl(descriptor.get(), request, &value) >= 0)
            return true;
        report(operation, errno);
        return false;
    }

    [[nodiscard]] std::uint32_t readMode();
    [[nodiscard]] std::uint8_t readByte(const char* operation, unsigned long request);
    bool writeMode(std::uint32_t mode);

    std::string path;
    platform::tcErrorReports reports{"tcSPIDevice"};
    platform::tcFileDescriptor descriptor;
};

namespace {

/// Kernels that know the eight-bit mode only answer the 32-bit requests so.
bool isUnknownRequest(int error) {
    return error == ENOTTY || error == EINVAL;
}

} // namespace

std::uint32_t tcSPIDevice::tsPort::readMode() {
    std::uint32_t mode = 0;
    if (::ioctl(descriptor.get(), SPI_IOC_RD_MODE32, &mode) >= 0)
        return mode;
    if (isUnknownRequest(errno))
        return readByte("SPI_IOC_RD_MODE", SPI_IOC_RD_MODE);
    report("SPI_IOC_RD_MODE32", errno);
    return 0;
}

std::uint8_t tcSPIDevice::tsPort::readByte(const char* operation, unsigned long request) {
    std::uint8_t value = 0;
    return control(operation, request, value) ? value : std::uint8_t{0};
}

bool tcSPIDevice::tsPort::writeMode(std::uint32_t mode) {
    if (::ioctl(descriptor.get(), SPI_IOC_WR_MODE32, &mode) >= 0)
        return true;
    const bool fitsByte = mode <= std::numeric_limits<std::uint8_t>::max();
    if (!isUnknownRequest(errno) || !fitsByte) {
        report("SPI_IOC_WR_MODE32", errno);
        return false;
    }
    auto byte = static_cast<std::uint8_t>(mode);
    return control("SPI_IOC_WR_MODE", SPI_IOC_WR_MODE, byte);
}

tcSPIDevice::tcSPIDevice(std::string path) : m_port(std::make_unique<tsPort>(std::move(path))) {}

tcSPIDevice::~tcSPIDevice() = default;

bool tcSPIDevice::isOpen() const {
    return m_port->descriptor.isOpen();
}

tsSPIConfiguration tcSPIDevice::getConfiguration() {
    tsSPIConfiguration configuration;
    configuration.mode = m_port->readMode();
    const std::uint8_t lsbFirst = m_port->readByte("SPI_IOC_RD_LSB_FIRST", SPI_IOC_RD_LSB_FIRST);
    const std::uint8_t bits =
        m_port->readByte("SPI_IOC_RD_BITS_PER_WORD", SPI_IOC_RD_BITS_PER_WORD);
    configuration.lsbFirstAndBits = static_cast<std::uint16_t>(lsbFirst | (bits << 8));
    std::uint32_t speedHz = 0;
    if (m_port->control("SPI_IOC_RD_MAX_SPEED_HZ", SPI_IOC_RD_MAX_SPEED_HZ, speedHz))
        configuration.speedHz = speedHz;
    return configuration;
}

bool tcSPIDevice::setConfiguration(const tsSPIConfiguration& configuration) {
    auto lsbFirst = static_cast<std::uint8_t>(configuration.lsbFirstAndBits & 0xFF);
    auto bits = static_cast<std::uint8_t>(configuration.lsbFirstAndBits >> 8);
    std::uint32_t speedHz = configuration.speedHz;
    // The mode word carries a bit order of its own; the field of that name comes after it and wins.
    return m_port->writeMode(configuration.mode) &&
           m_port->control("SPI_IOC_WR_LSB_FIRST", SPI_IOC_WR_LSB_FIRST, lsbFirst) &&
           m_port->control("SPI_IOC_WR_BITS_PER_WORD", SPI_IOC_WR_BITS_PER_WORD, bits) &&
           m_port->control("SPI_IOC_WR_MAX_SPEED_HZ", SPI_IOC_WR_MAX_SPEED_HZ, speedHz);
}

int tcSPIDevice::write(const void* bytes, std::size_t count) {
    constexpr const char* kOperation = "SPI_IOC_MESSAGE";
    // The driver takes a null buffer for a row of zeros, and lengths of 32 bits.
    if (bytes == nullptr) {
        m_port->report(kOperation, EFAULT);
        return -1;
    }
    if (count > std::size_t{std::numeric_limits<int>::max()}) {
        m_port->report(kOperation, EMSGSIZE);
        return -1;
    }
    spi_ioc_transfer transfer{}; // speed and bits per word of 0: as the port is configured
    transfer.tx_buf = std::bit_cast<std::uintptr_t>(bytes);
    transfer.len = static_cast<std::uint32_t>(count);
    const int sent = ::ioctl(m_port->descriptor.get(), SPI_IOC_MESSAGE(1), &transfer);
    if (sent == static_cast<int>(count))
        return sent;
    m_port->report(kOperation, sent < 0 ? errno : EIO); // a part of a frame is no frame
    return -1;
}

#include "sim/head/device_files.h"

#include <cerrno>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::string_view kI2cPath = "/dev/i2c-1";
constexpr std::string_view kMemoryPath = "/dev/mem";
constexpr std::string_view kClockName = "clock";

// Transfers have a length; the calls of the other devices do not.
bool canBeShort(teCall kind, teDevice device) {
    switch (device) {
    case teDevice::spi:
        return kind == teCall::ioctl || kind == teCall::write;
    case teDevice::i2c:
        return kind == teCall::ioctl || kind == teCall::read || kind == teCall::write;
    default:
        return false;
    }
}

} // namespace

tcDeviceFiles::tcDeviceFiles(const tsHeadOptions& options, const tsConditions& now)
    : m_spiPath(options.spiPath), m_gpioPath(options.gpioPath), m_now(now) {
    for (const tsFailure& failure : options.failures) {
        fail(failure);
    }
}

std::optional<teDevice> tcDeviceFiles::deviceAt(std::string_view path) const {
    if (path == m_spiPath) {
        return teDevice::spi;
    }
    if (path == m_gpioPath) {
        return teDevice::gpio;
    }
    if (path == kI2cPath) {
        return teDevice::i2c;
    }
    if (path == kMemoryPath) {
        return teDevice::memory;
    }
    if (path == kClockName) {
        return teDevice::clock;
    }
    return std::nullopt;
}

std::string_view tcDeviceFiles::pathOf(teDevice device) const {
    switch (device) {
    case teDevice::spi:
        return m_spiPath;
    case teDevice::gpio:
        return m_gpioPath;
    case teDevice::i2c:
        return kI2cPath;
    case teDevice::memory:
        return kMemoryPath;
    case teDevice::clock:
        break;
    }
    return kClockName;
}

int tcDeviceFiles::count(teCall kind, teDevice device) {
    std::uint64_t& calls =
        m_calls[static_cast<std::size_t>(kind)][static_cast<std::size_t>(device)];
    ++calls;
    m_used = m_used || kind == teCall::open;
    for (const tsPlannedFailure& failure : m_failures) {
        if (failure.kind == kind && failure.device == device &&
            (failure.nth == calls || (failure.lasting && failure.nth < calls))) {
            return failure.error;
        }
    }
    return 0;
}

std::uint64_t tcDeviceFiles::calls(teCall kind, teDevice device) const {
    return m_calls[static_cast<std::size_t>(kind)][static_cast<std::size_t>(device)];
}

void tcDeviceFiles::fail(const tsFailure& failure) {
    const std::optional<teDevice> device = deviceAt(failure.device);
    if (!device) {
        throw std::invalid_argument("virtual head: it has no device \"" + failure.device + "\"");
    }
    if (failure.error == kShort && !canBeShort(failure.kind, *device)) {
        throw std::invalid_argument("virtual head: no call of this kind on " + failure.device +
                                    " can be short");
    }
    m_failures.push_back({failure.kind, *device, failure.nth, failure.lasting, failure.error});
}

int tcDeviceFiles::openError(teDevice device) const {
    switch (device) {
    case teDevice::spi:
        return m_now.spiPresent ? 0 : ENOENT;
    case teDevice::gpio:
        return m_now.gpioPresent ? 0 : ENOENT;
    case teDevice::i2c:
        return m_now.i2cPresent ? 0 : ENOENT;
    case teDevice::memory:
        return m_now.memOpenError;
    case teDevice::clock:
        break;
    }
    return ENOENT;
}

int tcDeviceFiles::mapError(std::uint32_t physicalAddress) const {
    const std::optional<std::size_t> page = pageOf(physicalAddress);
    return page ? m_now.mapErrors[*page] : 0;
}

} // namespace sim

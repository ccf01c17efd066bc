#include <pellum/ads7828.h>

#include <cerrno>
#include <mutex>
#include <utility>

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>

#include "platform/support/error_reports.h"
#include "platform/support/file_descriptor.h"

namespace Pellum {

namespace {

// Command byte of the ADS7828.
constexpr std::uint8_t kSingleEnded = 0x80; // SD
constexpr std::uint8_t kReferenceOn = 0x08; // PD1
constexpr std::uint8_t kConverterOn = 0x04; // PD0
constexpr float kFullScale = 4096.0F;       // 12 bits
constexpr std::uint8_t kUnusedBits = 0xF0;  // of the answer's first byte, always zero
constexpr int kHighestChannel = 7;
constexpr const char* kOperation = "I2C_RDWR"; // every transfer, as errors name it

/// The channel as C2..C0 in bits 6..4. The chip counts the even inputs first, then the odd ones.
constexpr std::uint8_t channelBits(int channel) {
    const unsigned int odd = static_cast<unsigned int>(channel) & 1;
    const unsigned int pair = static_cast<unsigned int>(channel) >> 1;
    return static_cast<std::uint8_t>((odd << 6) | (pair << 4));
}

} // namespace

struct tcADS7828::tsBus {
    tsBus(int bus, int address)
        : device("/dev/i2c-" + std::to_string(bus)),
          chip(static_cast<std::uint16_t>(address)),
          descriptor(platform::tcFileDescriptor::open(device.c_str(), O_RDWR)) {
        if (!descriptor.isOpen())
            reports.report(device, "open", errno);
    }

    /// One transfer under one START: the command byte out, and the answer in where one is asked.
    /// \return whether the chip answered; a failure is reported
    bool transfer(std::uint8_t command, std::uint8_t* answer, std::uint16_t count) {
        if (!descriptor.isOpen())
            return false; // reported when it was not opened
        i2c_msg messages[2] = {{chip, 0, 1, &command}, {chip, I2C_M_RD, count, answer}};
        i2c_rdwr_ioctl_data data{messages, count > 0 ? 2U : 1U};
        const int done = ::ioctl(descriptor.get(), I2C_RDWR, &data);
        if (done == static_cast<int>(data.nmsgs))
            return true;
        reports.report(device, kOperation, done < 0 ? errno : EIO); // not all messages went through
        return false;
    }

    std::string device;
    std::uint16_t chip;
    std::mutex lock; ///< guards the power bits
    std::uint8_t powerBits = 0;
    platform::tcErrorReports reports{"tcADS7828"};
    platform::tcFileDescriptor descriptor;
};

tcADS7828::tcADS7828(int bus, int address, float referenceVolts)
    : m_bus(std::make_unique<tsBus>(bus, address)), m_referenceVolts(referenceVolts) {}

tcADS7828::~tcADS7828() = default;

void tcADS7828::SetPowerDown(bool down) {
    setPowerBit(kConverterOn, !down);
}

void tcADS7828::SetInternalReference(bool on) {
    setPowerBit(kReferenceOn, on);
    // Told at once: the reference takes more than a millisecond to settle, and the first reading
    // should not be the one that switches it on.
    const std::lock_guard lock(m_bus->lock);
    const auto command = static_cast<std::uint8_t>(kSingleEnded | m_bus->powerBits);
    m_bus->transfer(command, nullptr, 0);
}

void tcADS7828::setPowerBit(std::uint8_t bit, bool set) {
    const std::lock_guard lock(m_bus->lock);
    const std::uint8_t before = m_bus->powerBits;
    m_bus->powerBits = static_cast<std::uint8_t>(set ? before | bit : before & ~bit);
}

bool tcADS7828::Volts(int channel, float& reading, bool singleEnded) {
    reading = 0.0F;
    if (channel < 0 || channel > kHighestChannel) {
        m_bus->reports.report(m_bus->device, "Volts", EINVAL);
        return false;
    }
    const std::lock_guard lock(m_bus->lock);
    const auto command = static_cast<std::uint8_t>((singleEnded ? kSingleEnded : 0) |
                                                   channelBits(channel) | m_bus->powerBits);
    std::uint8_t answer[2] = {};
    if (!m_bus->transfer(command, answer, sizeof answer))
        return false;
    if ((answer[0] & kUnusedBits) != 0) { // a bus that nobody drives reads as ones
        m_bus->reports.report(m_bus->device, kOperation, EPROTO);
        return false;
    }
    const int counts = (answer[0] << 8) | answer[1];
    reading = static_cast<float>(counts) / kFullScale * m_referenceVolts;
    return true;
}

} // namespace Pellum

#include "sim/chips/i2c_bus.h"

#include <cerrno>
#include <cstring>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include "sim/base/calls.h"
#include "sim/chips/smbus.h"

namespace sim::i2cBus {

namespace {

constexpr std::uintptr_t kLastAddress = 0x7F;
constexpr std::size_t kLongestMessage = 8192; // bytes

int messages(tcAdc& bus, void* argument, int refusal) {
    const auto& list = *static_cast<i2c_rdwr_ioctl_data*>(argument);
    if (list.msgs == nullptr || list.nmsgs == 0 || list.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return -EINVAL;
    }
    for (const i2c_msg& message : std::span(list.msgs, list.nmsgs)) {
        if (message.len > kLongestMessage) {
            return -EINVAL;
        }
    }
    std::uint32_t done = 0;
    for (; done < list.nmsgs; ++done) {
        const i2c_msg& message = list.msgs[done];
        // Where the call is to end short, it is the last message that is missing.
        const int error = refusal == kShort && done + 1 < list.nmsgs ? 0 : refusal;
        const int result = (message.flags & I2C_M_RD) != 0
                               ? bus.read(message.addr, {message.buf, message.len}, error)
                               : bus.write(message.addr, {message.buf, message.len}, error);
        if (result < 0) {
            bus.stop();
            return result;
        }
        if (result == -kShort) {
            break;
        }
    }
    bus.stop();
    return static_cast<int>(done);
}

int smbusTransfer(tcAdc& bus, std::uint16_t address, const void* argument, int refusal) {
    i2c_smbus_ioctl_data transaction{};
    std::memcpy(&transaction, argument, sizeof transaction);
    return smbus::transfer(bus, address, transaction, refusal);
}

// What `read` and `write` give for a transfer's result.
ssize_t lengthOf(int result, std::size_t count) {
    return result < 0 ? result : static_cast<ssize_t>(result == -kShort ? count / 2 : count);
}

} // namespace

int ioctl(tcAdc& bus, std::uint16_t& address, std::uint32_t request, void* argument, int refusal) {
    switch (request) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE: {
        if (refusal > 0) {
            return -refusal;
        }
        std::uintptr_t wanted = 0; // the argument is a number, not a pointer
        static_assert(sizeof wanted == sizeof argument);
        std::memcpy(&wanted, &argument, sizeof wanted);
        if (wanted > kLastAddress) {
            return -EINVAL;
        }
        address = static_cast<std::uint16_t>(wanted);
        return 0;
    }
    case I2C_FUNCS:
        if (refusal <= 0) {
            const unsigned long functions = smbus::functions();
            std::memcpy(argument, &functions, sizeof functions);
        }
        return refusal > 0 ? -refusal : 0;
    case I2C_RDWR:
        return messages(bus, argument, refusal);
    case I2C_SMBUS:
        return smbusTransfer(bus, address, argument, refusal);
    default:
        return -ENOTTY;
    }
}

ssize_t read(tcAdc& bus, std::uint16_t address, std::span<std::uint8_t> bytes, int refusal) {
    const int result = bus.read(address, bytes, refusal);
    bus.stop();
    return lengthOf(result, bytes.size());
}

ssize_t write(tcAdc& bus, std::uint16_t address, std::span<const std::uint8_t> bytes, int refusal) {
    const int result = bus.write(address, bytes, refusal);
    bus.stop();
    return lengthOf(result, bytes.size());
}

} // namespace sim::i2cBus

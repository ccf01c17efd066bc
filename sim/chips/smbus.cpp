#include "sim/chips/smbus.h"

#include <array>
#include <cerrno>
#include <linux/i2c.h>
#include <span>

namespace sim::smbus {

namespace {

// A transaction as messages: what is written first, and how many bytes are read then.
struct tsMessages {
    std::array<std::uint8_t, 3> written{};
    std::size_t writtenBytes = 0;
    bool writes = false;
    std::array<std::uint8_t, 2> read{};
    std::size_t readBytes = 0;
    bool reads = false;
};

std::size_t dataBytes(std::uint32_t size) {
    return size == I2C_SMBUS_WORD_DATA ? 2 : (size == I2C_SMBUS_QUICK ? 0 : 1);
}

// The lower byte of a word goes first.
tsMessages messagesOf(const i2c_smbus_ioctl_data& transaction) {
    tsMessages messages;
    const bool reads = transaction.read_write == I2C_SMBUS_READ;
    const std::size_t bytes = dataBytes(transaction.size);
    messages.reads = reads;
    messages.readBytes = reads ? bytes : 0;
    if (transaction.size == I2C_SMBUS_QUICK) {
        messages.writes = !reads;
        return messages;
    }
    if (transaction.size == I2C_SMBUS_BYTE && reads) {
        return messages;
    }
    messages.writes = true;
    messages.written[messages.writtenBytes++] = transaction.command;
    if (transaction.size != I2C_SMBUS_BYTE && !reads) {
        messages.written[messages.writtenBytes++] =
            bytes == 1 ? transaction.data->byte
                       : static_cast<std::uint8_t>(transaction.data->word & 0xFF);
        if (bytes == 2) {
            messages.written[messages.writtenBytes++] =
                static_cast<std::uint8_t>(transaction.data->word >> 8);
        }
    }
    return messages;
}

int check(const i2c_smbus_ioctl_data& transaction) {
    if (transaction.size > I2C_SMBUS_I2C_BLOCK_DATA ||
        (transaction.read_write != I2C_SMBUS_READ && transaction.read_write != I2C_SMBUS_WRITE)) {
        return -EINVAL;
    }
    const bool hasData =
        transaction.size != I2C_SMBUS_QUICK &&
        (transaction.size != I2C_SMBUS_BYTE || transaction.read_write == I2C_SMBUS_READ);
    if (hasData && transaction.data == nullptr) {
        return -EINVAL;
    }
    return transaction.size > I2C_SMBUS_WORD_DATA ? -EOPNOTSUPP : 0;
}

// Where the call is to end short, it is the last message that is missing: the kernel says EIO.
int send(tcAdc& bus, std::uint16_t address, tsMessages& messages, int refusal) {
    int result = 0;
    if (messages.writes) {
        result = bus.write(address, std::span(messages.written).first(messages.writtenBytes),
                           refusal == kShort && messages.reads ? 0 : refusal);
    }
    if (result == 0 && messages.reads) {
        result = bus.read(address, std::span(messages.read).first(messages.readBytes), refusal);
    }
    bus.stop();
    return result == -kShort ? -EIO : result;
}

} // namespace

unsigned long functions() {
    return I2C_FUNC_I2C | I2C_FUNC_SMBUS_QUICK | I2C_FUNC_SMBUS_BYTE | I2C_FUNC_SMBUS_BYTE_DATA |
           I2C_FUNC_SMBUS_WORD_DATA;
}

int transfer(tcAdc& bus, std::uint16_t address, const i2c_smbus_ioctl_data& transaction,
             int refusal) {
    if (const int wrong = check(transaction); wrong != 0) {
        return wrong;
    }
    tsMessages messages = messagesOf(transaction);
    const int result = send(bus, address, messages, refusal);
    if (result == 0 && messages.readBytes == 1) {
        transaction.data->byte = messages.read[0];
    } else if (result == 0 && messages.readBytes == 2) {
        transaction.data->word =
            static_cast<std::uint16_t>(messages.read[0] | messages.read[1] << 8);
    }
    return result;
}

} // namespace sim::smbus

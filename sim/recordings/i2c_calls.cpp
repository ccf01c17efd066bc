// The ioctls of an I2C bus: settings, messages and SMBus transactions.

#include <algorithm>
#include <array>
#include <cstddef>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <span>

#include "sim/recordings/device_calls.h"
#include "sim/recordings/number_calls.h"

namespace sim::calls {

namespace {

constexpr std::uint8_t kLong = sizeof(long); // of the program, not of the text

constexpr std::array kSettings{
    tsNumberCall{I2C_SLAVE, "I2C_SLAVE", 0, true, false},
    tsNumberCall{I2C_SLAVE_FORCE, "I2C_SLAVE_FORCE", 0, true, false},
    tsNumberCall{I2C_TENBIT, "I2C_TENBIT", 0, true, false},
    tsNumberCall{I2C_RETRIES, "I2C_RETRIES", 0, true, false},
    tsNumberCall{I2C_TIMEOUT, "I2C_TIMEOUT", 0, true, false},
    tsNumberCall{I2C_FUNCS, "I2C_FUNCS", kLong, false, true},
};

// --- I2C ---

std::span<const i2c_msg> i2cMessagesOf(const void* argument) {
    const auto list = copied<i2c_rdwr_ioctl_data>(argument);
    return {list.msgs, std::min<std::uint32_t>(list.nmsgs, I2C_RDWR_IOCTL_MAX_MSGS)};
}

std::string i2cText(const void* argument) {
    std::string text = "I2C_RDWR";
    std::string_view between = " ";
    for (const i2c_msg& message : i2cMessagesOf(argument)) {
        const bool reads = (message.flags & I2C_M_RD) != 0;
        text += between;
        text += hex(message.addr) + " flags " + hex(message.flags);
        text += reads ? " read " + std::to_string(message.len)
                      : " write " + bytesText({message.buf, message.len});
        between = kBetweenParts;
    }
    return text;
}

std::string i2cAnswer(const void* argument) {
    std::string text;
    for (const i2c_msg& message : i2cMessagesOf(argument)) {
        if ((message.flags & I2C_M_RD) != 0) {
            text += (text.empty() ? "" : " ") + bytesText({message.buf, message.len});
        }
    }
    return text;
}

void playI2c(tcWords& words, const void* argument) {
    for (const i2c_msg& message : i2cMessagesOf(argument)) {
        for (std::uint32_t at = 0; (message.flags & I2C_M_RD) != 0 && at < message.len; ++at) {
            message.buf[at] = words.byte();
        }
    }
}

// --- SMBus ---

/// Bytes of the program's data that a transaction has.
std::span<std::uint8_t> smbusData(const i2c_smbus_ioctl_data& transaction) {
    std::size_t bytes = sizeof(i2c_smbus_data);
    switch (transaction.size) {
    case I2C_SMBUS_QUICK:
        bytes = 0;
        break;
    case I2C_SMBUS_BYTE:
        bytes = transaction.read_write == I2C_SMBUS_READ ? 1 : 0;
        break;
    case I2C_SMBUS_BYTE_DATA:
        bytes = 1;
        break;
    case I2C_SMBUS_WORD_DATA:
    case I2C_SMBUS_PROC_CALL:
        bytes = 2;
        break;
    default:
        break;
    }
    void* const start = transaction.data;
    return {static_cast<std::uint8_t*>(start), start == nullptr ? 0 : bytes};
}

/// Whether a transaction brings data in both directions: with a call, or with a length.
bool smbusAsksWithData(const i2c_smbus_ioctl_data& transaction) {
    return transaction.size > I2C_SMBUS_WORD_DATA;
}

std::string smbusText(const void* argument) {
    const auto transaction = copied<i2c_smbus_ioctl_data>(argument);
    const bool reads = transaction.read_write == I2C_SMBUS_READ;
    std::string text = "I2C_SMBUS " + hex(transaction.size) + " command " +
                       hex(transaction.command) + (reads ? " read" : " write");
    if (!reads || smbusAsksWithData(transaction)) {
        const std::string bytes = bytesText(smbusData(transaction));
        text += (bytes.empty() ? "" : " ") + bytes;
    }
    return text;
}

bool smbusAnswers(const i2c_smbus_ioctl_data& transaction) {
    return transaction.read_write == I2C_SMBUS_READ || smbusAsksWithData(transaction);
}

std::string smbusAnswer(const void* argument) {
    const auto transaction = copied<i2c_smbus_ioctl_data>(argument);
    return smbusAnswers(transaction) ? bytesText(smbusData(transaction)) : "";
}

void playSmbus(tcWords& words, const void* argument) {
    const auto transaction = copied<i2c_smbus_ioctl_data>(argument);
    if (smbusAnswers(transaction)) {
        const std::span<std::uint8_t> data = smbusData(transaction);
        std::generate(data.begin(), data.end(), [&] { return words.byte(); });
    }
}

bool has(std::uint32_t request) {
    return request == I2C_RDWR || request == I2C_SMBUS || numberCall(kSettings, request) != nullptr;
}

std::string asked(std::uint32_t request, const void* argument) {
    if (const tsNumberCall* const setting = numberCall(kSettings, request)) {
        return numberAsked(*setting, argument);
    }
    return request == I2C_SMBUS ? smbusText(argument) : i2cText(argument);
}

std::string got(std::uint32_t request, const void* argument) {
    if (const tsNumberCall* const setting = numberCall(kSettings, request)) {
        return numberGot(*setting, argument);
    }
    return request == I2C_SMBUS ? smbusAnswer(argument) : i2cAnswer(argument);
}

void play(tcWords& words, std::uint32_t request, void* argument) {
    if (const tsNumberCall* const setting = numberCall(kSettings, request)) {
        playNumber(*setting, words, argument);
    } else if (request == I2C_SMBUS) {
        playSmbus(words, argument);
    } else {
        playI2c(words, argument);
    }
}

} // namespace

constinit const tsDeviceCalls kI2cCalls{has, asked, got, play};

} // namespace sim::calls

// The ioctls of a spidev port: settings and messages.

#include <array>
#include <cstring>
#include <linux/spi/spidev.h>
#include <vector>

#include "sim/base/user_pointer.h"
#include "sim/recordings/device_calls.h"
#include "sim/recordings/number_calls.h"

namespace sim::calls {

namespace {

constexpr std::array kSettings{
    tsNumberCall{SPI_IOC_WR_MODE, "SPI_IOC_WR_MODE", 1, true, false},
    tsNumberCall{SPI_IOC_WR_MODE32, "SPI_IOC_WR_MODE32", 4, true, false},
    tsNumberCall{SPI_IOC_WR_LSB_FIRST, "SPI_IOC_WR_LSB_FIRST", 1, true, false},
    tsNumberCall{SPI_IOC_WR_BITS_PER_WORD, "SPI_IOC_WR_BITS_PER_WORD", 1, true, false},
    tsNumberCall{SPI_IOC_WR_MAX_SPEED_HZ, "SPI_IOC_WR_MAX_SPEED_HZ", 4, true, false},
    tsNumberCall{SPI_IOC_RD_MODE, "SPI_IOC_RD_MODE", 1, false, true},
    tsNumberCall{SPI_IOC_RD_MODE32, "SPI_IOC_RD_MODE32", 4, false, true},
    tsNumberCall{SPI_IOC_RD_LSB_FIRST, "SPI_IOC_RD_LSB_FIRST", 1, false, true},
    tsNumberCall{SPI_IOC_RD_BITS_PER_WORD, "SPI_IOC_RD_BITS_PER_WORD", 1, false, true},
    tsNumberCall{SPI_IOC_RD_MAX_SPEED_HZ, "SPI_IOC_RD_MAX_SPEED_HZ", 4, false, true},
};

bool isSpiMessage(std::uint32_t request) {
    return _IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0 &&
           _IOC_DIR(request) == _IOC_WRITE;
}

std::vector<spi_ioc_transfer> transfersOf(std::uint32_t request, const void* argument) {
    std::vector<spi_ioc_transfer> transfers(_IOC_SIZE(request) / sizeof(spi_ioc_transfer));
    if (!transfers.empty()) {
        std::memcpy(transfers.data(), argument, transfers.size() * sizeof(spi_ioc_transfer));
    }
    return transfers;
}

std::string transferText(const spi_ioc_transfer& transfer) {
    std::string text = transfer.tx_buf == 0
                           ? "nothing for " + std::to_string(transfer.len)
                           : bytesText({userPointer(transfer.tx_buf), transfer.len});
    text += " (" + std::to_string(transfer.speed_hz) + " Hz, " +
            std::to_string(transfer.bits_per_word) + " bits";
    if (transfer.delay_usecs != 0) {
        text += ", delay " + std::to_string(transfer.delay_usecs) + " us";
    }
    if (transfer.cs_change != 0) {
        text += ", deselect";
    }
    return text + (transfer.rx_buf != 0 ? ", read)" : ")");
}

std::string messageText(std::uint32_t request, const void* argument) {
    std::string text = "SPI_IOC_MESSAGE";
    std::string_view between = " ";
    for (const spi_ioc_transfer& transfer : transfersOf(request, argument)) {
        text += between;
        text += transferText(transfer);
        between = kBetweenParts;
    }
    return text;
}

std::string messageAnswer(std::uint32_t request, const void* argument) {
    std::string text;
    for (const spi_ioc_transfer& transfer : transfersOf(request, argument)) {
        if (transfer.rx_buf != 0) {
            text +=
                (text.empty() ? "" : " ") + bytesText({userPointer(transfer.rx_buf), transfer.len});
        }
    }
    return text;
}

void playMessage(tcWords& words, std::uint32_t request, const void* argument) {
    for (const spi_ioc_transfer& transfer : transfersOf(request, argument)) {
        for (std::uint32_t at = 0; transfer.rx_buf != 0 && at < transfer.len; ++at) {
            const std::uint8_t byte = words.byte();
            std::memcpy(userPointer(transfer.rx_buf) + at, &byte, 1);
        }
    }
}

bool has(std::uint32_t request) {
    return isSpiMessage(request) || numberCall(kSettings, request) != nullptr;
}

std::string asked(std::uint32_t request, const void* argument) {
    const tsNumberCall* const setting = numberCall(kSettings, request);
    return setting != nullptr ? numberAsked(*setting, argument) : messageText(request, argument);
}

std::string got(std::uint32_t request, const void* argument) {
    const tsNumberCall* const setting = numberCall(kSettings, request);
    return setting != nullptr ? numberGot(*setting, argument) : messageAnswer(request, argument);
}

void play(tcWords& words, std::uint32_t request, void* argument) {
    if (const tsNumberCall* const setting = numberCall(kSettings, request)) {
        playNumber(*setting, words, argument);
    } else {
        playMessage(words, request, argument);
    }
}

} // namespace

constinit const tsDeviceCalls kSpiCalls{has, asked, got, play};

} // namespace sim::calls

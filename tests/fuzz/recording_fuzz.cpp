// A recording: it is read as a whole or refused with the line that is wrong; an answer is given to
// a program as the recorder would have written it, or refused.

#include <array>
#include <cstring>
#include <linux/gpio.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>

#include "sim/call_text.h"
#include "sim/recording.h"
#include "tests/fuzz/support.h"

namespace {

std::uint64_t addressOf(const void* pointer) {
    std::uintptr_t number = 0;
    std::memcpy(&number, &pointer, sizeof number);
    return number;
}

/// What a program has behind the pointers of its calls.
struct tsMemory {
    std::array<std::uint8_t, 4> sent{1, 2, 3, 4};
    std::array<std::uint8_t, 4> received{};
    std::array<std::uint8_t, 2> reading{};
};

/// Gives the answer to a call. One that is taken is written the same way again when it is read
/// back.
template<class Argument>
void answer(const std::string& text, std::uint32_t request, Argument argument) {
    try {
        const int result = sim::playIoctl(text, request, &argument);
        const std::string written = sim::ioctlAnswer(result, request, &argument);
        const int again = sim::playIoctl(written, request, &argument);
        fuzz::require(again == result, "the same result from its text");
        fuzz::requireEqual("the same answer from its text", written,
                           sim::ioctlAnswer(again, request, &argument));
    } catch (const std::runtime_error& error) {
        fuzz::require(*error.what() != '\0', "a refusal says why");
    }
}

void answerEveryCall(const std::string& text) {
    tsMemory memory;
    spi_ioc_transfer transfer{};
    transfer.tx_buf = addressOf(memory.sent.data());
    transfer.rx_buf = addressOf(memory.received.data());
    transfer.len = 4;
    answer(text, SPI_IOC_MESSAGE(1), transfer);
    answer(text, SPI_IOC_RD_MODE, std::uint8_t{0});
    answer(text, SPI_IOC_RD_MAX_SPEED_HZ, std::uint32_t{0});
    answer(text, GPIO_GET_CHIPINFO_IOCTL, gpiochip_info{});
    answer(text, GPIO_V2_GET_LINEINFO_IOCTL, gpio_v2_line_info{});
    answer(text, GPIO_V2_LINE_GET_VALUES_IOCTL, gpio_v2_line_values{});
    i2c_msg message{0x49, I2C_M_RD, 2, memory.reading.data()};
    answer(text, I2C_RDWR, i2c_rdwr_ioctl_data{&message, 1});
    answer(text, _IOR('x', 1, std::uint64_t), std::uint64_t{0});
    try {
        const std::int64_t count = sim::playRead(text, memory.reading);
        fuzz::require(count <= 2, "no more than there is room for");
    } catch (const std::runtime_error& error) {
        fuzz::require(*error.what() != '\0', "a refusal says why");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text({data, size});
    try {
        std::size_t line = 1;
        for (const sim::tsExchange& exchange : sim::parseRecording(text)) {
            fuzz::require(exchange.line == ++line, "every line is a call");
            fuzz::require(!exchange.asked.empty(), "a call says something");
            answerEveryCall(exchange.answer);
        }
    } catch (const std::runtime_error& error) {
        fuzz::require(std::string(error.what()).starts_with("line "), "a refusal names the line");
    }
    answerEveryCall(text);
    return 0;
}

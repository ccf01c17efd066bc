#include "sim/recordings/call_text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <linux/gpio.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <stdexcept>
#include <sys/mman.h>
#include <vector>

#include "sim/base/error_names.h"
#include "sim/base/text.h"
#include "sim/base/timed_text.h"
#include "sim/base/user_pointer.h"

namespace sim {

namespace {

constexpr std::string_view kBehindResult = " | "; // what the program gets besides the result
constexpr std::string_view kBetweenParts = " / "; // transfers of a message

std::string hex(std::uint64_t value) {
    tcText text;
    return std::string(text.hex(value).view());
}

template<class Type>
Type copied(const void* from) {
    Type value{};
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// In quotes, whatever it holds: a name comes from the outside.
std::string quoted(const char* text, std::size_t longest) {
    std::string result = "\"";
    for (std::size_t at = 0; at < longest && text[at] != '\0'; ++at) {
        const auto code = static_cast<unsigned char>(text[at]);
        if (code <= ' ' || code >= 0x7F || code == '"' || code == '\\' || code == '=' ||
            code == '|' || code == '/') {
            tcText escape;
            result += escape.add("\\").bareHex(code, 2).view();
        } else {
            result += text[at];
        }
    }
    return result + "\"";
}

/// Takes a text apart, word by word.
class tcWords {
public:
    explicit tcWords(std::string_view text) : m_rest(text) { skip(); }

    [[nodiscard]] bool empty() const { return m_rest.empty(); }
    std::string_view next() {
        if (m_rest.empty()) {
            throw std::runtime_error("there is too little in it");
        }
        const std::size_t end = std::min(m_rest.find(' '), m_rest.size());
        const std::string_view word = m_rest.substr(0, end);
        m_rest.remove_prefix(end);
        skip();
        return word;
    }
    std::uint64_t number(int base = 0) { return numberFrom(next(), base); }
    template<class Type>
    Type number() {
        const std::uint64_t value = number();
        if (value > static_cast<std::uint64_t>(static_cast<Type>(~Type{0}))) {
            throw std::runtime_error(std::to_string(value) + " is too large");
        }
        return static_cast<Type>(value);
    }
    std::uint8_t byte() {
        const std::uint64_t value = number(16);
        if (value > 0xFF) {
            throw std::runtime_error("a byte has two digits");
        }
        return static_cast<std::uint8_t>(value);
    }
    /// A name as `quoted` wrote it.
    void name(char* destination, std::size_t size) {
        std::string_view word = next();
        if (word.size() < 2 || word.front() != '"' || word.back() != '"') {
            throw std::runtime_error("a name is in quotes");
        }
        word = word.substr(1, word.size() - 2);
        std::string plain;
        for (std::size_t at = 0; at < word.size(); ++at) {
            if (word[at] == '\\' && at + 2 < word.size()) {
                plain += static_cast<char>(numberFrom(word.substr(at + 1, 2), 16));
                at += 2;
            } else {
                plain += word[at];
            }
        }
        if (plain.size() >= size) {
            throw std::runtime_error("a name is too long");
        }
        std::memset(destination, 0, size);
        std::memcpy(destination, plain.data(), plain.size());
    }
    void end() const {
        if (!m_rest.empty()) {
            throw std::runtime_error("there is too much in it: \"" + std::string(m_rest) + "\"");
        }
    }

private:
    void skip() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(' '), m_rest.size())); }
    std::string_view m_rest;
};

/// The entries of a list of fixed size that are used.
template<class Type, std::size_t Size>
std::span<const Type> used(const Type (&entries)[Size], std::uint32_t count) {
    return {entries, std::min<std::size_t>(count, Size)};
}

template<class Type>
void give(void* argument, Type value) {
    std::memcpy(argument, &value, sizeof value);
}

// --- SPI ---

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

// --- GPIO ---

std::string attributeText(const gpio_v2_line_attribute& attribute) {
    const std::uint64_t value =
        attribute.id == GPIO_V2_LINE_ATTR_ID_FLAGS ? attribute.flags : attribute.values;
    return std::to_string(attribute.id) + " " + hex(value);
}

std::string configText(const gpio_v2_line_config& config) {
    std::string text = "flags " + hex(config.flags);
    for (const gpio_v2_line_config_attribute& entry : used(config.attrs, config.num_attrs)) {
        text += " attribute " + attributeText(entry.attr) + " for " + hex(entry.mask);
    }
    return text;
}

std::string lineRequestText(const gpio_v2_line_request& request) {
    std::string text = "GPIO_V2_GET_LINE";
    for (const std::uint32_t offset : used(request.offsets, request.num_lines)) {
        text += " " + std::to_string(offset);
    }
    return text + " as " + quoted(request.consumer, sizeof request.consumer) + " " +
           configText(request.config);
}

std::string lineInfoAnswer(const gpio_v2_line_info& info) {
    std::string text = quoted(info.name, sizeof info.name) + " " +
                       quoted(info.consumer, sizeof info.consumer) + " " + hex(info.flags);
    for (const gpio_v2_line_attribute& attribute : used(info.attrs, info.num_attrs)) {
        text += " " + attributeText(attribute);
    }
    return text;
}

void playLineInfo(tcWords& words, void* argument) {
    auto info = copied<gpio_v2_line_info>(argument);
    words.name(info.name, sizeof info.name);
    words.name(info.consumer, sizeof info.consumer);
    info.flags = words.number();
    info.num_attrs = 0;
    while (!words.empty() && info.num_attrs < std::size(info.attrs)) {
        gpio_v2_line_attribute& attribute = info.attrs[info.num_attrs++];
        attribute.id = words.number<std::uint32_t>();
        attribute.values = words.number();
    }
    give(argument, info);
}

std::string chipAnswer(const gpiochip_info& info) {
    return quoted(info.name, sizeof info.name) + " " + quoted(info.label, sizeof info.label) + " " +
           std::to_string(info.lines);
}

void playChip(tcWords& words, void* argument) {
    gpiochip_info info{};
    words.name(info.name, sizeof info.name);
    words.name(info.label, sizeof info.label);
    info.lines = words.number<std::uint32_t>();
    give(argument, info);
}

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

// --- Any ioctl ---

/// An ioctl whose argument is a number of its own size, handed over, got back, or both.
struct tsNumberRequest {
    std::uint32_t request;
    const char* name;
    std::uint8_t size; // [bytes]; 0: the argument itself is the number
    bool handedOver;
    bool gotBack;
};

constexpr std::uint8_t kLong = sizeof(long); // of the program, not of the text

constexpr std::array kNumberRequests{
    tsNumberRequest{SPI_IOC_WR_MODE, "SPI_IOC_WR_MODE", 1, true, false},
    tsNumberRequest{SPI_IOC_WR_MODE32, "SPI_IOC_WR_MODE32", 4, true, false},
    tsNumberRequest{SPI_IOC_WR_LSB_FIRST, "SPI_IOC_WR_LSB_FIRST", 1, true, false},
    tsNumberRequest{SPI_IOC_WR_BITS_PER_WORD, "SPI_IOC_WR_BITS_PER_WORD", 1, true, false},
    tsNumberRequest{SPI_IOC_WR_MAX_SPEED_HZ, "SPI_IOC_WR_MAX_SPEED_HZ", 4, true, false},
    tsNumberRequest{SPI_IOC_RD_MODE, "SPI_IOC_RD_MODE", 1, false, true},
    tsNumberRequest{SPI_IOC_RD_MODE32, "SPI_IOC_RD_MODE32", 4, false, true},
    tsNumberRequest{SPI_IOC_RD_LSB_FIRST, "SPI_IOC_RD_LSB_FIRST", 1, false, true},
    tsNumberRequest{SPI_IOC_RD_BITS_PER_WORD, "SPI_IOC_RD_BITS_PER_WORD", 1, false, true},
    tsNumberRequest{SPI_IOC_RD_MAX_SPEED_HZ, "SPI_IOC_RD_MAX_SPEED_HZ", 4, false, true},
    tsNumberRequest{I2C_SLAVE, "I2C_SLAVE", 0, true, false},
    tsNumberRequest{I2C_SLAVE_FORCE, "I2C_SLAVE_FORCE", 0, true, false},
    tsNumberRequest{I2C_TENBIT, "I2C_TENBIT", 0, true, false},
    tsNumberRequest{I2C_RETRIES, "I2C_RETRIES", 0, true, false},
    tsNumberRequest{I2C_TIMEOUT, "I2C_TIMEOUT", 0, true, false},
    tsNumberRequest{I2C_FUNCS, "I2C_FUNCS", kLong, false, true},
};

const tsNumberRequest* numberRequest(std::uint32_t request) {
    const auto* const found =
        std::find_if(kNumberRequests.begin(), kNumberRequests.end(),
                     [&](const tsNumberRequest& one) { return one.request == request; });
    return found == kNumberRequests.end() ? nullptr : found;
}

std::uint64_t numberIn(const void* argument, std::uint8_t size) {
    switch (size) {
    case 0: {
        std::uintptr_t number = 0;
        std::memcpy(&number, &argument, sizeof number);
        return number;
    }
    case 1:
        return copied<std::uint8_t>(argument);
    case 4:
        return copied<std::uint32_t>(argument);
    default:
        return copied<std::uint64_t>(argument);
    }
}

void playNumber(tcWords& words, std::uint8_t size, void* argument) {
    switch (size) {
    case 1:
        return give(argument, words.number<std::uint8_t>());
    case 4:
        return give(argument, words.number<std::uint32_t>());
    default:
        return give(argument, words.number());
    }
}

/// Bytes of an argument of which nothing but the size is known.
std::span<const std::uint8_t> unknownBytes(std::uint32_t request, const void* argument) {
    return {static_cast<const std::uint8_t*>(argument), _IOC_SIZE(request)};
}

/// What the program gets besides the result.
std::string details(std::uint32_t request, const void* argument) {
    if (const tsNumberRequest* known = numberRequest(request)) {
        return known->gotBack ? hex(numberIn(argument, known->size)) : "";
    }
    if (isSpiMessage(request)) {
        return messageAnswer(request, argument);
    }
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
        return chipAnswer(copied<gpiochip_info>(argument));
    case GPIO_V2_GET_LINEINFO_IOCTL:
        return lineInfoAnswer(copied<gpio_v2_line_info>(argument));
    case GPIO_V2_LINE_GET_VALUES_IOCTL:
        return hex(copied<gpio_v2_line_values>(argument).bits);
    case GPIO_V2_GET_LINE_IOCTL:
    case GPIO_V2_LINE_SET_VALUES_IOCTL:
    case GPIO_V2_LINE_SET_CONFIG_IOCTL:
        return "";
    case I2C_RDWR:
        return i2cAnswer(argument);
    case I2C_SMBUS:
        return smbusAnswer(argument);
    default:
        return (_IOC_DIR(request) & _IOC_READ) != 0 ? bytesText(unknownBytes(request, argument))
                                                    : "";
    }
}

void playDetails(tcWords& words, std::uint32_t request, void* argument) {
    if (const tsNumberRequest* known = numberRequest(request)) {
        return known->gotBack ? playNumber(words, known->size, argument) : void();
    }
    if (isSpiMessage(request)) {
        return playMessage(words, request, argument);
    }
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
        return playChip(words, argument);
    case GPIO_V2_GET_LINEINFO_IOCTL:
        return playLineInfo(words, argument);
    case GPIO_V2_LINE_GET_VALUES_IOCTL: {
        auto values = copied<gpio_v2_line_values>(argument);
        values.bits = words.number();
        return give(argument, values);
    }
    case GPIO_V2_GET_LINE_IOCTL:
    case GPIO_V2_LINE_SET_VALUES_IOCTL:
    case GPIO_V2_LINE_SET_CONFIG_IOCTL:
        return;
    case I2C_RDWR:
        return playI2c(words, argument);
    case I2C_SMBUS:
        return playSmbus(words, argument);
    default:
        if ((_IOC_DIR(request) & _IOC_READ) != 0) {
            std::vector<std::uint8_t> bytes(_IOC_SIZE(request));
            std::generate(bytes.begin(), bytes.end(), [&] { return words.byte(); });
            std::memcpy(argument, bytes.data(), bytes.size());
        }
    }
}

} // namespace

std::string openText(std::string_view path, int flags) {
    std::string text(path);
    const int access = flags & O_ACCMODE;
    text += access == O_RDONLY ? " r" : (access == O_WRONLY ? " w" : " rw");
    text += (flags & O_SYNC) == O_SYNC ? " sync" : "";
    text += (flags & O_NONBLOCK) != 0 ? " nonblock" : "";
    text += (flags & O_CLOEXEC) != 0 ? " cloexec" : "";
    return text;
}

std::string mapText(std::uint32_t physicalAddress, std::size_t length, int protection, int flags) {
    tcText text;
    text.hex(physicalAddress, 8).add(" ").decimal(length).add(" ");
    text.add((protection & PROT_READ) != 0 ? "r" : "");
    text.add((protection & PROT_WRITE) != 0 ? "w" : "");
    text.add((flags & MAP_SHARED) != 0 ? " shared" : " private");
    return std::string(text.view());
}

std::string bytesText(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        tcText digits;
        text += text.empty() ? "" : " ";
        text += digits.bareHex(byte, 2).view();
    }
    return text;
}

std::string ioctlText(std::uint32_t request, const void* argument) {
    if (const tsNumberRequest* known = numberRequest(request)) {
        return std::string(known->name) +
               (known->handedOver ? " " + hex(numberIn(argument, known->size)) : "");
    }
    if (isSpiMessage(request)) {
        return messageText(request, argument);
    }
    switch (request) {
    case GPIO_GET_CHIPINFO_IOCTL:
        return "GPIO_GET_CHIPINFO";
    case GPIO_V2_GET_LINEINFO_IOCTL:
        return "GPIO_V2_GET_LINEINFO " + std::to_string(copied<gpio_v2_line_info>(argument).offset);
    case GPIO_V2_GET_LINE_IOCTL:
        return lineRequestText(copied<gpio_v2_line_request>(argument));
    case GPIO_V2_LINE_SET_VALUES_IOCTL: {
        const auto values = copied<gpio_v2_line_values>(argument);
        return "GPIO_V2_LINE_SET_VALUES " + hex(values.bits) + " of " + hex(values.mask);
    }
    case GPIO_V2_LINE_GET_VALUES_IOCTL:
        return "GPIO_V2_LINE_GET_VALUES of " + hex(copied<gpio_v2_line_values>(argument).mask);
    case GPIO_V2_LINE_SET_CONFIG_IOCTL:
        return "GPIO_V2_LINE_SET_CONFIG " + configText(copied<gpio_v2_line_config>(argument));
    case I2C_RDWR:
        return i2cText(argument);
    case I2C_SMBUS:
        return smbusText(argument);
    default:
        return hex(request) + ((_IOC_DIR(request) & _IOC_WRITE) != 0
                                   ? " " + bytesText(unknownBytes(request, argument))
                                   : "");
    }
}

std::string resultText(std::int64_t result) {
    return result < 0 ? nameOfError(static_cast<int>(-result)) : std::to_string(result);
}

std::int64_t playResult(std::string_view text) {
    if (const int error = errorNamed(text); error != 0) {
        return -error;
    }
    constexpr std::uint64_t most = 0x7FFF'FFFF;
    const std::uint64_t value = numberFrom(text);
    if (value > most) {
        throw std::runtime_error("\"" + std::string(text) + "\" is no result of a call");
    }
    return static_cast<std::int64_t>(value);
}

std::string ioctlAnswer(int result, std::uint32_t request, const void* argument) {
    std::string text = resultText(result);
    if (result >= 0) {
        const std::string more = details(request, argument);
        text += more.empty() ? "" : std::string(kBehindResult) + more;
    }
    return text;
}

int playIoctl(std::string_view answer, std::uint32_t request, void* argument) {
    const std::size_t end = std::min(answer.find(kBehindResult), answer.size());
    const std::int64_t result = playResult(answer.substr(0, end));
    if (result >= 0) {
        answer.remove_prefix(std::min(end + kBehindResult.size(), answer.size()));
        tcWords words(answer);
        playDetails(words, request, argument);
        words.end();
    }
    return static_cast<int>(result);
}

std::string readAnswer(std::int64_t result, std::span<const std::uint8_t> buffer) {
    std::string text = resultText(result);
    if (result > 0) {
        const auto count = std::min(static_cast<std::size_t>(result), buffer.size());
        text += std::string(kBehindResult) + bytesText(buffer.first(count));
    }
    return text;
}

std::int64_t playRead(std::string_view answer, std::span<std::uint8_t> buffer) {
    const std::size_t end = std::min(answer.find(kBehindResult), answer.size());
    const std::int64_t result = playResult(answer.substr(0, end));
    if (result > 0) {
        if (static_cast<std::uint64_t>(result) > buffer.size()) {
            throw std::runtime_error("more was read than asked for");
        }
        answer.remove_prefix(std::min(end + kBehindResult.size(), answer.size()));
        tcWords words(answer);
        for (std::size_t at = 0; at < static_cast<std::size_t>(result); ++at) {
            buffer[at] = words.byte();
        }
        words.end();
    }
    return result;
}

} // namespace sim

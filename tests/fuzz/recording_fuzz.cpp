// A recording: it is read as a second reading of its text says, or refused with the line that is
// wrong; an answer gives a program the result and the bytes that its text says.

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <linux/gpio.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <utility>

#include "sim/recordings/call_text.h"
#include "sim/recordings/recording.h"
#include "tests/fuzz/support.h"

namespace {

using tcBytes = std::vector<std::uint8_t>;

// --- Second reading of a recording ---

/// \return the digits' number; nothing for anything but digits, or beyond 64 bits
std::optional<std::uint64_t> digits(std::string_view text, int base) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

/// \return nanoseconds of "    12.000000345"
std::optional<std::uint64_t> timeIn(std::string_view text) {
    while (text.starts_with(' '))
        text.remove_prefix(1);
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos || text.size() != point + 10)
        return std::nullopt;
    const auto seconds = digits(text.substr(0, point), 10);
    const auto nanoseconds = digits(text.substr(point + 1), 10);
    if (!seconds || !nanoseconds || *seconds > 999'999'999)
        return std::nullopt;
    return *seconds * 1'000'000'000 + *nanoseconds;
}

/// \param content of a line, without its end
std::optional<sim::tsExchange> exchangeIn(std::string_view content, std::size_t line) {
    const std::size_t bracket = content.find("] ");
    if (!content.starts_with('[') || bracket == std::string_view::npos)
        return std::nullopt;
    const auto time = timeIn(content.substr(1, bracket - 1));
    content.remove_prefix(bracket + 2);
    std::size_t equals = std::string_view::npos;
    for (std::size_t at = 0; at + 3 <= content.size(); ++at) {
        if (content.substr(at, 3) == " = ")
            equals = at;
    }
    if (!time || equals == std::string_view::npos || equals == 0)
        return std::nullopt;
    return sim::tsExchange{*time, std::string(content.substr(0, equals)),
                           std::string(content.substr(equals + 3)), line};
}

struct tsReading {
    std::vector<sim::tsExchange> exchanges;
    std::size_t badLine = 0; // 0: it is a recording
};

tsReading read(std::string_view text) {
    tsReading reading;
    if (text.empty())
        reading.badLine = 1;
    for (std::size_t line = 1; !text.empty() && reading.badLine == 0; ++line) {
        const std::size_t end = text.find('\n');
        const std::string_view content = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        const auto exchange = line == 1 ? std::nullopt : exchangeIn(content, line);
        const bool good = line == 1 ? content == "virtual-head recording 1" : exchange.has_value();
        if (!good || end == std::string_view::npos)
            reading.badLine = line;
        else if (exchange)
            reading.exchanges.push_back(*exchange);
    }
    return reading;
}

// --- Second reading of an answer ---

std::optional<std::uint64_t> numberIn(std::string_view word, int base = 10) {
    return word.starts_with("0x") ? digits(word.substr(2), 16) : digits(word, base);
}

/// \return the name in quotes, \20 and the like for what cannot stand there
std::optional<std::string> nameIn(std::string_view word) {
    if (word.size() < 2 || !word.starts_with('"') || !word.ends_with('"'))
        return std::nullopt;
    word = word.substr(1, word.size() - 2);
    std::string name;
    while (!word.empty()) {
        const bool escape = word.front() == '\\' && word.size() > 2;
        if (!escape) {
            name += word.front();
            word.remove_prefix(1);
            continue;
        }
        const auto code = numberIn(word.substr(1, 2), 16);
        if (!code)
            return std::nullopt;
        name += static_cast<char>(*code);
        word.remove_prefix(3);
    }
    return name;
}

/// "RESULT | WORDS": what an answer says.
struct tsAnswer {
    std::optional<std::int64_t> result; // nothing: none, or an error not known here
    bool mayBeError = false;
    std::vector<std::string> words;
};

tsAnswer answerIn(std::string_view text) {
    constexpr std::pair<std::string_view, int> errors[] = {
        {"EPERM", EPERM}, {"ENOENT", ENOENT}, {"EIO", EIO},       {"ENXIO", ENXIO},
        {"EBUSY", EBUSY}, {"ENODEV", ENODEV}, {"EINVAL", EINVAL}, {"EREMOTEIO", EREMOTEIO}};
    const std::size_t bar = std::min(text.find(" | "), text.size());
    const std::string_view result = text.substr(0, bar);
    tsAnswer answer;
    answer.mayBeError = result.starts_with('E');
    for (const auto& [name, error] : errors) {
        if (result == name)
            answer.result = -error;
    }
    if (const auto number = numberIn(result); number && *number <= 0x7FFFFFFF)
        answer.result = static_cast<std::int64_t>(*number);
    bool inWord = false;
    for (const char c : text.substr(std::min(bar + 3, text.size()))) {
        if (c != ' ' && !inWord)
            answer.words.emplace_back();
        inWord = c != ' ';
        if (inWord)
            answer.words.back() += c;
    }
    return answer;
}

/// \return so many bytes, and nothing else
std::optional<tcBytes> bytesIn(const std::vector<std::string>& words, std::size_t count) {
    tcBytes bytes;
    for (const std::string& word : words) {
        const auto byte = numberIn(word, 16);
        if (!byte || *byte > 0xFF)
            return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(*byte));
    }
    return bytes.size() == count ? std::optional(bytes) : std::nullopt;
}

/// \return one number, and nothing else, as a program has it in so many bytes
template<class Number>
std::optional<tcBytes> valueIn(const std::vector<std::string>& words) {
    const auto number = words.size() == 1 ? numberIn(words[0]) : std::nullopt;
    if (!number || *number > static_cast<Number>(~Number{0}))
        return std::nullopt;
    const auto value = static_cast<Number>(*number);
    tcBytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

/// \return name, label and number of lines
std::optional<tcBytes> chipIn(const std::vector<std::string>& words) {
    gpiochip_info info{};
    if (words.size() != 3)
        return std::nullopt;
    const auto name = nameIn(words[0]);
    const auto label = nameIn(words[1]);
    const auto lines = numberIn(words[2]);
    if (!name || !label || !lines || *lines > 0xFFFFFFFF || name->size() >= sizeof info.name ||
        label->size() >= sizeof info.label)
        return std::nullopt;
    std::memcpy(info.name, name->data(), name->size());
    std::memcpy(info.label, label->data(), label->size());
    info.lines = static_cast<std::uint32_t>(*lines);
    tcBytes bytes(sizeof info);
    std::memcpy(bytes.data(), &info, sizeof info);
    return bytes;
}

/// \return name, consumer, flags, and up to ten attributes of two numbers each
std::optional<tcBytes> lineIn(const std::vector<std::string>& words) {
    gpio_v2_line_info info{};
    if (words.size() < 3 || words.size() > 23 || words.size() % 2 == 0)
        return std::nullopt;
    const auto name = nameIn(words[0]);
    const auto consumer = nameIn(words[1]);
    const auto flags = numberIn(words[2]);
    if (!name || !consumer || !flags || name->size() >= sizeof info.name ||
        consumer->size() >= sizeof info.consumer)
        return std::nullopt;
    std::memcpy(info.name, name->data(), name->size());
    std::memcpy(info.consumer, consumer->data(), consumer->size());
    info.flags = *flags;
    for (std::size_t at = 3; at < words.size(); at += 2) {
        const auto id = numberIn(words[at]);
        const auto value = numberIn(words[at + 1]);
        if (!id || *id > 0xFFFFFFFF || !value)
            return std::nullopt;
        info.attrs[info.num_attrs].id = static_cast<std::uint32_t>(*id);
        info.attrs[info.num_attrs++].values = *value;
    }
    tcBytes bytes(sizeof info);
    std::memcpy(bytes.data(), &info, sizeof info);
    return bytes;
}

// --- Checks ---

std::string shown(const std::optional<tcBytes>& bytes) {
    if (!bytes)
        return "refused";
    std::string text;
    for (const std::uint8_t byte : *bytes)
        text += std::to_string(byte) + " ";
    return text;
}

std::string shown(std::optional<std::int64_t> result) {
    return result ? std::to_string(*result) : "refused";
}

std::uint64_t addressOf(const void* pointer) {
    std::uintptr_t number = 0;
    std::memcpy(&number, &pointer, sizeof number);
    return number;
}

/// Gives an answer to a call.
/// \return the result; nothing when the answer is refused
template<class Argument>
std::optional<int> play(const std::string& text, std::uint32_t request, Argument& argument) {
    try {
        return sim::playIoctl(text, request, &argument);
    } catch (const std::runtime_error& error) {
        fuzz::require(*error.what() != '\0', "a refusal of an answer says why");
        return std::nullopt;
    }
}

/// The same. An answer that is taken is written the same way again when it is read back.
template<class Argument>
std::optional<int> answer(const std::string& text, std::uint32_t request, Argument& argument) {
    const std::optional<int> result = play(text, request, argument);
    if (!result)
        return std::nullopt;
    Argument other = argument;
    const std::string written = sim::ioctlAnswer(*result, request, &argument);
    const std::optional<int> again = play(written, request, other);
    fuzz::requireEqual("result from its own text", shown(result), shown(again));
    fuzz::requireEqual("answer from its own text", written,
                       sim::ioctlAnswer(*again, request, &other));
    // A name ends at a zero.
    const bool cut = text.find("\\00") != text.npos || text.find('\0') != text.npos;
    fuzz::require(cut || std::memcmp(&argument, &other, sizeof other) == 0,
                  "argument from its own text");
    return result;
}

/// Gives the answer to a call, and holds what the program gets against the text.
/// \param more     what the text gives besides the result; nothing where that is unreadable
/// \param received what the program has
template<class Argument>
void expect(const std::string& text, const tsAnswer& said, std::uint32_t request, Argument argument,
            const std::optional<tcBytes>& more, const void* received) {
    tcBytes got(more ? more->size() : 0);
    const void* const place = received != nullptr ? received : &argument;
    const tcBytes before = got.empty() ? tcBytes() : [&] {
        tcBytes bytes(got.size());
        std::memcpy(bytes.data(), place, bytes.size());
        return bytes;
    }();
    const std::optional<int> result = answer(text, request, argument);
    if (!got.empty())
        std::memcpy(got.data(), place, got.size());
    fuzz::require(said.result || said.mayBeError || !result, "an answer begins with a result");
    if (!said.result)
        return;
    const bool failed = *said.result < 0;
    const bool good = failed || more.has_value();
    fuzz::requireEqual("result", shown(good ? said.result : std::nullopt), shown(result));
    if (good && more)
        fuzz::requireEqual("what the program gets", shown(failed ? before : *more), shown(got));
}

void readAnswer(const std::string& text, const tsAnswer& said) {
    std::array<std::uint8_t, 4> room{0xA5, 0xA5, 0xA5, 0xA5};
    constexpr std::size_t kAsked = 2;
    try {
        const std::int64_t count = sim::playRead(text, std::span(room).first(kAsked));
        fuzz::require(count <= 2, "no more than there is room for");
        fuzz::require(room[2] == 0xA5 && room[3] == 0xA5, "nothing behind the room");
        fuzz::require(said.result || said.mayBeError, "a reading begins with a result");
        if (!said.result)
            return;
        fuzz::requireEqual("count", std::to_string(*said.result), std::to_string(count));
        const auto length = static_cast<std::size_t>(std::max(count, std::int64_t{0}));
        if (length > 0)
            fuzz::requireEqual("what is read", shown(bytesIn(said.words, length)),
                               shown(tcBytes(room.begin(), room.begin() + count)));
    } catch (const std::runtime_error& error) {
        fuzz::require(*error.what() != '\0', "a refusal of a reading says why");
        const std::int64_t count = said.result.value_or(-1);
        fuzz::require(!said.result || count > 2 ||
                          (count > 0 && !bytesIn(said.words, static_cast<std::size_t>(count))),
                      "a reading that fits is taken");
    }
}

void answerEveryCall(const std::string& text) {
    const tsAnswer said = answerIn(text);
    const std::array<std::uint8_t, 4> sent{1, 2, 3, 4};
    std::array<std::uint8_t, 4> received{};
    spi_ioc_transfer transfer{};
    transfer.tx_buf = addressOf(sent.data());
    transfer.rx_buf = addressOf(received.data());
    transfer.len = 4;
    expect(text, said, SPI_IOC_MESSAGE(1), transfer, bytesIn(said.words, 4), received.data());
    expect(text, said, SPI_IOC_RD_MODE, std::uint8_t{0}, valueIn<std::uint8_t>(said.words),
           nullptr);
    expect(text, said, SPI_IOC_RD_MAX_SPEED_HZ, std::uint32_t{0},
           valueIn<std::uint32_t>(said.words), nullptr);
    expect(text, said, GPIO_GET_CHIPINFO_IOCTL, gpiochip_info{}, chipIn(said.words), nullptr);
    expect(text, said, GPIO_V2_LINE_GET_VALUES_IOCTL, gpio_v2_line_values{},
           valueIn<std::uint64_t>(said.words), nullptr);
    std::array<std::uint8_t, 2> reading{};
    i2c_msg message{0x49, I2C_M_RD, 2, reading.data()};
    expect(text, said, I2C_RDWR, i2c_rdwr_ioctl_data{&message, 1}, bytesIn(said.words, 2),
           reading.data());
    expect(text, said, _IOR('x', 1, std::uint64_t), std::uint64_t{0}, bytesIn(said.words, 8),
           nullptr);
    expect(text, said, GPIO_V2_GET_LINEINFO_IOCTL, gpio_v2_line_info{}, lineIn(said.words),
           nullptr);
    readAnswer(text, said);
}

std::string shown(const sim::tsExchange& exchange) {
    return std::to_string(exchange.line) + " " + std::to_string(exchange.timeNs) + " [" +
           exchange.asked + "] [" + exchange.answer + "]\n";
}

std::string shown(const std::vector<sim::tsExchange>& exchanges) {
    std::string text;
    for (const sim::tsExchange& exchange : exchanges)
        text += shown(exchange);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text({data, size});
    const tsReading reading = read(text);
    try {
        const std::vector<sim::tsExchange> exchanges = sim::parseRecording(text);
        fuzz::require(reading.badLine == 0, "what is no recording is refused");
        fuzz::requireEqual("calls", shown(reading.exchanges), shown(exchanges));
        for (const sim::tsExchange& exchange : exchanges)
            answerEveryCall(exchange.answer);
    } catch (const std::runtime_error& error) {
        fuzz::require(reading.badLine != 0, "only what is no recording is refused");
        const std::string line = "line " + std::to_string(reading.badLine) + ": ";
        fuzz::requireEqual("line of the refusal", line,
                           std::string(error.what()).substr(0, line.size()));
        fuzz::require(std::strlen(error.what()) > line.size(), "a refusal says why");
    }
    answerEveryCall(text);
    return 0;
}

#include "sim/boundary/taped.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/gpio.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sim/base/real_calls.h"
#include "sim/base/text.h"
#include "sim/base/timed_text.h"
#include "sim/boundary/hardware.h"
#include "sim/recordings/call_text.h"
#include "sim/recordings/call_words.h"

namespace sim::taped {

namespace {

std::string nameOf(const tsOpenFile& file) {
    return "#" + std::to_string(file.number);
}

/// What a call of the C library gave, as -errno.
template<class Result>
std::ptrdiff_t orError(Result result) {
    return result < 0 ? -errno : static_cast<std::ptrdiff_t>(result);
}

void keep(tcModel& head, std::string_view asked, std::string_view answer) {
    head.tape.keep(head.journal.clock.now(), asked, answer);
}

/// Takes the recording's answer. Time is then what it was.
std::string_view next(tcModel& head, std::string_view asked) {
    const tcTape::tsAnswer answer = head.tape.answerTo(asked);
    head.journal.clock.setTo(answer.timeNs);
    return answer.text;
}

/// Reads an answer. \param reader from text to whatever the answer is
template<class Reader>
auto played(tcModel& head, std::string_view asked, Reader reader) {
    const std::string_view answer = next(head, asked);
    try {
        return reader(answer);
    } catch (const std::runtime_error& error) {
        head.tape.refuseAnswer(error.what());
    }
}

/// A call that answers with a number or an error.
int playedResult(tcModel& head, std::string_view asked) {
    return static_cast<int>(played(head, asked, playResult));
}

/// The number of a file that was opened, or -errno.
std::int64_t fileNumber(std::string_view answer) {
    if (!answer.starts_with('#')) {
        const std::int64_t result = playResult(answer);
        if (result >= 0) {
            throw std::runtime_error("a file has a number: \"#1\"");
        }
        return result;
    }
    return static_cast<std::int64_t>(numberFrom(answer.substr(1), 10));
}

teDevice familyOf(std::string_view path) {
    if (path.starts_with("/dev/spidev")) {
        return teDevice::spi;
    }
    if (path.starts_with("/dev/gpiochip")) {
        return teDevice::gpio;
    }
    return path.starts_with("/dev/i2c-") ? teDevice::i2c : teDevice::memory;
}

std::string numbered(tcModel& head, int descriptor) {
    tsOpenFile& file = *g_descriptors.find(descriptor);
    file.number = head.tape.nextFile();
    return nameOf(file);
}

int playedOpen(tcModel& head, const std::string& asked, teDevice device, int flags, bool isLine) {
    const std::int64_t number = played(head, asked, fileNumber);
    if (number < 0) {
        return static_cast<int>(number);
    }
    const int descriptor = isLine ? g_descriptors.openLines({}) : g_descriptors.open(device, flags);
    if (descriptor >= 0) {
        g_descriptors.find(descriptor)->number = static_cast<unsigned>(number);
    }
    return descriptor;
}

/// The machine's own device. What it opens is known by its descriptor from now on.
int openHardware(const char* path, int flags) {
    const int descriptor = real::open(path, flags, 0);
    if (descriptor < 0) {
        return -errno;
    }
    if (!g_descriptors.adopt(descriptor, familyOf(path), flags)) {
        real::close(descriptor);
        return -EMFILE;
    }
    return descriptor;
}

int ioctlHardware(int descriptor, std::uint32_t request, void* argument) {
    const auto result = static_cast<int>(orError(real::ioctl(descriptor, request, argument)));
    if (result >= 0 && request == GPIO_V2_GET_LINE_IOCTL) {
        auto& lines = *static_cast<gpio_v2_line_request*>(argument);
        if (!g_descriptors.adopt(lines.fd, teDevice::gpio, 0)) {
            real::close(lines.fd);
            return -EMFILE;
        }
    }
    return result;
}

tcText loadText(std::uint32_t physicalAddress, unsigned width) {
    tcText text;
    text.add("load ").hex(physicalAddress, 8).add(" ").decimal(width);
    return text;
}

/// "0x0000000F" without the heap. \return false for anything else
bool wordFrom(std::string_view text, std::uint32_t& word) {
    constexpr std::size_t most = 10;
    if (!text.starts_with("0x") || text.size() < 3 || text.size() > most) {
        return false;
    }
    word = 0;
    for (const char digit : text.substr(2)) {
        std::uint32_t value = 0;
        if (digit >= '0' && digit <= '9') {
            value = static_cast<std::uint32_t>(digit - '0');
        } else if (digit >= 'A' && digit <= 'F') {
            value = static_cast<std::uint32_t>(digit - 'A') + 10;
        } else {
            return false;
        }
        word = word << 4 | value;
    }
    return true;
}

} // namespace

int open(tcModel& head, const char* path, int flags, const tcAnswer& answer) {
    head.tape.start();
    const std::string asked = "open " + openText(path, flags);
    if (head.tape.playing()) {
        return playedOpen(head, asked, familyOf(path), flags, false);
    }
    const int result =
        head.options().hardware ? openHardware(path, flags) : static_cast<int>(answer());
    keep(head, asked, result < 0 ? resultText(result) : numbered(head, result));
    return result;
}

int close(tcModel& head, tsOpenFile& file, int descriptor, const tcAnswer& answer) {
    const std::string asked = "close " + nameOf(file);
    if (head.tape.playing()) {
        real::close(descriptor);
        g_descriptors.sweep(head);
        return playedResult(head, asked);
    }
    int result = 0;
    if (head.options().hardware) {
        g_descriptors.release(file);
        result = static_cast<int>(orError(real::close(descriptor)));
    } else {
        result = static_cast<int>(answer());
    }
    keep(head, asked, resultText(result));
    return result;
}

int ioctl(tcModel& head, const tsOpenFile& file, int descriptor, std::uint32_t request,
          void* argument, const tcAnswer& answer) {
    const std::string asked = "ioctl " + nameOf(file) + " " + ioctlText(request, argument);
    const bool opensLine = request == GPIO_V2_GET_LINE_IOCTL;
    if (head.tape.playing()) {
        if (!opensLine) {
            return played(head, asked, [&](std::string_view text) {
                return playIoctl(text, request, argument);
            });
        }
        const int lines = playedOpen(head, asked, teDevice::gpio, 0, true);
        static_cast<gpio_v2_line_request*>(argument)->fd = lines;
        return lines < 0 ? lines : 0;
    }
    const int result = head.options().hardware ? ioctlHardware(descriptor, request, argument)
                                               : static_cast<int>(answer());
    if (opensLine && result >= 0) {
        keep(head, asked, numbered(head, static_cast<gpio_v2_line_request*>(argument)->fd));
    } else {
        keep(head, asked, ioctlAnswer(result, request, argument));
    }
    return result;
}

std::ptrdiff_t read(tcModel& head, const tsOpenFile& file, int descriptor,
                    std::span<std::uint8_t> buffer, const tcAnswer& answer) {
    const std::string asked = "read " + nameOf(file) + " " + std::to_string(buffer.size());
    if (head.tape.playing()) {
        return static_cast<std::ptrdiff_t>(
            played(head, asked, [&](std::string_view text) { return playRead(text, buffer); }));
    }
    const std::ptrdiff_t result =
        head.options().hardware ? orError(real::read(descriptor, buffer.data(), buffer.size()))
                                : answer();
    keep(head, asked, readAnswer(result, buffer));
    return result;
}

std::ptrdiff_t write(tcModel& head, const tsOpenFile& file, int descriptor,
                     std::span<const std::uint8_t> bytes, const tcAnswer& answer) {
    const std::string asked = "write " + nameOf(file) + " " + bytesText(bytes);
    if (head.tape.playing()) {
        return playedResult(head, asked);
    }
    const std::ptrdiff_t result = head.options().hardware
                                      ? orError(real::write(descriptor, bytes.data(), bytes.size()))
                                      : answer();
    keep(head, asked, resultText(result));
    return result;
}

int map(tcModel& head, const tsOpenFile& file, int descriptor, const tsMapping& mapping,
        const tcAnswer& answer) {
    const std::string asked =
        "mmap " + nameOf(file) + " " +
        mapText(mapping.physicalAddress, mapping.length, mapping.protection, mapping.flags);
    if (head.tape.playing()) {
        return playedResult(head, asked);
    }
    const int result = head.options().hardware
                           ? -g_hardware.map(descriptor, mapping.physicalAddress, mapping.length,
                                             mapping.protection, mapping.flags)
                           : static_cast<int>(answer());
    keep(head, asked, resultText(result));
    return result;
}

int unmap(tcModel& head, std::uint32_t physicalAddress, std::size_t length,
          const tcAnswer& answer) {
    tcText asked;
    asked.add("munmap ").hex(physicalAddress, 8).add(" ").decimal(length);
    if (head.tape.playing()) {
        return playedResult(head, asked.view());
    }
    const int result = head.options().hardware ? 0 : static_cast<int>(answer());
    keep(head, asked.view(), resultText(result));
    return result;
}

std::uint32_t load(tcModel& head, std::uint32_t physicalAddress, unsigned width) {
    const tcText asked = loadText(physicalAddress, width);
    if (head.tape.playing()) {
        std::uint32_t word = 0;
        if (!wordFrom(next(head, asked.view()), word)) {
            head.tape.refuseAnswer("a register's value is written as 0x0000000F");
        }
        return word;
    }
    const std::uint32_t word = head.options().hardware ? g_hardware.load(physicalAddress, width)
                                                       : head.load(physicalAddress, width);
    tcText answer;
    keep(head, asked.view(), answer.hex(word, 2 * width).view());
    return word;
}

void store(tcModel& head, std::uint32_t physicalAddress, unsigned width, std::uint32_t value) {
    tcText asked;
    asked.add("store ").hex(physicalAddress, 8).add(" ").decimal(width).add(" ");
    asked.hex(value, 2 * width);
    if (head.tape.playing()) {
        next(head, asked.view());
        return;
    }
    if (head.options().hardware) {
        g_hardware.store(physicalAddress, width, value);
    } else {
        head.store(physicalAddress, width, value);
    }
    keep(head, asked.view(), "0");
}

void keepSleep(tcModel& head, std::uint64_t durationNs, int error, std::uint64_t leftNs) {
    tcText asked;
    asked.add("sleep ").decimal(durationNs);
    std::string answer = resultText(-error);
    if (error != 0) {
        answer += " left " + std::to_string(leftNs);
    }
    keep(head, asked.view(), answer);
}

int playSleep(tcModel& head, std::uint64_t durationNs, std::uint64_t& leftNs) {
    tcText asked;
    asked.add("sleep ").decimal(durationNs);
    return static_cast<int>(played(head, asked.view(), [&](std::string_view answer) {
        constexpr std::string_view left = " left ";
        const std::size_t end = answer.find(left);
        leftNs = end == std::string_view::npos ? 0 : numberFrom(answer.substr(end + left.size()));
        return -playResult(answer.substr(0, end));
    }));
}

} // namespace sim::taped

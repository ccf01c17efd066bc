#include "sim/recordings/call_text.h"

#include <algorithm>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>

#include "sim/base/error_names.h"
#include "sim/base/text.h"
#include "sim/base/timed_text.h"
#include "sim/recordings/call_words.h"
#include "sim/recordings/device_calls.h"

namespace sim {

namespace {

constexpr std::string_view kBehindResult = " | "; // what the program gets besides the result

const calls::tsDeviceCalls& deviceOf(std::uint32_t request) {
    for (const calls::tsDeviceCalls* device :
         {&calls::kSpiCalls, &calls::kGpioCalls, &calls::kI2cCalls}) {
        if (device->has(request)) {
            return *device;
        }
    }
    return calls::kUnknownCalls;
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

std::string ioctlText(std::uint32_t request, const void* argument) {
    return deviceOf(request).asked(request, argument);
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
        const std::string more = deviceOf(request).got(request, argument);
        text += more.empty() ? "" : std::string(kBehindResult) + more;
    }
    return text;
}

int playIoctl(std::string_view answer, std::uint32_t request, void* argument) {
    const std::size_t end = std::min(answer.find(kBehindResult), answer.size());
    const std::int64_t result = playResult(answer.substr(0, end));
    if (result >= 0) {
        answer.remove_prefix(std::min(end + kBehindResult.size(), answer.size()));
        calls::tcWords words(answer);
        deviceOf(request).play(words, request, argument);
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
        calls::tcWords words(answer);
        for (std::size_t at = 0; at < static_cast<std::size_t>(result); ++at) {
            buffer[at] = words.byte();
        }
        words.end();
    }
    return result;
}

} // namespace sim

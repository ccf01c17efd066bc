// Ioctls of which nothing but their number is known: it says how long the argument is, and which
// way it goes.

#include <algorithm>
#include <cstring>
#include <span>
#include <sys/ioctl.h>
#include <vector>

#include "sim/recordings/device_calls.h"

namespace sim::calls {

namespace {

std::string argumentText(std::uint32_t request, const void* argument) {
    return bytesText({static_cast<const std::uint8_t*>(argument), _IOC_SIZE(request)});
}

bool has(std::uint32_t /*request*/) {
    return true;
}

std::string asked(std::uint32_t request, const void* argument) {
    const bool handedOver = (_IOC_DIR(request) & _IOC_WRITE) != 0;
    return hex(request) + (handedOver ? " " + argumentText(request, argument) : "");
}

std::string got(std::uint32_t request, const void* argument) {
    const bool gotBack = (_IOC_DIR(request) & _IOC_READ) != 0;
    return gotBack ? argumentText(request, argument) : "";
}

void play(tcWords& words, std::uint32_t request, void* argument) {
    if ((_IOC_DIR(request) & _IOC_READ) != 0) {
        std::vector<std::uint8_t> bytes(_IOC_SIZE(request));
        std::generate(bytes.begin(), bytes.end(), [&] { return words.byte(); });
        std::memcpy(argument, bytes.data(), bytes.size());
    }
}

} // namespace

constinit const tsDeviceCalls kUnknownCalls{has, asked, got, play};

} // namespace sim::calls

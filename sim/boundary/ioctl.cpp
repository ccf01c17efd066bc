// `ioctl` as programs call it: which part of the head answers. Everything that is not the head's
// goes on to the C library.

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>

#include "sim/base/calls.h"
#include "sim/base/export.h"
#include "sim/base/real_calls.h"
#include "sim/boundary/boundary.h"
#include "sim/boundary/descriptors.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/taped.h"
#include "sim/boundary/user_memory.h"
#include "sim/chips/i2c_bus.h"

namespace sim {

namespace {

int i2cIoctl(tcModel& head, tsOpenFile& file, std::uint32_t request, void* argument, int refusal) {
    const int result = i2cBus::ioctl(head.adc, file.i2cAddress, request, argument, refusal);
    if (result == -EOPNOTSUPP) {
        i2c_smbus_ioctl_data transaction{};
        std::memcpy(&transaction, argument, sizeof transaction);
        unknownCall(head, file.device, "SMBus transaction", transaction.size);
    }
    return result;
}

int gpioIoctl(tcModel& head, tsOpenFile& file, std::uint32_t request, void* argument, int refusal) {
    if (file.isLineRequest) {
        return head.gpio.lineIoctl(file.lines, request, argument, refusal);
    }
    g_descriptors.sweep(head); // a line that was closed in another way is free
    std::optional<tsLineRequest> granted;
    const int result = head.gpio.chipIoctl(request, argument, refusal, granted);
    if (result == 0 && granted) {
        const int descriptor = g_descriptors.openLines(*granted);
        if (descriptor < 0) {
            head.gpio.release(*granted);
            return descriptor;
        }
        static_cast<gpio_v2_line_request*>(argument)->fd = descriptor;
    }
    return result;
}

int modelledIoctl(tcModel& head, tsOpenFile& file, std::uint32_t request, void* argument) {
    const int refusal = head.devices.count(teCall::ioctl, file.device);
    int result = -ENOTTY;
    switch (file.device) {
    case teDevice::spi:
        result = head.spi.ioctl(request, argument, refusal);
        break;
    case teDevice::gpio:
        result = gpioIoctl(head, file, request, argument, refusal);
        break;
    case teDevice::i2c:
        result = i2cIoctl(head, file, request, argument, refusal);
        break;
    default:
        break;
    }
    constexpr std::uint32_t kTerminalRequests = 'T'; // "is this a terminal?" is a fair question
    if (result == -ENOTTY && refusal <= 0 && _IOC_TYPE(request) != kTerminalRequests) {
        unknownCall(head, file.device, "ioctl", request);
    }
    // Where other devices say ENOTTY, the kernel's GPIO chips and lines say EINVAL.
    return result == -ENOTTY && file.device == teDevice::gpio ? -EINVAL : result;
}

int headIoctl(tcModel& head, tsOpenFile& file, int descriptor, std::uint32_t request,
              void* argument) {
    if (const int fault = userMemory::checkIoctl(file, request, argument); fault != 0) {
        return fault;
    }
    if (taped::wanted(head)) {
        return taped::ioctl(head, file, descriptor, request, argument,
                            [&] { return modelledIoctl(head, file, request, argument); });
    }
    return modelledIoctl(head, file, request, argument);
}

// In real time a message keeps its caller busy, outside the lock.
void spendWireTime(std::uint64_t durationNs) {
    const std::uint64_t end = real::monotonicNs() + durationNs;
    while (durationNs != 0 && real::monotonicNs() < end) {
    }
}

int anyIoctl(int descriptor, unsigned long request, void* argument) {
    if (!outside()) {
        std::uint64_t wireNs = 0;
        int result = 0;
        bool ours = false;
        {
            const tcHeadAccess head;
            tsOpenFile* file = head ? g_descriptors.find(descriptor) : nullptr;
            if (file != nullptr) {
                ours = true;
                head->timePassed();
                result = headIoctl(*head, *file, descriptor, static_cast<std::uint32_t>(request),
                                   argument);
                if (file->device == teDevice::spi && head->options().wireTime) {
                    wireNs = head->spi.lastWireNs();
                }
            }
        }
        if (ours) {
            spendWireTime(wireNs);
            return finish(result);
        }
    }
    return real::ioctl(descriptor, request, argument);
}

} // namespace

} // namespace sim

extern "C" {

SIM_API int ioctl(int descriptor, unsigned long request, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return sim::anyIoctl(descriptor, request, argument);
}

#if !defined(__LP64__)
// What programs with 64-bit time on 32-bit targets call.
SIM_API int __ioctl_time64(int descriptor, unsigned long request, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return sim::anyIoctl(descriptor, request, argument);
}
#endif

} // extern "C"

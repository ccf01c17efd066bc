// `read` and `write` as programs call them. Everything that is not the head's goes on to the C
// library.

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <span>
#include <unistd.h>

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

constexpr std::size_t kSpidevBuffer = 4096; // bytes

// Bytes of the program's that a device looks at. spidev refuses more than its buffer holds, i2c-dev
// takes no more than this of it, other devices refuse `read` and `write`.
std::size_t looksAt(const tsOpenFile& file, std::size_t size) {
    constexpr std::size_t i2cDevMost = 8192;
    switch (file.device) {
    case teDevice::spi:
        return size > kSpidevBuffer ? 0 : size;
    case teDevice::i2c:
        return std::min(size, i2cDevMost);
    default:
        return 0;
    }
}

ssize_t modelledRead(tcModel& head, const tsOpenFile& file, std::span<std::uint8_t> buffer) {
    const int refusal = head.devices.count(teCall::read, file.device);
    if (file.device == teDevice::i2c) {
        return i2cBus::read(head.adc, file.i2cAddress, buffer, refusal);
    }
    if (file.device == teDevice::spi) {
        return head.spi.read(buffer, refusal);
    }
    if (refusal == 0) {
        unknownCall(head, file.device, "read of bytes", static_cast<std::uint32_t>(buffer.size()));
    }
    return refusal != 0 ? -refusal : -EINVAL;
}

ssize_t modelledWrite(tcModel& head, const tsOpenFile& file, std::span<const std::uint8_t> bytes) {
    const int refusal = head.devices.count(teCall::write, file.device);
    if (file.device == teDevice::i2c) {
        return i2cBus::write(head.adc, file.i2cAddress, bytes, refusal);
    }
    if (file.device == teDevice::spi) {
        return head.spi.write(bytes, refusal);
    }
    if (refusal == 0) {
        unknownCall(head, file.device, "write of bytes", static_cast<std::uint32_t>(bytes.size()));
    }
    return refusal != 0 ? -refusal : -EINVAL;
}

ssize_t answeredRead(tcModel& head, const tsOpenFile& file, int descriptor,
                     std::span<std::uint8_t> buffer) {
    if (taped::wanted(head)) {
        return taped::read(head, file, descriptor, buffer,
                           [&] { return modelledRead(head, file, buffer); });
    }
    return modelledRead(head, file, buffer);
}

// spidev reads all of it from the wire and fills what there is of the program's buffer.
ssize_t readInPart(tcModel& head, const tsOpenFile& file, int descriptor,
                   std::span<std::uint8_t> buffer, std::size_t room) {
    std::array<std::uint8_t, kSpidevBuffer> whole{};
    const ssize_t result =
        answeredRead(head, file, descriptor, std::span(whole).first(buffer.size()));
    if (result <= 0) {
        return result;
    }
    const std::size_t given = std::min(static_cast<std::size_t>(result), room);
    std::copy_n(whole.begin(), given, buffer.begin());
    return given == 0 ? -EFAULT : static_cast<ssize_t>(given);
}

ssize_t headRead(tcModel& head, const tsOpenFile& file, int descriptor,
                 std::span<std::uint8_t> buffer) {
    if ((file.flags & O_ACCMODE) == O_WRONLY) {
        return -EBADF;
    }
    const std::size_t wanted = looksAt(file, buffer.size());
    const std::size_t room = userMemory::writablePart(buffer.data(), wanted);
    if (room == wanted) {
        return answeredRead(head, file, descriptor, buffer);
    }
    return file.device == teDevice::spi ? readInPart(head, file, descriptor, buffer, room)
                                        : -EFAULT;
}

ssize_t headWrite(tcModel& head, const tsOpenFile& file, int descriptor,
                  std::span<const std::uint8_t> bytes) {
    if ((file.flags & O_ACCMODE) == O_RDONLY) {
        return -EBADF;
    }
    if (!userMemory::readable(bytes.data(), looksAt(file, bytes.size()))) {
        return -EFAULT;
    }
    if (taped::wanted(head)) {
        return taped::write(head, file, descriptor, bytes,
                            [&] { return modelledWrite(head, file, bytes); });
    }
    return modelledWrite(head, file, bytes);
}

} // namespace

} // namespace sim

extern "C" {

SIM_API ssize_t read(int descriptor, void* buffer, std::size_t count) {
    if (!sim::outside()) {
        const sim::tcHeadAccess head;
        sim::tsOpenFile* file = head ? sim::g_descriptors.find(descriptor) : nullptr;
        if (file != nullptr) {
            head->timePassed();
            return sim::finish(sim::headRead(*head, *file, descriptor,
                                             {static_cast<std::uint8_t*>(buffer), count}));
        }
    }
    return sim::real::read(descriptor, buffer, count);
}

SIM_API ssize_t write(int descriptor, const void* buffer, std::size_t count) {
    if (!sim::outside()) {
        const sim::tcHeadAccess head;
        sim::tsOpenFile* file = head ? sim::g_descriptors.find(descriptor) : nullptr;
        if (file != nullptr) {
            head->timePassed();
            return sim::finish(sim::headWrite(*head, *file, descriptor,
                                              {static_cast<const std::uint8_t*>(buffer), count}));
        }
    }
    return sim::real::write(descriptor, buffer, count);
}

} // extern "C"

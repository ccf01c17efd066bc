// The C library's file functions, as far as the head's devices need them. Everything that is not
// the head's goes on to the C library.

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <type_traits>
#include <unistd.h>

#include "fpga/registers.h"
#include "sim/base/calls.h"
#include "sim/base/export.h"
#include "sim/base/real_calls.h"
#include "sim/base/rules.h"
#include "sim/base/text.h"
#include "sim/boundary/boundary.h"
#include "sim/boundary/descriptors.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/mappings.h"
#include "sim/boundary/mmio.h"
#include "sim/boundary/taped.h"
#include "sim/chips/smbus.h"

namespace sim {

bool outside() {
    return !headPresent() || g_headLock.mine();
}

namespace {

constexpr std::array<std::string_view, 4> kFamilies{"/dev/spidev", "/dev/gpiochip", "/dev/i2c-",
                                                    "/dev/mem"};

bool isHeadPath(const char* path) {
    if (path == nullptr || std::strncmp(path, "/dev/", 5) != 0) {
        return false;
    }
    for (const std::string_view family : kFamilies) {
        if (std::strncmp(path, family.data(), family.size()) == 0) {
            return true;
        }
    }
    return false;
}

// A result of the model, 0 and more or -errno, as the C library returns it.
template<class Result>
Result finish(Result result) {
    if (result < 0) {
        errno = static_cast<int>(-result);
        return -1;
    }
    return result;
}

int openModelled(tcModel& head, const char* path, int flags) {
    const std::optional<teDevice> device = head.devices.deviceAt(path);
    int result = -ENOENT;
    if (device) {
        const int refusal = head.devices.count(teCall::open, *device);
        const int error = refusal != 0 ? refusal : head.devices.openError(*device);
        g_descriptors.sweep(head);
        result = error != 0 ? -error : g_descriptors.open(*device, flags);
    }
    head.journal.event(teLine::open, 0, 0, result < 0 ? -result : 0, path);
    return result;
}

int openDevice(const char* path, int flags) {
    const tcHeadAccess head;
    if (!head) {
        return -ENOENT;
    }
    if (taped::wanted(*head)) {
        return taped::open(*head, path, flags, [&] { return openModelled(*head, path, flags); });
    }
    return openModelled(*head, path, flags);
}

int anyOpen(const char* path, int flags, mode_t mode) {
    if (isHeadPath(path) && headPresent()) {
        return finish(openDevice(path, flags));
    }
    return real::open(path, flags, mode);
}

int anyOpenat(int folder, const char* path, int flags, mode_t mode) {
    if (isHeadPath(path) && headPresent()) {
        return finish(openDevice(path, flags));
    }
    return real::openat(folder, path, flags, mode);
}

void unknownCall(tcModel& head, teDevice device, const char* what, std::uint32_t number) {
    tcText text;
    text.add(what).add(" ").hex(number).add(" on ").add(head.devices.pathOf(device));
    head.journal.violation(teRule::deviceCall, text.view());
}

int i2cMessages(tcModel& head, void* argument, int refusal) {
    const auto& list = *static_cast<i2c_rdwr_ioctl_data*>(argument);
    if (list.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return -EINVAL;
    }
    std::uint32_t done = 0;
    for (; done < list.nmsgs; ++done) {
        const i2c_msg& message = list.msgs[done];
        // Where the call is to end short, it is the last message that is missing.
        const int error = refusal == kShort && done + 1 < list.nmsgs ? 0 : refusal;
        const int result = (message.flags & I2C_M_RD) != 0
                               ? head.adc.read(message.addr, {message.buf, message.len}, error)
                               : head.adc.write(message.addr, {message.buf, message.len}, error);
        if (result < 0) {
            head.adc.stop();
            return result;
        }
        if (result == -kShort) {
            break;
        }
    }
    head.adc.stop();
    return static_cast<int>(done);
}

int smbusTransfer(tcModel& head, const tsOpenFile& file, const void* argument, int refusal) {
    i2c_smbus_ioctl_data transaction{};
    std::memcpy(&transaction, argument, sizeof transaction);
    const int result = smbus::transfer(head.adc, file.i2cAddress, transaction, refusal);
    if (result == -EOPNOTSUPP) {
        unknownCall(head, file.device, "SMBus transaction", transaction.size);
    }
    return result;
}

int i2cIoctl(tcModel& head, tsOpenFile& file, std::uint32_t request, void* argument, int refusal) {
    constexpr std::uintptr_t kLastAddress = 0x7F;
    switch (request) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE:
        if (refusal > 0) {
            return -refusal;
        }
        if (numberOf(argument) > kLastAddress) {
            return -EINVAL;
        }
        file.i2cAddress = static_cast<std::uint16_t>(numberOf(argument));
        return 0;
    case I2C_FUNCS:
        if (refusal <= 0) {
            const unsigned long functions = smbus::functions();
            std::memcpy(argument, &functions, sizeof functions);
        }
        return refusal > 0 ? -refusal : 0;
    case I2C_RDWR:
        return i2cMessages(head, argument, refusal);
    case I2C_SMBUS:
        return smbusTransfer(head, file, argument, refusal);
    default:
        return -ENOTTY;
    }
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
    return result;
}

int headIoctl(tcModel& head, tsOpenFile& file, int descriptor, std::uint32_t request,
              void* argument) {
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

// What `read` and `write` give for a transfer's result.
ssize_t i2cLength(int result, std::size_t count) {
    return result < 0 ? result : static_cast<ssize_t>(result == -kShort ? count / 2 : count);
}

ssize_t modelledRead(tcModel& head, const tsOpenFile& file, std::span<std::uint8_t> buffer) {
    const int refusal = head.devices.count(teCall::read, file.device);
    if (file.device == teDevice::i2c) {
        const int result = head.adc.read(file.i2cAddress, buffer, refusal);
        head.adc.stop();
        return i2cLength(result, buffer.size());
    }
    if (refusal == 0) {
        unknownCall(head, file.device, "read of bytes", static_cast<std::uint32_t>(buffer.size()));
    }
    return refusal != 0 ? -refusal : -EINVAL;
}

ssize_t modelledWrite(tcModel& head, const tsOpenFile& file, std::span<const std::uint8_t> bytes) {
    const int refusal = head.devices.count(teCall::write, file.device);
    if (file.device == teDevice::i2c) {
        const int result = head.adc.write(file.i2cAddress, bytes, refusal);
        head.adc.stop();
        return i2cLength(result, bytes.size());
    }
    if (file.device == teDevice::spi) {
        return head.spi.write(bytes, refusal);
    }
    if (refusal == 0) {
        unknownCall(head, file.device, "write of bytes", static_cast<std::uint32_t>(bytes.size()));
    }
    return refusal != 0 ? -refusal : -EINVAL;
}

ssize_t headRead(tcModel& head, const tsOpenFile& file, int descriptor,
                 std::span<std::uint8_t> buffer) {
    if (taped::wanted(head)) {
        return taped::read(head, file, descriptor, buffer,
                           [&] { return modelledRead(head, file, buffer); });
    }
    return modelledRead(head, file, buffer);
}

ssize_t headWrite(tcModel& head, const tsOpenFile& file, int descriptor,
                  std::span<const std::uint8_t> bytes) {
    if (taped::wanted(head)) {
        return taped::write(head, file, descriptor, bytes,
                            [&] { return modelledWrite(head, file, bytes); });
    }
    return modelledWrite(head, file, bytes);
}

// The target has 32 address bits.
constexpr std::uint64_t kAddressEnd = std::uint64_t{1} << 32;

int mappingError(tcModel& head, const tsOpenFile& file, const taped::tsMapping& mapping) {
    const auto page = static_cast<std::uint32_t>(::getpagesize());
    if (mapping.length == 0 || mapping.physicalAddress % page != 0) {
        return EINVAL;
    }
    if ((mapping.protection & PROT_WRITE) != 0 && (file.flags & O_ACCMODE) == O_RDONLY) {
        return EACCES;
    }
    const std::uint32_t offset = mapping.physicalAddress - fpgaAddresses::kRegion;
    if (offset >= fpgaAddresses::kRegionLength ||
        mapping.length > fpgaAddresses::kRegionLength - offset) {
        tcText text;
        text.add("a mapping of ").decimal(mapping.length).add(" bytes at ");
        text.hex(mapping.physicalAddress, 8);
        head.journal.violation(teRule::memoryRange, text.view());
        const bool wraps = mapping.length > kAddressEnd - mapping.physicalAddress;
        return wraps ? EINVAL : EPERM;
    }
    if ((file.flags & O_SYNC) != O_SYNC || (mapping.flags & MAP_SHARED) == 0) {
        tcText text;
        text.add("registers at ").hex(mapping.physicalAddress, 8);
        head.journal.violation(teRule::memoryCached,
                               text.add(" were mapped cached or private").view());
    }
    return head.devices.mapError(mapping.physicalAddress);
}

int modelledMap(tcModel& head, const tsOpenFile& file, const taped::tsMapping& mapping) {
    const int refusal = head.devices.count(teCall::mmap, file.device);
    if (file.device != teDevice::memory) {
        unknownCall(head, file.device, "mmap of bytes", static_cast<std::uint32_t>(mapping.length));
        return -ENODEV;
    }
    return refusal != 0 ? -refusal : -mappingError(head, file, mapping);
}

// What is no address of the target is refused as there: the C library refuses a negative offset of
// 64 bits, the kernel one above 4 GiB, both with EINVAL.
std::optional<std::uint32_t> physicalFrom(tcModel& head, const tsOpenFile& file, std::size_t length,
                                          std::int64_t offset) {
    const auto address = static_cast<std::uint64_t>(offset);
    if (file.device != teDevice::memory || address < kAddressEnd) {
        return static_cast<std::uint32_t>(address & (kAddressEnd - 1));
    }
    head.devices.count(teCall::mmap, file.device);
    tcText text;
    text.add("a mapping of ").decimal(length).add(" bytes at offset ").hex(address, 16);
    head.journal.violation(teRule::memoryRange, text.add(", which is no address").view());
    return std::nullopt;
}

// Registers are seen one by one whoever answers: the program's own pages are inaccessible.
int mapPages(const taped::tsMapping& mapping, void*& pages) {
    const auto page = static_cast<std::size_t>(::getpagesize());
    installTrap();
    pages = g_mappings.map(mapping.physicalAddress, (mapping.length + page - 1) / page * page);
    return pages == nullptr ? errno : 0;
}

void* headMap(tcModel& head, const tsOpenFile& file, int descriptor,
              const taped::tsMapping& mapping) {
    const auto answer = [&] { return modelledMap(head, file, mapping); };
    int error =
        -(taped::wanted(head) ? taped::map(head, file, descriptor, mapping, answer) : answer());
    void* pages = nullptr;
    if (error == 0) {
        error = mapPages(mapping, pages);
    }
    if (file.device == teDevice::memory) {
        head.journal.event(teLine::map, mapping.physicalAddress, mapping.length, error,
                           head.devices.pathOf(file.device));
    }
    if (error != 0) {
        errno = error;
        return MAP_FAILED;
    }
    return pages;
}

void* anyMmap(void* address, std::size_t length, int protection, int flags, int descriptor,
              std::int64_t offset) {
    if (descriptor >= 0 && (flags & MAP_ANONYMOUS) == 0 && !outside()) {
        const tcHeadAccess head;
        tsOpenFile* file = head ? g_descriptors.find(descriptor) : nullptr;
        if (file != nullptr) {
            const std::optional<std::uint32_t> physicalAddress =
                physicalFrom(*head, *file, length, offset);
            if (!physicalAddress) {
                errno = EINVAL;
                return MAP_FAILED;
            }
            return headMap(*head, *file, descriptor, {*physicalAddress, length, protection, flags});
        }
    }
    return real::mmap(address, length, protection, flags, descriptor, offset);
}

int headUnmap(tcModel& head, std::uint32_t physicalAddress, std::size_t length) {
    const auto answer = [&] {
        const int refusal = head.devices.count(teCall::munmap, teDevice::memory);
        head.journal.event(teLine::unmap, physicalAddress, length, refusal,
                           head.devices.pathOf(teDevice::memory));
        return -refusal;
    };
    return taped::wanted(head) ? taped::unmap(head, physicalAddress, length, answer) : answer();
}

int anyMunmap(void* address, std::size_t length) {
    if (!outside()) {
        const tcHeadAccess head;
        const auto page = static_cast<std::uintptr_t>(::getpagesize());
        const std::uintptr_t start = numberOf(address);
        const std::size_t whole = (length + page - 1) / page * page;
        std::uint32_t physical = 0;
        if (head && !g_mappings.empty() && start % page == 0 && length != 0) {
            if (const std::optional<std::uint32_t> first = g_mappings.physical(start)) {
                if (const int result = headUnmap(*head, *first, length); result != 0) {
                    return finish(result);
                }
            }
            g_mappings.unmap(start, whole, physical);
        }
    }
    return real::munmap(address, length);
}

int closeModelled(tcModel& head, const tsOpenFile& file, int descriptor) {
    const int refusal = head.devices.count(teCall::close, file.device);
    const bool wasLine = file.isLineRequest;
    const teDevice device = file.device;
    real::close(descriptor); // gone in any case, as in Linux
    if (!wasLine) {
        head.journal.event(teLine::close, 0, 0, refusal, head.devices.pathOf(device));
    }
    g_descriptors.sweep(head);
    return -refusal;
}

int closeDevice(int descriptor, bool& ours) {
    const tcHeadAccess head;
    tsOpenFile* file = head ? g_descriptors.find(descriptor) : nullptr;
    if (file == nullptr) {
        return 0;
    }
    ours = true;
    const auto answer = [&] { return closeModelled(*head, *file, descriptor); };
    return taped::wanted(*head) ? taped::close(*head, *file, descriptor, answer) : answer();
}

mode_t modeFrom(int flags, std::va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

} // namespace

} // namespace sim

extern "C" {

SIM_API int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::modeFrom(flags, arguments);
    va_end(arguments);
    return sim::anyOpen(path, flags, mode);
}

SIM_API int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::modeFrom(flags, arguments);
    va_end(arguments);
    return sim::anyOpen(path, flags, mode);
}

SIM_API int openat(int folder, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::modeFrom(flags, arguments);
    va_end(arguments);
    return sim::anyOpenat(folder, path, flags, mode);
}

SIM_API int openat64(int folder, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = sim::modeFrom(flags, arguments);
    va_end(arguments);
    return sim::anyOpenat(folder, path, flags, mode);
}

// What fortified programs call where the flags are not constant.
SIM_API int __open_2(const char* path, int flags) {
    return sim::anyOpen(path, flags, 0);
}
SIM_API int __open64_2(const char* path, int flags) {
    return sim::anyOpen(path, flags, 0);
}
SIM_API int __openat_2(int folder, const char* path, int flags) {
    return sim::anyOpenat(folder, path, flags, 0);
}
SIM_API int __openat64_2(int folder, const char* path, int flags) {
    return sim::anyOpenat(folder, path, flags, 0);
}

SIM_API int close(int descriptor) {
    if (!sim::outside()) {
        bool ours = false;
        const int result = sim::closeDevice(descriptor, ours);
        if (ours) {
            return sim::finish(result);
        }
    }
    return sim::real::close(descriptor);
}

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

// Where `off_t` has 32 bits, those of a negative offset are an address above 2 GiB: the C library
// hands them on without their sign, for every file.
SIM_API void* mmap(void* address, std::size_t length, int protection, int flags, int descriptor,
                   off_t offset) noexcept {
    const auto unsignedOffset = static_cast<std::make_unsigned_t<off_t>>(offset);
    return sim::anyMmap(address, length, protection, flags, descriptor,
                        static_cast<std::int64_t>(unsignedOffset));
}

SIM_API void* mmap64(void* address, std::size_t length, int protection, int flags, int descriptor,
                     off64_t offset) noexcept {
    return sim::anyMmap(address, length, protection, flags, descriptor, offset);
}

SIM_API int munmap(void* address, std::size_t length) noexcept {
    return sim::anyMunmap(address, length);
}

} // extern "C"

// `mmap` and `munmap` as programs call them. Everything that is not the head's goes on to the C
// library.

#include <cerrno>
#include <fcntl.h>
#include <optional>
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

namespace sim {

namespace {

// The target has 32 address bits.
constexpr std::uint64_t kAddressEnd = std::uint64_t{1} << 32;

int mappingError(tcModel& head, const tsOpenFile& file, const taped::tsMapping& mapping) {
    const auto page = static_cast<std::uint32_t>(::getpagesize());
    if (mapping.length == 0 || mapping.physicalAddress % page != 0 ||
        (mapping.flags & MAP_TYPE) == 0) { // neither shared nor private
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

} // namespace

} // namespace sim

extern "C" {

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

#include <varnox/mapped_registers.h>

#include <cerrno>
#include <type_traits>

#include <sys/mman.h>
#include <sys/types.h>

#include "core_text.h"
#include "platform/support/error_reports.h"
#include "platform/support/file_descriptor.h"

namespace {

constexpr const char* kDevice = "/dev/mem";

/// Physical addresses as `mmap` takes them. Where `off_t` has 32 bits, the upper half of the
/// address space becomes negative; the kernel gets the same bits back.
constexpr off_t fileOffset(std::uint32_t physical) {
    return static_cast<off_t>(physical);
}

/// Maps `bytes` from the page `base` on.
/// \return null after reporting why not
void* mapPages(std::uint32_t base, std::size_t bytes) {
    platform::tcErrorReports reports("tcMappedRegisters");
    const std::string block = " for " + hexText(base);
    const auto memory = platform::tcFileDescriptor::open(kDevice, O_RDWR | O_SYNC);
    if (!memory.isOpen()) {
        const int error = errno;
        reports.report(kDevice, "open" + block, error);
        return nullptr;
    }
    void* const mapping =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), fileOffset(base));
    if (mapping == MAP_FAILED) {
        const int error = errno;
        reports.report(kDevice, "mmap" + block, error);
        return nullptr;
    }
    return mapping;
}

} // namespace

tcMappedRegisters::tcMappedRegisters(std::uint32_t base, std::uint32_t words) {
    const auto page = static_cast<std::uint32_t>(::sysconf(_SC_PAGESIZE));
    const std::uint32_t offset = base % page; // of the first register in its page
    const std::size_t needed = std::size_t{offset} + std::size_t{words} * sizeof(std::uint32_t);
    m_mappedBytes = (needed + page - 1) / page * page;
    m_mapping = mapPages(base - offset, m_mappedBytes);
    if (m_mapping != nullptr)
        m_registers =
            static_cast<volatile std::uint32_t*>(m_mapping) + offset / sizeof(std::uint32_t);
}

tcMappedRegisters::~tcMappedRegisters() {
    if (m_mapping != nullptr)
        ::munmap(m_mapping, m_mappedBytes);
}

#include "fpga/mapped_block.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

tsMappedBlock::tsMappedBlock(std::uint32_t physicalBase, std::uint32_t length)
    : m_physicalBase(physicalBase), m_length(length) {
    map();
}

tsMappedBlock::~tsMappedBlock() {
    if (m_registers != nullptr) {
        auto* const first = reinterpret_cast<volatile std::byte*>(m_registers);
        munmap(const_cast<std::byte*>(first - m_pageOffset), m_length);
    }
}

void tsMappedBlock::map() {
    const auto pageSize = static_cast<std::uint32_t>(getpagesize());
    const std::uint32_t insidePage = pageSize - 1;

    const int descriptor = open("/dev/mem", O_RDWR | O_SYNC);
    if (descriptor < 0) {
        std::perror("/dev/mem");
        m_ok = false;
        return;
    }

    if ((m_physicalBase & insidePage) != 0) {
        const std::uint32_t given = m_physicalBase;
        m_physicalBase = (given - pageSize) & ~insidePage;
        // Bytes added to words, as the size of the window always was.
        m_length += pageSize;
        m_pageOffset = given - m_physicalBase;
    }
    // Whole pages, counted in words: the identification registers at words 128 and up of a
    // 64-word block are reached only because of this.
    if ((m_length & insidePage) != 0) {
        m_length = (m_length + pageSize) & ~insidePage;
    }

    // With a 32-bit off_t the upper half of the address space is negative; the kernel takes it as
    // the address it is.
    void* const mapping =
        mmap(nullptr, std::size_t{m_length} * sizeof(std::uint32_t), PROT_READ | PROT_WRITE,
             MAP_SHARED, descriptor, static_cast<off_t>(m_physicalBase));
    const int error = errno; // closing may change it
    close(descriptor);
    if (mapping == MAP_FAILED) {
        errno = error;
        std::perror("mmap");
        m_ok = false;
        return;
    }
    auto* const start = static_cast<std::byte*>(mapping);
    m_registers = reinterpret_cast<volatile std::uint32_t*>(start + m_pageOffset);
}

void tsMappedBlock::modify(const tsRegisterField& field, std::uint32_t value) {
    const std::uint32_t old = read(field.address);
    write(field.address, (old & ~field.placed(field.mask)) | field.placed(value));
}

/// \file
/// A block of FPGA registers in this process's address space.
#pragma once

#include <cstddef>
#include <cstdint>

#include <varnox/export.h>

/// Maps a block of physical memory through "/dev/mem" for as long as it lives.
class VARNOX_API tcMappedRegisters {
public:
    /// Failure is reported on standard error; `mapped` then tells.
    /// \param base  physical address
    /// \param words length in 32-bit words; whole pages are mapped
    tcMappedRegisters(std::uint32_t base, std::uint32_t words);
    tcMappedRegisters(const tcMappedRegisters&) = delete;
    tcMappedRegisters& operator=(const tcMappedRegisters&) = delete;
    ~tcMappedRegisters();

    /// \return whether the block can be read and written
    [[nodiscard]] bool mapped() const { return m_registers != nullptr; }

    /// One single 32-bit load. The block must be mapped.
    [[nodiscard]] std::uint32_t read(std::uint32_t word) const { return m_registers[word]; }
    /// One single 32-bit store. The block must be mapped.
    void write(std::uint32_t word, std::uint32_t value) { m_registers[word] = value; }

private:
    void* m_mapping = nullptr;
    std::size_t m_mappedBytes = 0;
    volatile std::uint32_t* m_registers = nullptr;
};

/// \file
/// A register block of the FPGA, mapped through "/dev/mem".
#pragma once

#include <cstdint>

#include "common/register_field.h"

/// One block of 32-bit registers at a physical address. Mapping failures are reported with
/// `perror` and kept in a flag. No access checks it: touching a block that is not mapped is fatal.
/// Takes no lock.
struct tsMappedBlock {
    /// Maps the block.
    /// \param physicalBase address of the first register
    /// \param length       32-bit words
    tsMappedBlock(std::uint32_t physicalBase, std::uint32_t length);

    /// Unmaps as many bytes as the block has words, not four times as many: the rest of the
    /// window stays mapped until the process ends. Meant; the count of mappings that a host sees
    /// depends on it.
    ~tsMappedBlock();

    tsMappedBlock(const tsMappedBlock&) = delete;
    tsMappedBlock& operator=(const tsMappedBlock&) = delete;

    /// \return false when opening or mapping failed
    [[nodiscard]] bool ok() const { return m_ok; }

    /// One single 32-bit load.
    [[nodiscard]] std::uint32_t read(std::uint32_t word) const { return *at(word); }

    /// One single 32-bit store.
    void write(std::uint32_t word, std::uint32_t value) { *at(word) = value; }

    /// One load of the field's register. \return the field, shifted down
    [[nodiscard]] std::uint32_t read(const tsRegisterField& field) const {
        return field.of(read(field.address));
    }

    /// One load and one store: only the field changes.
    void modify(const tsRegisterField& field, std::uint32_t value);

private:
    void map();

    // In integers: only touching a block that is not mapped is fatal, not naming a place in it.
    [[nodiscard]] volatile std::uint32_t* at(std::uint32_t word) const {
        const auto first = reinterpret_cast<std::uintptr_t>(m_registers);
        // NOLINTNEXTLINE(performance-no-int-to-ptr): there is nothing to optimize about a register
        return reinterpret_cast<volatile std::uint32_t*>(first + word * sizeof(std::uint32_t));
    }

    volatile std::uint32_t* m_registers = nullptr; // first register of the block
    std::uint32_t m_physicalBase;                  // after alignment: of the page mapped first
    std::uint32_t m_length;                        // words, rounded up
    bool m_ok = true;
    std::uint32_t m_pageOffset = 0; // bytes from the start of the mapping to the first register
};

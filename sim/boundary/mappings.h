/// \file
/// Which pages of the process are registers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace sim {

/// Inaccessible pages that stand for FPGA registers. Whoever uses it holds `g_headLock`; looking up
/// is possible in a signal handler.
class tcMappings {
public:
    /// \return the pages' address, or null with errno set
    void* map(std::uint32_t physicalAddress, std::size_t length);
    /// Forgets the part of the mappings that lies in a range.
    /// \param first physical address of the first page of a mapping in the range
    /// \return whether there was any
    bool unmap(std::uintptr_t start, std::size_t length, std::uint32_t& first);
    [[nodiscard]] std::optional<std::uint32_t> physical(std::uintptr_t address) const;
    /// The head goes. The pages stay inaccessible.
    void forgetAll() { m_used = 0; }
    [[nodiscard]] bool empty() const { return m_used == 0; }

private:
    struct tsRange {
        std::uintptr_t start;
        std::size_t length;
        std::uint32_t physicalAddress;
    };
    bool add(const tsRange& range);

    static constexpr std::size_t kRanges = 4096;
    std::array<tsRange, kRanges> m_ranges{};
    std::size_t m_used = 0;
};

extern tcMappings g_mappings;

} // namespace sim

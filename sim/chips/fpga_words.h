/// \file
/// Which registers the FPGA has, what software may do with each, and what they hold.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "common/register_field.h"
#include "fpga/registers.h"

namespace sim {

/// Settings of an FPGA image.
struct tsFpgaFacts {
    std::array<std::uint32_t, 2> systemId{};
};

/// What software may do with a word of the region.
enum class teAccess : std::uint8_t { none, readWrite, readOnly, writeOnly, clearOnWrite };

/// \return physical address of a word of a block
constexpr std::uint32_t addressOf(std::uint32_t block, std::uint32_t word) {
    return block + 4 * word;
}

/// \return the bits of a field in their place
constexpr std::uint32_t bitsOf(const tsRegisterField& field) {
    return field.placed(field.mask);
}

/// The words of the region, by physical address. They hold at first what they hold after power-up.
/// Takes no lock; all operations but the constructor are possible in a signal handler.
class tcFpgaWords {
public:
    explicit tcFpgaWords(const tsFpgaFacts& facts);

    /// A word, and what may be done with it.
    struct tsWord {
        teAccess access = teAccess::none;
        std::uint32_t mask = 0; ///< bits that exist
    };
    /// \return index of the word in the region; empty for an address outside it, or unaligned
    static std::optional<std::size_t> indexOf(std::uint32_t address);
    /// \return no access for an address where there is no register
    [[nodiscard]] tsWord rulesOf(std::uint32_t address) const;
    /// \param address of a word of the region
    [[nodiscard]] std::uint32_t& at(std::uint32_t address);
    [[nodiscard]] std::uint32_t at(std::uint32_t address) const;
    /// \return words that follow each other
    [[nodiscard]] std::span<const std::uint32_t> span(std::uint32_t address,
                                                      std::size_t count) const {
        return std::span(m_values).subspan((address - fpgaAddresses::kRegion) / 4, count);
    }
    [[nodiscard]] std::uint32_t word(std::uint32_t block, std::uint32_t word) const {
        return at(addressOf(block, word));
    }

private:
    static constexpr std::size_t kWords = fpgaAddresses::kRegionLength / 4;
    void define(std::uint32_t block, std::uint32_t word, teAccess access, std::uint32_t mask,
                std::uint32_t value);
    void defineCore(std::uint32_t block, std::uint32_t id);
    void defineFrameControl();
    void defineHostCores();
    std::array<tsWord, kWords> m_rules{};
    std::array<std::uint32_t, kWords> m_values{};
};

} // namespace sim

/// \file
/// The table of defective pixels, from its words to the one in force.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include <varnox/core_registers.h>

#include "sim/journal/journal.h"

namespace sim {

/// A table that software fills, and that comes into force when it is taken over. Takes no lock;
/// possible in a signal handler.
class tcBadPixelTable {
public:
    explicit tcBadPixelTable(tcJournal& journal) : m_journal(journal) {}
    /// Software takes the table over. \param words all of the table \param entries that count
    /// \param waitsNs until it comes into force: with frames flowing it waits for the next one
    void takeOver(std::span<const std::uint32_t> words, std::uint32_t entries,
                  std::uint64_t waitsNs);
    /// To be called before the table in force is looked at.
    /// \return number of entries that came into force since the last call; empty: none did
    [[nodiscard]] std::optional<std::uint32_t> newlyInForce();
    /// \return the words in force, as the table had them when it was taken over
    [[nodiscard]] std::span<const std::uint32_t> inForce() const { return m_inForce; }

private:
    void check(std::span<const std::uint32_t> words, std::uint32_t entries);

    using tcTable = std::array<std::uint32_t, badPixelRegisters::kTableEntries>;
    tcJournal& m_journal;
    bool m_pending = false;
    std::uint64_t m_pendingNs = 0; // when it comes into force
    std::uint32_t m_pendingEntries = 0;
    tcTable m_pendingWords{};
    tcTable m_inForce{};
};

} // namespace sim

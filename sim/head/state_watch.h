/// \file
/// What the head does by itself, as events of the log.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sim/chips/fpga.h"
#include "sim/chips/link.h"
#include "sim/chips/supplies.h"
#include "sim/journal/journal.h"

namespace sim {

/// Compares the head's state with that of the last look and logs every difference with the time at
/// which it came about: supplies and locks change while nobody looks. Possible in a signal handler.
/// Takes no lock.
///
///     STATE VDD1.2 1200000 500000     rises to 1.2 V (uV) within 500000 ns
///     STATE LANE3-LOCK 1              a flag
///     STATE DPA-HOLD 4095             one bit a lane
///     STATE PULSES 20000000 277 1 300 period [ns], 0: none; length [ns]; 1: a pulse is low;
///                                     the first pulse since the period changed [ns]
///     STATE FRAMES 20000000 9000 300  from one to the next [ns], 0: none arrive; how long the rows
///                                     come [ns]; the first frame since something changed [ns]
class tcStateWatch {
public:
    explicit tcStateWatch(tcJournal& journal) : m_journal(journal) {}

    void look(const tcSupplies& supplies, tcLink& link, const tcFpga& fpga);

private:
    // What is watched, in the order of the names in the source.
    static constexpr std::size_t kWatched = 2 * kRails + 1 + 1 + kPllFlags + kLinkLanes + 6;
    struct tsValue {
        std::uint64_t first = 0;
        std::uint64_t second = 0;
        std::uint64_t third = 0;
        std::uint64_t fourth = 0;
        friend bool operator==(const tsValue&, const tsValue&) = default;
    };
    struct tsChange {
        std::uint64_t timeNs = 0;
        std::size_t what = 0;
    };

    void watch(std::size_t what, const tsValue& value, std::uint64_t sinceNs);
    void watchFlag(std::size_t what, const tsTimedFlag& flag);
    [[nodiscard]] bool nothingNew(const tcSupplies& supplies, const tcLink& link) const;
    void watchPulses(const tcFpga& fpga);
    void watchSupplies(const tcSupplies& supplies);
    void watchLink(tcLink& link);
    void tell();

    tcJournal& m_journal;
    std::array<tsValue, kWatched> m_values{};
    std::array<tsChange, kWatched> m_changes{};
    std::size_t m_changeCount = 0;
    // Everything was told, and stays so until one of these counts.
    bool m_settled = false;
    std::uint64_t m_suppliesChanges = 0;
    std::uint64_t m_linkChanges = 0;
};

} // namespace sim

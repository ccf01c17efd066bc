/// \file
/// Faults that come and go while the head runs.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/base/fault.h"
#include "sim/chips/conditions.h"
#include "sim/journal/journal.h"
#include "sim/scenario/fault_plan.h"

namespace sim {

/// The faults of a head. Takes no lock. All operations but constructor and `records` are possible
/// in a signal handler.
class tcFaults {
public:
    tcFaults(tcJournal& journal, const tsConditions& healthy,
             const std::vector<tsPlannedFault>& planned);

    /// \return how the head behaves at present
    [[nodiscard]] const tsConditions& now() const { return m_now; }
    /// \return when the next fault begins or ends, as far as that is known [ns]; empty: none does
    [[nodiscard]] std::optional<std::uint64_t> nextNs() const;
    /// Begins and ends what is due at the present time. \return whether anything did
    bool change();
    /// An event of the log, which a fault may wait for.
    void sees(const tsLogEvent& event);
    /// The run is over: what never struck is worth a note, once.
    void tellWhatNeverStruck();
    [[nodiscard]] std::vector<tsFaultRecord> records() const;

    /// Memory for one more fault, taken while the head goes on: adding needs none.
    class tcRoom;
    /// One more fault, from the present time on unless it says when.
    /// \return false when there is no room for it: others came in between
    bool add(tcRoom& room);
    /// A fault that waits or lasts is over at the present time. \return false when there is none of
    /// that name
    bool end(std::string_view name);
    [[nodiscard]] std::size_t count() const { return m_faults.size(); }

private:
    enum class teStage : std::uint8_t { waiting, lasting, over };
    struct tsRunning {
        tsPlannedFault planned;
        teStage stage = teStage::waiting;
        std::optional<std::uint64_t> beginsNs{};
        std::optional<std::uint64_t> endsNs{};
        std::uint64_t events = 0; // of those waited for
    };
    static void fixBegin(tsRunning& fault, std::uint64_t timeNs);
    static void seesForBegin(tsRunning& fault, const tsLogEvent& event);
    static void seesForEnd(tsRunning& fault, const tsLogEvent& event);
    void tell(const tsRunning& fault, const char* what);
    void apply();

    tcJournal& m_journal;
    tsConditions m_healthy;
    tsConditions m_now;
    std::vector<tsRunning> m_faults;
    bool m_over = false;
};

class tcFaults::tcRoom {
public:
    /// \param present number of faults \throws std::bad_alloc
    tcRoom(tsPlannedFault fault, std::size_t present) : m_fault{.planned = std::move(fault)} {
        m_faults.reserve(present + 1);
    }

private:
    friend class tcFaults;
    tsRunning m_fault;
    std::vector<tsRunning> m_faults; // then the ones of before, to be given back
};

} // namespace sim

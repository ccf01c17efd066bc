/// \file
/// What every part of the head writes to: clock, log and checker together.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "sim/base/rules.h"
#include "sim/journal/checker.h"
#include "sim/journal/clock.h"
#include "sim/journal/event_log.h"

namespace sim {

/// Whoever waits for events of the log, or for time to pass.
class tcWitness {
public:
    virtual ~tcWitness() = default;
    /// An event happens. Nothing of the head may be changed from here.
    virtual void sees(const tsLogEvent& event) = 0;
    /// Virtual time passed inside a call of the program.
    virtual void timePassed() = 0;
};

/// Logs events at the present time. All operations but the constructor are possible in a signal
/// handler.
class tcJournal {
public:
    tcJournal(bool realTime, std::size_t logCapacity, bool quiet, bool stateEvents)
        : clock(realTime), log(logCapacity), checker(quiet), m_stateEvents(stateEvents) {}

    void event(teLine line, std::uint32_t address, std::uint64_t value, int error = 0,
               std::string_view payload = {});
    void transfer(std::span<const std::uint8_t> bytes, int error);
    void violation(teRule rule, std::string_view text);
    /// Something that the head did by itself. \param timeNs when it did
    void state(std::uint64_t timeNs, std::string_view text);
    /// Virtual time passes inside a call: on the wire, or on the bus. \param durationNs [ns]
    void spend(std::uint64_t durationNs);
    /// \param witness null: nobody; outlives this object otherwise
    void shownTo(tcWitness* witness) { m_witness = witness; }
    /// \return whether anybody wants to know what the head does by itself
    [[nodiscard]] bool keepsStates() const { return m_stateEvents; }

    tcClock clock;
    tcEventLog log;
    tcChecker checker;

private:
    void keep(const tsLogEvent& event);
    void kept(bool recorded);
    tcWitness* m_witness = nullptr;
    bool m_stateEvents;
    bool m_full = false;
};

} // namespace sim

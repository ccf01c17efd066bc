/// \file
/// What every part of the head writes to: clock, log and checker together.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "sim/checker.h"
#include "sim/clock.h"
#include "sim/event_log.h"

namespace sim {

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
    /// \return whether anybody wants to know what the head does by itself
    [[nodiscard]] bool keepsStates() const { return m_stateEvents; }

    tcClock clock;
    tcEventLog log;
    tcChecker checker;

private:
    void kept(bool recorded);
    bool m_stateEvents;
    bool m_full = false;
};

} // namespace sim

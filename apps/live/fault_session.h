/// \file
/// The faults that somebody made while a program ran, and the scenario that makes them again.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "apps/live/time_line.h"
#include "sim/base/fault.h"

namespace live {

/// A fault of this session.
struct tsMadeFault {
    sim::tsFault fault;
    unsigned process = 0;   ///< that it was made for; 0: for the next one
    std::uint64_t from = 0; ///< number of the first event that can tell of it
};

/// Any thread may call at any time.
class tcFaultSession {
public:
    /// \param scenario content of the scenario file that the run began with; empty: none
    /// \param timeLine tells when faults began and ended; outlives this object
    tcFaultSession(std::string scenario, const tcTimeLine& timeLine)
        : m_scenario(std::move(scenario)), m_timeLine(timeLine) {}

    /// \return a name that no fault of the session has: "fault 1"
    [[nodiscard]] std::string freeName() const;
    /// \return whether a fault of that name was made
    [[nodiscard]] bool has(const std::string& name) const;
    void add(const tsMadeFault& fault);
    [[nodiscard]] std::vector<tsMadeFault> faults() const;
    /// \return a scenario file: the one that the run began with, and the session's faults at the
    ///         times at which they struck. One that ended by hand ends there again.
    [[nodiscard]] std::string scenario() const;

private:
    std::string m_scenario;
    const tcTimeLine& m_timeLine;
    mutable std::mutex m_mutex;
    std::vector<tsMadeFault> m_faults;
};

} // namespace live

/// \file
/// How frame and exposure changed in a run.
#pragma once

#include <cstdint>
#include <set>

#include "sensor/registers.h"
#include "sim/after/report/held_registers.h"
#include "sim/after/report/run.h"
#include "sim/after/trace_reader.h"

namespace sim {

/// Collects frame and exposure after each change. A driver sets the registers of an exposure one
/// after the other; they count together, until one of them comes again or the driver does something
/// else.
class tcExposureReader {
public:
    /// Both outlive the reader.
    tcExposureReader(const tsHeldRegisters& held, tsRun& run) : m_held(held), m_run(run) {}

    /// Any line of the trace, before anybody has taken it: it may be the end of a set.
    void see(const tsTraceLine& line);
    /// A write to the sensor, before the register holds it.
    void takeWrite(std::uint64_t timeNs, std::uint32_t address);
    /// What was written so far is a whole set.
    void settle();

private:
    [[nodiscard]] tsTiming timing() const;
    [[nodiscard]] std::uint32_t field(const tsRegisterField& wanted) const;
    [[nodiscard]] double clockMhz() const;

    const tsHeldRegisters& m_held;
    tsRun& m_run;
    std::set<std::uint32_t> m_set; // registers of frame and exposure written since the last row
    std::uint64_t m_timingNs = 0;  // the last write to the sensor
};

} // namespace sim

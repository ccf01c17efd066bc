/// \file
/// The voltages of the supplies.
#pragma once

#include <cstddef>
#include <map>

#include "sim/after/trace_reader.h"
#include "sim/after/waveform/dump_writer.h"

namespace sim {

/// Draws supplies that rise and fall.
class tcSupplyWires {
public:
    /// \param dump outlives the object
    explicit tcSupplyWires(tcDumpWriter& dump) : m_dump(dump) {}

    /// \param line "STATE VDD1.2 1200000 500000": target [uV] and how long it takes [ns]
    /// \throws std::runtime_error for a line that no head writes
    void addRamp(const tsTraceLine& line);

private:
    tcDumpWriter& m_dump;
    std::map<std::size_t, double> m_volts; // target, by wire
};

} // namespace sim

/// \file
/// The register writes of a run, and what became of each.
#pragma once

#include "sim/after/report/exposure_reader.h"
#include "sim/after/report/held_registers.h"
#include "sim/after/report/run.h"
#include "sim/after/trace_reader.h"

namespace sim {

/// Collects the register writes, and keeps what the registers hold.
class tcWriteReader {
public:
    /// All three outlive the reader. \param exposures is told of writes to the sensor
    tcWriteReader(tsHeldRegisters& held, tcExposureReader& exposures, tsRun& run)
        : m_held(held), m_exposures(exposures), m_run(run) {}

    /// A write that arrived: "STATE SENSOR-WORD 0x010 - 0x000004 asleep", "STATE FPGA-WORD
    /// 0xFF210008 0x00000000 0x000005D9 stuck": register, what it held, what was written, what
    /// became of it.
    /// \throws std::runtime_error for a line that no head writes
    void takeWord(const tsTraceLine& line);
    /// Bits that were too few for a word: "STATE SENSOR-REST 24 0x04B90F".
    void takeRest(const tsTraceLine& line);
    /// Nothing was on the wire: "SPI 0F B9 04 36 failed EIO".
    void takeFailedTransfer(const tsTraceLine& line);

private:
    void hold(const tsWrite& write);

    tsHeldRegisters& m_held;
    tcExposureReader& m_exposures;
    tsRun& m_run;
};

} // namespace sim

/// \file
/// What the ADC measured in a run.
#pragma once

#include "sim/after/report/run.h"
#include "sim/after/trace_reader.h"

namespace sim {

/// Collects the conversions of the ADC that measures the supplies.
class tcSupplyReader {
public:
    /// \param run outlives the reader
    explicit tcSupplyReader(tsRun& run) : m_run(run) {}

    /// \param line "ADC-COMMAND 0x8C"
    void takeCommand(const tsTraceLine& line);
    /// \param line "ADC 0 0x7AE", or one that failed
    void takeConversion(const tsTraceLine& line, bool failed);

private:
    tsRun& m_run;
    bool m_referenceOn = false;
    bool m_settling = false; // the present command switched the reference on
};

} // namespace sim

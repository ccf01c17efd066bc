#include "sim/after/report/supply_reader.h"

#include <cstdint>

#include "sim/base/timed_text.h"

namespace sim {

void tcSupplyReader::takeCommand(const tsTraceLine& line) {
    constexpr std::uint32_t reference = 8; // PD1
    const auto command = static_cast<std::uint32_t>(numberFrom(line.words[1]));
    const bool on = (command & reference) != 0;
    m_settling = on && !m_referenceOn;
    m_referenceOn = on;
}

// Readings before reset is released say nothing about the supplies under load.
void tcSupplyReader::takeConversion(const tsTraceLine& line, bool failed) {
    if (m_run.firstTime("RESET_B") && !failed) {
        m_run.happened("conversion", line.timeNs);
    }
    tsReading reading{
        line.timeNs, static_cast<std::uint32_t>(numberFrom(line.words[1])), {}, m_settling};
    if (!failed) {
        reading.steps = static_cast<std::uint32_t>(numberFrom(line.words[2]));
    }
    m_run.readings.push_back(reading);
}

} // namespace sim

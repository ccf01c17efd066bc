#include "sim/after/waveform/supply_wires.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "sim/base/timed_text.h"

namespace sim {

namespace {

constexpr std::uint64_t kRampSteps = 20;

std::string realText(double value) {
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.6g", value);
    return {text.data(), static_cast<std::size_t>(length)};
}

} // namespace

void tcSupplyWires::addRamp(const tsTraceLine& line) {
    constexpr double microvolts = 1e6;
    const std::size_t rail = m_dump.wire(line.words[1]);
    double from = m_volts[rail];
    const double to = static_cast<double>(numberFrom(line.words[2])) / microvolts;
    const std::uint64_t riseNs = numberFrom(line.words[3]);
    // A rail that turns on its way goes on from where it is.
    if (const std::optional<std::string> value = m_dump.forgetAfter(rail, line.timeNs)) {
        from = std::stod(*value);
    }
    const std::uint64_t steps = riseNs == 0 ? 1 : kRampSteps;
    for (std::uint64_t step = 1; step <= steps; ++step) {
        const double part = static_cast<double>(step) / static_cast<double>(steps);
        m_dump.change(rail, line.timeNs + riseNs * step / steps,
                      realText(from + (to - from) * part));
    }
    m_volts[rail] = to;
}

} // namespace sim

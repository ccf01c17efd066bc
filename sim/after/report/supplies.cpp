// What the ADC measured, against the limits of the supplies.

#include <array>
#include <cstdint>

#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"

namespace sim::page {

namespace {

// A supply as the ADC sees it, and what the sensor needs.
struct tsRail {
    std::uint32_t channel;
    const char* name;
    double divider; // in front of the ADC
    double lowest;  // V
    double highest; // V
};

const tsRail* railAt(std::uint32_t channel) {
    static constexpr std::array<tsRail, 3> rails{{{0, "VDD1.2", 1, 1.1, 1.3},
                                                  {1, "VDD3.3AVDDH", 2, 3.2, 3.4},
                                                  {4, "VDD3.3SVDD", 2, 3.2, 3.4}}};
    for (const tsRail& rail : rails) {
        if (rail.channel == channel) {
            return &rail;
        }
    }
    return nullptr;
}

// One conversion: 4096 steps are the reference's 2.5 V, in front of the divider twice as much.
std::string reading(const tsReading& reading, const tsRail& rail) {
    constexpr double volts = 2.5 / 4096;
    constexpr std::uint32_t steps = 4096;
    const std::string limits = fixed(rail.lowest, 1) + " to " + fixed(rail.highest, 1) + " V";
    std::vector<std::string> cells{milliseconds(reading.timeNs), rail.name};
    const auto finish = [&](const std::string& raw, const std::string& measured,
                            const std::string& verdict, bool good) {
        cells.insert(cells.end(), {raw, measured, limits, verdict});
        return row(cells, good ? "" : kBad);
    };
    if (!reading.steps) {
        return finish("", "", "the transfer failed", false);
    }
    const std::string raw = hex(*reading.steps, 3);
    if (*reading.steps >= steps) {
        return finish(raw, "", "nobody drove the bus", false);
    }
    if (reading.settling) {
        return finish(raw, "", "not counted: the reference settles", true);
    }
    const double measured = *reading.steps * volts * rail.divider;
    const bool low = measured < rail.lowest;
    const bool high = measured > rail.highest;
    return finish(raw, fixed(measured, 4) + " V",
                  low ? "too low" : (high ? "too high" : "within limits"), !low && !high);
}

} // namespace

std::string supplies(const tsRun& run) {
    std::string rows;
    for (const tsReading& converted : run.readings) {
        if (const tsRail* const rail = railAt(converted.channel)) {
            rows += reading(converted, *rail);
        }
    }
    return "<h2>Supplies, as measured</h2>\n" +
           (rows.empty()
                ? "<p id=\"rails\">never measured</p>\n"
                : table("rails", {"Time", "Supply", "Reading", "Voltage", "Limits", ""}, rows));
}

} // namespace sim::page

#include "sim/after/report/judged_reading.h"

#include <algorithm>
#include <array>

#include "sim/after/report/page.h"

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

constexpr std::array<tsRail, 3> kRails{
    {{0, "VDD1.2", 1, 1.1, 1.3}, {1, "VDD3.3AVDDH", 2, 3.2, 3.4}, {4, "VDD3.3SVDD", 2, 3.2, 3.4}}};

} // namespace

std::string limitsOf(const tsJudgedReading& reading) {
    return fixed(reading.lowest, 1) + " to " + fixed(reading.highest, 1) + " V";
}

// 4096 steps are the reference's 2.5 V, in front of the divider twice as much.
std::optional<tsJudgedReading> judged(const tsReading& reading) {
    constexpr double volts = 2.5 / 4096;
    constexpr std::uint32_t steps = 4096;
    const auto* const rail =
        std::find_if(kRails.begin(), kRails.end(),
                     [&reading](const tsRail& one) { return one.channel == reading.channel; });
    if (rail == kRails.end()) {
        return std::nullopt;
    }
    const auto with = [rail](std::optional<double> measured, const char* verdict, bool good) {
        return tsJudgedReading{rail->name, rail->lowest, rail->highest, measured, verdict, good};
    };
    if (!reading.steps) {
        return with({}, "the transfer failed", false);
    }
    if (*reading.steps >= steps) {
        return with({}, "nobody drove the bus", false);
    }
    if (reading.settling) {
        return with({}, "not counted: the reference settles", true);
    }
    const double measured = *reading.steps * volts * rail->divider;
    if (measured < rail->lowest) {
        return with(measured, "too low", false);
    }
    return measured > rail->highest ? with(measured, "too high", false)
                                    : with(measured, "within limits", true);
}

} // namespace sim::page

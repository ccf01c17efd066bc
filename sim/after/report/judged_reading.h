/// \file
/// What a conversion of the ADC says about a supply.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/after/report/run.h"

namespace sim::page {

/// A conversion, with the divider in front of the ADC undone, against what the sensor needs.
struct tsJudgedReading {
    const char* supply = "";
    double lowest = 0;           ///< that the sensor takes [V]
    double highest = 0;          ///< that the sensor takes [V]
    std::optional<double> volts; ///< empty: the conversion says nothing
    std::string verdict;         ///< "within limits", "too low", "the transfer failed"
    bool good = true;
};

/// \return empty for a channel that has no supply
[[nodiscard]] std::optional<tsJudgedReading> judged(const tsReading& reading);
/// \return "3.2 to 3.4 V"
[[nodiscard]] std::string limitsOf(const tsJudgedReading& reading);

} // namespace sim::page

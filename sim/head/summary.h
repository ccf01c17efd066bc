/// \file
/// What a head saw, as text for a person.
#pragma once

#include <string>

#include "sim/head/model.h"

namespace sim {

/// \return supplies, sensor, link, clock, counts, faults, violations
[[nodiscard]] std::string summary(tcModel& head);
/// \return a line for each time in which the sensor streamed for longer than three frame intervals
///         and no picture was delivered, with the reason; empty where pictures came
[[nodiscard]] std::string silences(const tcModel& head);
/// \return the summary of a run, which may have been recorded, or played from a recording
[[nodiscard]] std::string report(tcModel& head);

} // namespace sim

/// \file
/// The sections of the page, in their order.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/after/report/run.h"
#include "sim/after/run_facts.h"
#include "sim/after/trace_reader.h"
#include "sim/base/thumbnail.h"

namespace sim::page {

/// What was run, how it ended, what was wrong, the cause and what to measure.
[[nodiscard]] std::string verdict(const tsRun& run, const tsRunFacts& facts);
/// The wires, drawn.
[[nodiscard]] std::string wires(const std::vector<tsTraceLine>& trace);
/// What the run reached, when, and how long it stayed there: as bars and as a table.
[[nodiscard]] std::string stages(const tsRun& run);
/// The delays of power-up against those that the hardware needs.
[[nodiscard]] std::string delays(const tsRun& run);
/// What the ADC measured, against the limits of the supplies.
[[nodiscard]] std::string supplies(const tsRun& run);
/// The link's training, attempt by attempt and lane by lane.
[[nodiscard]] std::string training(const tsRun& run);
/// What the program says that it got in place of what was asked for.
/// \param printed as `report` takes it
[[nodiscard]] std::string clamps(const std::optional<std::string>& printed);
/// Frame and exposure after each change, with the bounds that they reached.
[[nodiscard]] std::string exposures(const tsRun& run);
/// The pictures, small, with the settings that made them.
[[nodiscard]] std::string pictures(const std::vector<tsThumbnail>& all);
/// Lines of the trace that say what went wrong. \param id of the table
[[nodiscard]] std::string troubles(const char* id, const char* title,
                                   const std::vector<tsTraceLine>& lines);
/// Every register write with its fields, old and new value.
[[nodiscard]] std::string registerWrites(const tsRun& run);

} // namespace sim::page

/// \file
/// A run on one screen: what a person wants to know first.
#pragma once

#include <string>
#include <vector>

#include "sim/after/run_facts.h"
#include "sim/after/trace_reader.h"

namespace sim {

/// Stages with their times, lanes, settings asked and applied, pictures, a verdict.
///
/// \param files picture files, in their order; empty: none were asked for
/// \return lines of text
/// \throws std::runtime_error for a line that no head writes
[[nodiscard]] std::string overview(const std::vector<tsTraceLine>& trace, const tsRunFacts& facts,
                                   const std::vector<std::string>& files = {});

} // namespace sim

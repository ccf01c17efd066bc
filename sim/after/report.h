/// \file
/// A run of the head as one page.
#pragma once

#include <string>
#include <vector>

#include "sim/after/run_facts.h"
#include "sim/after/trace_reader.h"
#include "sim/base/thumbnail.h"

namespace sim {

/// Describes a run: a verdict, the waveform, stages with their durations, the delays of power-up
/// against those that the hardware needs, what the ADC measured, training of the link attempt by
/// attempt and lane by lane, exposures with the bounds that they reached, pictures, violations, and
/// every register write with its fields, old and new value.
///
/// The page stands alone: nothing from elsewhere.
///
/// \param pictures of the run, in order; empty where none were asked for
/// \param facts    what is known beside the trace. Lines "NAME: asked A, applied B, limited by C
///                 (...)" of what the program printed are the page's clamps; where nobody kept it,
///                 the page says how to
/// \return HTML
/// \throws std::runtime_error for a line that no head writes
[[nodiscard]] std::string report(const std::vector<tsTraceLine>& trace,
                                 const std::vector<tsThumbnail>& pictures = {},
                                 const tsRunFacts& facts = {});

} // namespace sim

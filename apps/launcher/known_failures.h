/// \file
/// What is known of the head's failures, for whoever tells how a run went.
#pragma once

#include <map>
#include <string>

#include "sim/after/run_facts.h"

/// \return causes and what to measure, by the failure's name in the board's table of failures,
/// which
///         this program carries in itself: a report needs no plug-in beside it
[[nodiscard]] std::map<std::string, sim::tsKnown> knownFailures();

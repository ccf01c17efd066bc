/// \file
/// What is known of the head's failures, for whoever tells how a run went.
#pragma once

#include <map>
#include <string>

#include "sim/after/run_facts.h"

/// This program carries the board's table of failures in itself: a report needs no plug-in beside
/// it. The table is read once, however many processes a run has. \return causes and what to
/// measure, by the failure's name in the table
[[nodiscard]] const std::map<std::string, sim::tsKnown>& knownFailures();

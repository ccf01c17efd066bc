/// \file
/// Scenario files: what is wrong with a head, as an INI file.
#pragma once

#include <string>

#include "sim/scenario/head_options.h"

namespace sim {

/// Puts everything that the file says into the options. Section [Files] is only checked.
/// \throws std::runtime_error with file, key and what is allowed
void applyScenario(const std::string& path, tsHeadOptions& options);

} // namespace sim

/// \file
/// Reads the section "head" of a table of failures.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/failures/head_facts.h"

namespace failures {

/// \param place set to what is being read, for whoever reports a failure
/// \throws std::exception for what is missing, unknown or of another type
tsHeadFacts headFactsOf(const nlohmann::json& head, std::string& place);

} // namespace failures

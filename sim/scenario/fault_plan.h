/// \file
/// A fault as it was asked for: what, from when, until when.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/base/fault.h"
#include "sim/scenario/fault_keys.h"
#include "sim/scenario/fault_kinds.h"
#include "sim/scenario/fault_moment.h"

namespace sim {

/// A fault as it was asked for.
struct tsPlannedFault {
    std::string name;
    const tsFaultKind* kind = nullptr;
    tsFaultNumbers numbers;
    tsMoment from;                         // neither: from the start
    tsMoment until;                        // neither: for ever
    std::optional<std::uint64_t> lengthNs; // instead of `until`
};

/// \param error set when the result is empty
[[nodiscard]] std::optional<tsPlannedFault> plannedFault(const tsFault& fault, tsFaultError& error);

} // namespace sim

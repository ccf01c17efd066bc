/// \file
/// Brings a head up and keeps what its board tells meanwhile.
#pragma once

#include <vector>

#include "apps/camhost/board_talk.h"
#include "apps/camhost/diagnosis.h"
#include "apps/camhost/head.h"

namespace camhost {

/// Carries out the board's initialization. The head stays as that leaves it.
tsBringUp bringUp(tcHead& head);

/// Reads what a board printed of its link.
/// \param lanes of the head
[[nodiscard]] tsLink linkIn(const std::vector<tsHeard>& lines, const failures::tsLinkFact& fact,
                            unsigned lanes);

/// \return the usual limits, and in their place those of the head's own file
[[nodiscard]] std::map<std::string, failures::tsLimits>
limitsInForce(const failures::tcFailureTable& table);

} // namespace camhost

/// \file
/// The diagnosis of a head, by the command line and in a session.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "apps/camhost/exit_status.h"
#include "apps/camhost/facts.h"
#include "apps/camhost/head.h"

namespace camhost {

/// A diagnosis with its verdict, shown.
struct tsShown {
    std::string text; ///< the tree
    tcFacts facts;    ///< the same for programs
    teExit status = teExit::eSuccess;
    std::string says; ///< the verdict in one line
};

/// Looks at a head of this session, and switches nothing.
tsShown diagnoseSession(const tcHead& head, bool colour);

/// Looks at a head of this session and brings it up, unless something is wrong before. A head that
/// was off is off again afterwards: its board is made anew. A head that was up stays up.
tsShown diagnoseWithPower(tcHead& head, bool colour);

/// The diagnosis of the command line. Without power no board is made.
/// \param origin    plug-in, port and why there is no table
/// \param table     of the board; may be null
/// \param makeHead  makes a board with its handlers; what it throws is passed on
tsShown diagnoseFromStart(const tsOrigin& origin, const failures::tcFailureTable* table, bool power,
                          bool colour, const std::function<std::unique_ptr<tcHead>()>& makeHead);

} // namespace camhost

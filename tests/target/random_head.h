/// \file
/// The head that a board lives on, by chance.
#pragma once

#include <ostream>

#include "sim/virtual_head.h"
#include "tests/target/chance.h"

/// A head with nothing, one thing or two things wrong. Every block maps: access to one that does
/// not is the end of the program. \param to what is wrong: "WRONG ..."
sim::tcVirtualHeadBuilder anyHead(tcChance& chance, std::ostream& to);

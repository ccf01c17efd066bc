/// \file
/// The rows of a drawing: which wires are shown, which share a row, and which stood still.
#pragma once

#include <string>
#include <vector>

#include "sim/after/drawing/dump_reader.h"

namespace sim {

/// One row: wires that did the same.
struct tsRow {
    std::string name;        ///< "LANE4-LOCK to LANE11-LOCK", or the one wire's
    tsSignal signal;         ///< what each of them did
    bool stoodStill = false; ///< they never changed, although they should have
};

/// Wires that never change have no row, unless they should have changed: a supply that is switched
/// on comes up, a lane that is reset locks, and so on. Wires share a row when they follow each
/// other in the dump, did the same, and differ in nothing but a number that counts up by one.
///
/// \return rows in the order of the dump
[[nodiscard]] std::vector<tsRow> rowsOf(const tsDump& dump);

} // namespace sim

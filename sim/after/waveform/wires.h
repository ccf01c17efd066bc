/// \file
/// Every wire of the head that a dump shows.
#pragma once

#include "sim/after/waveform/dump_writer.h"

namespace sim {

/// Gives the dump its wires, in their order and with their levels at the beginning.
void defineWires(tcDumpWriter& dump);

} // namespace sim

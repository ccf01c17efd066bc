/// \file
/// Wires of which the trace says each level: GPIO lines, flags of supplies, sensor and link, lanes.
#pragma once

#include "sim/after/trace_reader.h"
#include "sim/after/waveform/dump_writer.h"

namespace sim {

/// \param line "GPIO RESET_B = 1", "GPIO RESET_B out 0"; lines without a name are not the head's
/// \throws std::runtime_error for a line that no head writes
void drawGpioLine(tcDumpWriter& dump, const tsTraceLine& line);

/// \param line "STATE ALIGNED 1"
/// \throws std::runtime_error for a line that no head writes
void drawFlag(tcDumpWriter& dump, const tsTraceLine& line);

/// \param line "STATE DPA-RESET 0xFFF": one bit a lane
/// \throws std::runtime_error for a line that no head writes
void drawLanes(tcDumpWriter& dump, const tsTraceLine& line);

} // namespace sim

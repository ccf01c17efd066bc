/// \file
/// A run of the head as a value-change dump.
#pragma once

#include <string>
#include <vector>

#include "sim/after/trace_reader.h"

namespace sim {

/// Turns a trace into a value-change dump (IEEE 1364, chapter 18) with a time scale of 1 ns. All
/// wires are scalar but the voltages of the supplies, which are real.
///
/// - A SPI bit takes its time by the clock: data changes at its beginning, the clock's active half
///   is its second and third quarter. Chip select ends an eighth of a bit before the last one does,
///   so that messages without a pause between them are told apart.
/// - An I2C bit takes 10 us: data changes after one, the clock is high from 3 to 6 us. Start and
///   stop lie in the rest.
/// - Where something else happens on the same bus before all bits are over, as it may in real time,
///   they are drawn as much faster, but none shorter than 8 ns (SPI) or 20 ns (I2C).
/// - Changes of one wire in the same instant are drawn 1 ns apart, and what follows in that instant
///   does not come before them. The first change is 1 ns after the value at the beginning.
/// - Supplies rise in steps of a twentieth.
/// - The frame-start line rests at 0, inverted at 1.
/// - Frame-start pulses more often than each 10 us are shown as unknown.
///
/// \throws std::runtime_error for a line that no head writes
[[nodiscard]] std::string waveform(const std::vector<tsTraceLine>& trace);

} // namespace sim

/// \file
/// Wires that pulse by themselves: the frame-start line, and the frames that arrive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/after/trace_reader.h"
#include "sim/after/waveform/dump_writer.h"

namespace sim {

/// What a pulse train or the frames do from a time on.
struct tsPulseTrain {
    std::uint64_t periodNs = 0; ///< 0: nothing
    std::uint64_t lengthNs = 0; ///< of a pulse
    std::uint64_t fromNs = 0;   ///< the first one that is to be drawn
    bool low = false;           ///< inverted: a pulse is low, and the line rests at 1
};

/// \param line "STATE PULSES 20000000 277 1 5000000": period and length [ns], whether they are
///             inverted, and a pulse [ns]
/// \throws std::runtime_error for a line that no head writes
[[nodiscard]] tsPulseTrain pulsesFrom(const tsTraceLine& line);

/// \param line "STATE FRAMES 100000000 25700000 5000000": from one to the next, how long the rows
///             come, and the beginning of one [ns]
/// \throws std::runtime_error for a line that no head writes
[[nodiscard]] tsPulseTrain framesFrom(const tsTraceLine& line);

/// Draws one train after the other on a wire.
class tcPulseWire {
public:
    /// \param dump outlives the object
    tcPulseWire(tcDumpWriter& dump, const std::string& wire)
        : m_dump(dump), m_wire(dump.wire(wire)) {}

    /// The present train ends, and the next one begins. A pulse that is on its way when only period
    /// or length change comes to its end; when the pulses stop, it stops.
    void begin(tsPulseTrain next, std::uint64_t timeNs);
    /// Nothing more happens after this time.
    void finish(std::uint64_t endNs);

private:
    void draw(std::uint64_t untilNs, std::uint64_t lastNs);

    tcDumpWriter& m_dump;
    std::size_t m_wire;
    tsPulseTrain m_train;
};

} // namespace sim

/// \file
/// The wires of the supply monitor's I2C bus: clock and data.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/after/trace_reader.h"
#include "sim/after/waveform/bits.h"
#include "sim/after/waveform/dump_writer.h"

namespace sim {

/// Draws I2C messages bit by bit, from start to stop. A message is drawn when it is known how long
/// it may take: with the next event on its wires.
class tcI2cWires {
public:
    /// \param dump outlives the object
    explicit tcI2cWires(tcDumpWriter& dump) : m_dump(dump) {}

    /// \param line "STATE I2C 0x49 R ack 07 AE", "STATE I2C 0x49 W nack"
    /// \throws std::runtime_error for a line that no head writes
    void addMessage(const tsTraceLine& line);
    /// The bus is free.
    void stop(std::uint64_t timeNs);
    /// Nothing more happens.
    void finish();

private:
    void addByte(std::uint64_t byte, bool acknowledged);
    void draw(std::uint64_t untilNs);
    void end(bool stop, std::uint64_t timeNs);

    tcDumpWriter& m_dump;
    std::uint64_t m_fromNs = 0; // of the message that waits
    std::vector<bool> m_bits;   // of it: bytes with their acknowledgements
    tsBits m_drawn;
    std::uint64_t m_endNs = 0;
};

} // namespace sim

/// \file
/// The wires of the sensor's SPI port: chip select, clock and data.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/after/trace_reader.h"
#include "sim/after/waveform/dump_writer.h"

namespace sim {

/// Draws SPI transfers bit by bit. A transfer is drawn when it is known how long it may take: with
/// the next event on its wires.
class tcSpiWires {
public:
    /// \param dump outlives the object
    explicit tcSpiWires(tcDumpWriter& dump) : m_dump(dump) {}

    /// \param line "STATE SPI-WIRE 0 32 10000000": mode, bits of a word, clock [Hz]
    /// \throws std::runtime_error for a line that no head writes
    void setPort(const tsTraceLine& line);
    void select(std::uint64_t timeNs, bool selected);
    /// \param line "SPI 0F B9 04 36": bytes in the order of the device's buffer
    void addTransfer(const tsTraceLine& line);
    /// Nothing more happens.
    void finish();

private:
    void drawTransfer(std::uint64_t untilNs);
    void clockOutBit(std::uint64_t startNs, std::uint64_t endNs, bool high);

    tcDumpWriter& m_dump;
    unsigned m_mode = 0;
    unsigned m_wordBits = 8;
    std::uint64_t m_hertz = 1'000'000;
    std::uint64_t m_endNs = 0;  // of the last bit
    std::uint64_t m_bitNs = 0;  // how long it takes
    std::uint64_t m_fromNs = 0; // of the transfer that waits
    std::vector<bool> m_bits;   // of it
};

} // namespace sim

#include "sim/after/waveform/spi_wires.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

#include "sim/after/waveform/bits.h"
#include "sim/base/timed_text.h"

namespace sim {

namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::uint64_t kShortestBitNs = 8; // its quarters and eighths are whole

constexpr unsigned kModePhase = 1;
constexpr unsigned kModePolarity = 2;
constexpr unsigned kModeSelectHigh = 4;
constexpr unsigned kModeLsbFirst = 8;
constexpr unsigned kModeNoSelect = 0x40;

} // namespace

void tcSpiWires::setPort(const tsTraceLine& line) {
    constexpr unsigned longestWord = 32;
    if (line.words.size() != 5) {
        throw std::runtime_error("\"" + line.text + "\": expected mode, bits and clock");
    }
    const std::uint64_t bits = numberFrom(line.words[3]);
    drawTransfer(line.timeNs);
    m_mode = static_cast<unsigned>(numberFrom(line.words[2]) & 0xFF);
    m_hertz = numberFrom(line.words[4]);
    if (bits == 0 || bits > longestWord || m_hertz == 0) {
        throw std::runtime_error("\"" + line.text + "\": no such word or clock");
    }
    m_wordBits = static_cast<unsigned>(bits);
    m_dump.level("SPI-CLK", line.timeNs, (m_mode & kModePolarity) != 0);
}

void tcSpiWires::select(std::uint64_t timeNs, bool selected) {
    drawTransfer(timeNs);
    if ((m_mode & kModeNoSelect) != 0) {
        return;
    }
    std::uint64_t at = std::max(timeNs, m_endNs);
    if (!selected && m_endNs == at) {
        at -= m_bitNs / 8;
    }
    m_dump.level("SPI-CS", at, selected == ((m_mode & kModeSelectHigh) != 0));
}

// Words are numbers with the lowest byte first, as both targets keep them.
void tcSpiWires::addTransfer(const tsTraceLine& line) {
    drawTransfer(line.timeNs);
    const std::size_t wordBytes = m_wordBits <= 8 ? 1 : (m_wordBits <= 16 ? 2 : 4);
    const std::size_t words = (line.words.size() - 1) / wordBytes;
    for (std::size_t word = 0; word < words; ++word) {
        std::uint64_t value = 0;
        for (std::size_t byte = 0; byte < wordBytes; ++byte) {
            value |= numberFrom(line.words[1 + word * wordBytes + byte], 16) << (8 * byte);
        }
        for (unsigned at = 0; at < m_wordBits; ++at) {
            const unsigned place = (m_mode & kModeLsbFirst) != 0 ? at : m_wordBits - 1 - at;
            m_bits.push_back((value >> place & 1) != 0);
        }
    }
    m_fromNs = std::max(line.timeNs, m_endNs);
}

void tcSpiWires::finish() {
    drawTransfer(kForEver);
}

// The transfer that waits, if one does. \param untilNs when something else happens on the wires
void tcSpiWires::drawTransfer(std::uint64_t untilNs) {
    const std::uint64_t count = m_bits.size();
    if (count == 0) {
        return;
    }
    const tsBits bits = fittedBits(m_fromNs, untilNs, count, count * kNsPerSecond / m_hertz,
                                   std::min(kShortestBitNs, kNsPerSecond / m_hertz));
    for (std::uint64_t bit = 0; bit < count; ++bit) {
        clockOutBit(bits.timeNs(bit, 1), bits.timeNs(bit + 1, 1),
                    m_bits[static_cast<std::size_t>(bit)]);
    }
    m_endNs = bits.timeNs(count, 1);
    m_bitNs = bits.spanNs / count;
    m_bits.clear();
}

void tcSpiWires::clockOutBit(std::uint64_t startNs, std::uint64_t endNs, bool high) {
    const std::uint64_t quarter = (endNs - startNs) / 4;
    const bool idle = (m_mode & kModePolarity) != 0;
    // With the phase set, the receiver samples at the second edge: data follows the first.
    const std::uint64_t dataNs = (m_mode & kModePhase) != 0 ? startNs + quarter : startNs;
    m_dump.level("SPI-MOSI", dataNs, high);
    m_dump.level("SPI-CLK", startNs + quarter, !idle);
    m_dump.level("SPI-CLK", endNs - quarter, idle);
}

} // namespace sim

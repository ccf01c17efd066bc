#include "sim/after/waveform/i2c_wires.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

#include "sim/base/timed_text.h"

namespace sim {

namespace {

constexpr std::uint64_t kBitNs = 10'000;
constexpr std::uint64_t kUnits = 20;   // of a bit, in which its edges lie:
constexpr std::uint64_t kStart = 1;    // after data, the clock falls: a start
constexpr std::uint64_t kData = 2;     // data changes
constexpr std::uint64_t kClock = 6;    // the clock rises
constexpr std::uint64_t kFall = 12;    // and falls
constexpr std::uint64_t kPrepare = 14; // before a stop, data takes its level
constexpr std::uint64_t kIdle = 16;    // the clock goes high for good
constexpr std::uint64_t kStop = 18;    // data rises: the bus is free

} // namespace

void tcI2cWires::addMessage(const tsTraceLine& line) {
    constexpr std::size_t firstByte = 5;
    if (line.words.size() < firstByte) {
        throw std::runtime_error("\"" + line.text + "\": expected address, direction and answer");
    }
    end(false, line.timeNs);
    const bool reads = line.words[3] == "R";
    addByte((numberFrom(line.words[2]) & 0x7F) << 1 | (reads ? 1U : 0U), line.words[4] == "ack");
    for (std::size_t at = firstByte; at < line.words.size(); ++at) {
        // The reader does not acknowledge the last byte, so that the chip lets go of the bus.
        const bool last = at + 1 == line.words.size();
        addByte(numberFrom(line.words[at], 16), !(reads && last));
    }
    m_fromNs = std::max(line.timeNs, m_endNs);
}

void tcI2cWires::addByte(std::uint64_t byte, bool acknowledged) {
    for (int at = 7; at >= 0; --at) {
        m_bits.push_back((byte >> at & 1) != 0);
    }
    m_bits.push_back(!acknowledged);
}

void tcI2cWires::stop(std::uint64_t timeNs) {
    end(true, timeNs);
}

void tcI2cWires::finish() {
    draw(kForEver); // nothing ended it
}

void tcI2cWires::draw(std::uint64_t untilNs) {
    const std::uint64_t count = m_bits.size();
    if (count == 0) {
        return;
    }
    m_drawn = fittedBits(m_fromNs, untilNs, count, count * kBitNs, kUnits);
    const auto at = [this](std::uint64_t bit, std::uint64_t unit) {
        return m_drawn.timeNs(bit * kUnits + unit, kUnits);
    };
    m_dump.level("I2C-SDA", m_fromNs, false);
    m_dump.level("I2C-SCL", at(0, kStart), false);
    for (std::uint64_t bit = 0; bit < count; ++bit) {
        m_dump.level("I2C-SDA", at(bit, kData), m_bits[static_cast<std::size_t>(bit)]);
        m_dump.level("I2C-SCL", at(bit, kClock), true);
        m_dump.level("I2C-SCL", at(bit, kFall), false);
    }
    m_endNs = at(count, 0);
}

// The last bit's rest holds a stop, or makes way for another start.
void tcI2cWires::end(bool stop, std::uint64_t timeNs) {
    if (m_bits.empty()) {
        return;
    }
    draw(timeNs);
    const std::uint64_t last = (m_bits.size() - 1) * kUnits;
    m_dump.level("I2C-SDA", m_drawn.timeNs(last + kPrepare, kUnits), !stop);
    m_dump.level("I2C-SCL", m_drawn.timeNs(last + kIdle, kUnits), true);
    m_dump.level("I2C-SDA", m_drawn.timeNs(last + kStop, kUnits), true);
    m_bits.clear();
}

} // namespace sim

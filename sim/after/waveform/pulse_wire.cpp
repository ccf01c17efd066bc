#include "sim/after/waveform/pulse_wire.h"

#include <stdexcept>

#include "sim/base/timed_text.h"

namespace sim {

namespace {

constexpr std::uint64_t kFastestPulsesNs = 10'000;
constexpr const char* kUnknown = "x";

} // namespace

tsPulseTrain pulsesFrom(const tsTraceLine& line) {
    if (line.words.size() != 6) {
        throw std::runtime_error("\"" + line.text +
                                 "\": expected period, length, polarity and a pulse");
    }
    return {numberFrom(line.words[2]), numberFrom(line.words[3]), numberFrom(line.words[5]),
            line.words[4] == "1"};
}

tsPulseTrain framesFrom(const tsTraceLine& line) {
    if (line.words.size() != 5) {
        throw std::runtime_error("\"" + line.text + "\": expected period, length and a frame");
    }
    return {numberFrom(line.words[2]), numberFrom(line.words[3]), numberFrom(line.words[4])};
}

void tcPulseWire::begin(tsPulseTrain next, std::uint64_t timeNs) {
    if (next.periodNs != 0 && next.fromNs < timeNs) {
        next.fromNs += (timeNs - next.fromNs + next.periodNs - 1) / next.periodNs * next.periodNs;
    }
    const bool begins = next.periodNs != 0 && next.fromNs == timeNs;
    const bool goesOn = m_train.periodNs >= kFastestPulsesNs && next.periodNs >= kFastestPulsesNs &&
                        m_train.low == next.low;
    draw(timeNs, goesOn ? next.fromNs : timeNs);
    if (!goesOn && !begins) {
        m_dump.level(m_wire, timeNs, next.low);
    }
    m_train = next;
}

void tcPulseWire::finish(std::uint64_t endNs) {
    begin({0, 0, 0, m_train.low}, endNs);
}

// Pulses that begin before `untilNs`; the last one ends before `lastNs`, or not at all.
void tcPulseWire::draw(std::uint64_t untilNs, std::uint64_t lastNs) {
    if (m_train.periodNs != 0 && m_train.periodNs < kFastestPulsesNs) {
        m_dump.change(m_wire, m_train.fromNs, kUnknown);
    } else if (m_train.periodNs != 0 && m_train.lengthNs != 0) {
        for (std::uint64_t at = m_train.fromNs; at < untilNs; at += m_train.periodNs) {
            m_dump.level(m_wire, at, !m_train.low);
            const std::uint64_t nextNs = at + m_train.periodNs;
            const std::uint64_t endNs = at + m_train.lengthNs;
            if (endNs < (nextNs < untilNs ? nextNs : lastNs)) {
                m_dump.level(m_wire, endNs, m_train.low);
            }
        }
    }
}

} // namespace sim

#include "sim/journal/clock.h"

#include "sim/base/real_calls.h"

namespace sim {

namespace {
constexpr unsigned kReadingsBeforeTimePasses = 1000;
constexpr std::uint64_t kReadingNs = 1000; // 1 us
} // namespace

tcClock::tcClock(bool real) : m_real(real), m_baseNs(real::monotonicNs()) {}

std::uint64_t tcClock::peek() const {
    return m_real ? real::monotonicNs() - m_baseNs : m_virtualNs;
}

std::uint64_t tcClock::now() const {
    if (m_held) {
        return *m_held;
    }
    m_latestNs = peek();
    return m_latestNs;
}

void tcClock::advance(std::uint64_t durationNs) {
    m_virtualNs += durationNs;
}

std::uint64_t tcClock::readMonotonic() {
    if (!m_real) {
        if (m_readingsInARow < kReadingsBeforeTimePasses) {
            ++m_readingsInARow;
        } else {
            m_virtualNs += kReadingNs;
        }
    }
    return m_baseNs + now();
}

} // namespace sim

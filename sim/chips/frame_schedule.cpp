#include "sim/chips/frame_schedule.h"

#include <algorithm>

namespace sim {

std::uint64_t tsPulseTrain::nextNs(std::uint64_t timeNs) const {
    return timeNs <= fromNs ? fromNs
                            : fromNs + (timeNs - fromNs + periodNs - 1) / periodNs * periodNs;
}

void tcFrameSchedule::count(std::uint64_t nowNs, std::uint64_t alignedSinceNs) {
    const std::uint64_t period = m_timing.frameNs;
    if (m_nextNs < alignedSinceNs) {
        m_nextNs += (alignedSinceNs - m_nextNs + period - 1) / period * period;
        m_beganNs = m_nextNs - period;
        m_hasBegun = true;
    }
    if (m_trainNs < alignedSinceNs) {
        m_trainNs = m_nextNs;
    }
    m_arriving = m_arriving || nowNs >= m_trainNs;
    countCarried(nowNs, alignedSinceNs);
    if (nowNs >= m_nextNs + m_timing.rowsNs) {
        const std::uint64_t whole = (nowNs - m_nextNs - m_timing.rowsNs) / period;
        m_frames += whole + 1;
        m_lastDoneNs = m_nextNs + whole * period + m_timing.rowsNs;
        m_nextNs += (whole + 1) * period;
        m_beganNs = m_nextNs - period;
        m_hasBegun = true;
    }
}

void tcFrameSchedule::countCarried(std::uint64_t nowNs, std::uint64_t alignedSinceNs) {
    if (!m_carried.valid || nowNs < m_carried.doneNs) {
        return;
    }
    m_carried.valid = false;
    if (m_carried.beginNs >= alignedSinceNs) {
        m_carriedNumber = ++m_frames;
        m_carriedDoneNs = m_lastDoneNs = m_carried.doneNs;
    }
}

void tcFrameSchedule::change(const tsFrameTiming& timing, std::uint64_t nowNs) {
    const tsFrameTiming before = m_timing;
    m_timing = timing;
    if (!framesBegin()) {
        m_carried.valid = false;
        m_hasBegun = false;
        return;
    }
    if (before.framesBegin() && nowNs >= m_nextNs) {
        m_beganNs = m_nextNs + (nowNs - m_nextNs) / before.frameNs * before.frameNs;
        m_hasBegun = true;
        m_carried = {m_beganNs + before.rowsNs > nowNs, m_beganNs, m_beganNs + before.rowsNs};
    }
    const std::uint64_t idleNs = m_hasBegun ? m_beganNs + m_timing.busyNs : nowNs;
    m_nextNs = m_timing.pulses.nextNs(std::max(nowNs, idleNs));
    m_trainNs = m_nextNs;
    m_carried.doneNs = std::min(m_carried.doneNs, m_nextNs);
}

std::uint64_t tcFrameSchedule::doneNs(std::uint64_t number) const {
    return number == m_carriedNumber ? m_carriedDoneNs
                                     : m_lastDoneNs - (m_frames - number) * m_timing.frameNs;
}

} // namespace sim

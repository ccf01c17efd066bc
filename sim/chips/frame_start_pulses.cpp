#include "sim/chips/frame_start_pulses.h"

#include <algorithm>

#include "sim/base/rules.h"

namespace sim {

bool tcFrameStartPulses::run() const {
    return m_settings.enabled && m_settings.periodClocks >= limits::kShortestPulsePeriod;
}

std::uint64_t tcFrameStartPulses::nsOf(std::uint64_t clocks) const {
    if (m_clockMhz == 0.0) {
        return 0;
    }
    return static_cast<std::uint64_t>(static_cast<double>(clocks) * 1000.0 / m_clockMhz);
}

void tcFrameStartPulses::set(const tsPulseSettings& settings, double clockMhz,
                             std::uint64_t nowNs) {
    m_settings = settings;
    m_clockMhz = clockMhz;
    const std::uint64_t period = run() ? periodNs() : 0;
    if (period == m_train.periodNs && m_clockMhz == m_trainMhz) {
        return;
    }
    if (period == 0 || m_train.periodNs == 0) {
        m_train = {period, period == 0 ? 0 : nowNs};
    } else {
        const std::uint64_t nextNs = m_train.nextNs(nowNs);
        const std::uint64_t sinceNs = nextNs == nowNs ? 0 : m_train.periodNs - (nextNs - nowNs);
        const auto counted =
            static_cast<std::uint64_t>(static_cast<double>(sinceNs) * m_trainMhz / m_clockMhz);
        m_train = {period, counted == 0 || counted >= period ? nowNs : nowNs + (period - counted)};
    }
    m_trainMhz = m_clockMhz;
}

// A pulse that comes while the sensor is still busy with a frame starts none.
std::uint64_t tcFrameStartPulses::frameNs(std::uint64_t frameClocks) const {
    const std::uint64_t pulse = m_settings.periodClocks;
    if (pulse == 0 || frameClocks <= pulse) {
        return periodNs();
    }
    return (frameClocks + pulse - 1) / pulse * periodNs();
}

// Whole pulses take as long as the pulses do, rounded or not.
std::uint64_t tcFrameStartPulses::busyNs(std::uint64_t frameClocks) const {
    const std::uint64_t pulse = m_settings.periodClocks;
    return pulse == 0 ? 0 : frameClocks / pulse * periodNs() + nsOf(frameClocks % pulse);
}

// Rows that take longer than the frame, by wrong registers, still leave a pause between two frames.
std::uint64_t tcFrameStartPulses::rowsNs(const tsFrameClocks& clocks) const {
    const std::uint64_t frame = frameNs(clocks.frame);
    return std::min(nsOf(clocks.rows), frame - frame / 16);
}

tsFrameTiming tcFrameStartPulses::frames(bool streaming, const tsFrameClocks& clocks) const {
    return {streaming, run(), m_train, busyNs(clocks.frame), frameNs(clocks.frame), rowsNs(clocks)};
}

} // namespace sim

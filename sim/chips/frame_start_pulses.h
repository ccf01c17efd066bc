/// \file
/// The frame-start pulses: what the pulse core's registers and the master clock make of them, and
/// how a sensor's frames follow.
#pragma once

#include <cstdint>

#include "sim/chips/frame_schedule.h"

namespace sim {

/// The pulse core's registers.
struct tsPulseSettings {
    bool enabled = false;
    bool inverted = false;
    std::uint32_t periodClocks = 0;
    std::uint32_t pulseClocks = 0; // how long a pulse is
};

/// What the sensor's registers say of a frame [clocks].
struct tsFrameClocks {
    std::uint64_t frame = 0; // at least
    std::uint64_t rows = 0;  // its rows
};

/// Pulses on the sensor's frame-start line. Takes no lock; possible in a signal handler.
class tcFrameStartPulses {
public:
    /// Registers or clock changed. The counter behind the pulses begins when they are enabled, and
    /// goes on when period or clock change: a period that is over then ends at once.
    /// \param clockMhz 0: in no known state
    void set(const tsPulseSettings& settings, double clockMhz, std::uint64_t nowNs);
    [[nodiscard]] bool run() const;
    [[nodiscard]] const tsPulseTrain& train() const { return m_train; }
    /// \return from one pulse to the next [ns]
    [[nodiscard]] std::uint64_t periodNs() const { return nsOf(m_settings.periodClocks); }
    /// \return how long a pulse is [ns]
    [[nodiscard]] std::uint64_t lengthNs() const { return nsOf(m_settings.pulseClocks); }
    /// \return whether a pulse is low, and the line rests at 1
    [[nodiscard]] bool inverted() const { return m_settings.inverted; }
    /// \return the frames that a sensor makes of these pulses
    [[nodiscard]] tsFrameTiming frames(bool streaming, const tsFrameClocks& clocks) const;

private:
    [[nodiscard]] std::uint64_t nsOf(std::uint64_t clocks) const;
    [[nodiscard]] std::uint64_t frameNs(std::uint64_t frameClocks) const;
    [[nodiscard]] std::uint64_t busyNs(std::uint64_t frameClocks) const;
    [[nodiscard]] std::uint64_t rowsNs(const tsFrameClocks& clocks) const;

    tsPulseSettings m_settings;
    double m_clockMhz = 0;
    tsPulseTrain m_train;
    double m_trainMhz = 0; // the clock that the train counts
};

} // namespace sim

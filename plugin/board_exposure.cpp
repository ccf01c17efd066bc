// Exposure, frame interval and triggers.

#include <chrono>
#include <iostream>

#include "common/mutex_guard.h"
#include "common/print.h"
#include "plugin/board.h"
#include "plugin/register_words.h"

namespace Varnox {

using std::chrono::microseconds;

int tc3U5MGXSSensorBoard::setExposure(int duration) {
    const tcMutexGuard guard(boardMutex());
    updateStatusFMT(eStatusProgress, "setExposure %d uS", duration);
    const int result = m_sensor.setExposure(microseconds(duration));
    const std::int64_t applied = m_sensor.getExposure().count();
    m_exposure = applied;
    publish(registerWords::kExposure, applied);
    updateStatusFMT(eStatusProgress, "setExposure updated to %d uS", static_cast<int>(applied));
    return result;
}

int tc3U5MGXSSensorBoard::getExposure() {
    const std::int64_t exposure = m_exposure;
    print(std::cout, "getExposure: ", exposure, "\n");
    return static_cast<int>(exposure);
}

int tc3U5MGXSSensorBoard::setFrameInterval(int duration) {
    const tcMutexGuard guard(boardMutex());
    // The period counts clocks, not microseconds: meant, every host's intervals are rounded so.
    const int period = m_sensor.getHorizontalPeriod();
    const int interval = duration / period * period;
    updateStatusFMT("setFrameInterval: %d uS", interval);
    int result = m_sensor.setHDMax(microseconds(interval));
    if (result != 0) {
        return result;
    }

    const std::int64_t exposure = m_exposure;
    if (interval < exposure) {
        updateStatusFMT(eStatusProgress,
                        "setFrameInterval: Exposure higher than frame interval. "
                        "Interval %d uS, Exposure %d uS",
                        interval, static_cast<int>(exposure));
        result = setExposure(interval);
    } else {
        result = setExposure(static_cast<int>(exposure));
    }
    if (!guarded([this, interval] { m_fpga.pwm.setPeriodTime(interval); })) {
        result = eInvalidArgument;
    }
    m_frameInterval = interval; // also when the pulses cannot have it
    return result;
}

int tc3U5MGXSSensorBoard::getFrameInterval() {
    return static_cast<int>(m_frameInterval);
}

int tc3U5MGXSSensorBoard::getMinFrameIntervalMicroS() {
    return static_cast<int>(m_sensor.getFrameReadoutTime().count());
}

/// Raises the frame interval to the minimum and publishes it.
/// \return the result of `setFrameInterval`
int tc3U5MGXSSensorBoard::raiseFrameInterval(int minimum) {
    const int result = setFrameInterval(minimum);
    publish(registerWords::kFrameInterval, getFrameInterval());
    return result;
}

int tc3U5MGXSSensorBoard::setExposureMode(tc3U5MGXS::teExposureMode mode) {
    m_sensor.setExposureMode(mode);
    const int minimum = getMinFrameIntervalMicroS();
    const int result = m_frameInterval < minimum ? raiseFrameInterval(minimum) : eSuccess;
    publish(registerWords::kMinFrameInterval, getMinFrameIntervalMicroS());
    setExposure(static_cast<int>(m_exposure));
    return result;
}

// ---- Triggers

int tc3U5MGXSSensorBoard::configureTriggers() {
    if (m_trigger == eTriggerExternal) {
        m_extTrigEnable.SetValue(1);
        m_sensor.setFrameControlMode(m_internalExposure ? tc3U5MGXS::eCtrlExternalTrigger
                                                        : tc3U5MGXS::eCtrlExternalExposure);
    } else {
        m_extTrigEnable.SetValue(0);
        m_sensor.setFrameControlMode(tc3U5MGXS::eCtrlInternal);
    }
    return setExposure(static_cast<int>(m_exposure));
}

int tc3U5MGXSSensorBoard::setTrigger(teTriggerMode mode) {
    if (isCapturing()) {
        return eCaptureInProgress;
    }
    switch (mode) {
    case eTriggerFreeRunning:
        m_trigger = mode;
        setInternalExposureMode(true);
        configureTriggers();
        return eSuccess;
    case eTriggerExternal:
        m_trigger = mode;
        configureTriggers();
        return eSuccess;
    default:
        // An unknown mode applies the one in force again: hosts use it as a refresh.
        configureTriggers();
        return eInvalidArgument;
    }
}

int tc3U5MGXSSensorBoard::getTrigger() {
    return m_trigger;
}

int tc3U5MGXSSensorBoard::setInternalExposureMode(bool internal) {
    print(std::cout, "Setting internal mode: ", internal, "\n");
    m_internalExposure = internal;
    return configureTriggers();
}

bool tc3U5MGXSSensorBoard::getInternalExposureMode() {
    return m_internalExposure;
}

int tc3U5MGXSSensorBoard::GetSkipFrames(bool& skip) {
    skip = false;
    return m_trigger == eTriggerFreeRunning ? 1 : 0;
}

} // namespace Varnox

// Readout timing and exposure: what exposure_arithmetic works out, put into the registers.

#include <iostream>

#include "common/print.h"
#include "sensor/exposure_arithmetic.h"
#include "sensor/registers.h"
#include "sensor/sensor.h"

using namespace sensorRegisters;
using std::chrono::microseconds;

namespace {

constexpr int kExposureModeNotSupported = 4;

// Frame set-up of the trigger-driven modes.
constexpr std::uint32_t kTriggeredFrameLength = 1086; // lines: full-frame readout
constexpr std::uint32_t kExternalTiming14 = 100;      // lines
constexpr std::uint32_t kTriggeredTiming15 = 50;      // lines

template<class... Pieces>
void logExposure(const Pieces&... pieces) {
    print(std::cout, "tc3U5MGXS::setExposure", pieces..., "\n");
}

} // namespace

unsigned short tc3U5MGXS::getHorizontalPeriod() {
    return static_cast<unsigned short>(getField(kHdPrd) + 1);
}

microseconds tc3U5MGXS::getFrameReadoutTime() {
    const microseconds time = exposureArithmetic::readoutTime(
        m_readoutRows, getHorizontalPeriod(), m_clockMhz, m_exposureMode == eExposureDual);
    print(std::cout, "getFrameReadoutTime(): ", time.count(), " uS\n");
    return time;
}

int tc3U5MGXS::setHDMax(microseconds frameTime) {
    if (getFrameControlMode() == eCtrlInternal) {
        const std::uint16_t hdMax =
            exposureArithmetic::frameLength(frameTime, m_clockMhz, getField(kHdPrd));
        print(std::cout, "tc3U5MGXS::setHDMax: hd_max: ", hdMax, "\n");
        setField(kHdMax, hdMax);
    }
    return 0;
}

microseconds tc3U5MGXS::getExposure() const {
    return microseconds(m_exposure);
}

int tc3U5MGXS::setExposure(microseconds exposure) {
    switch (getFrameControlMode()) {
    case eCtrlExternalExposure:
        programExternalExposure();
        return 0;
    case eCtrlExternalTrigger:
        programTriggeredExposure(exposure);
        return 0;
    case eCtrlReserved:
        return 0;
    case eCtrlInternal:
        break;
    }
    switch (m_exposureMode) {
    case eExposureSingle:
        programSingleExposure(exposure);
        break;
    case eExposureDual:
        programDualExposure(exposure);
        break;
    case eExposureRolling:
        return kExposureModeNotSupported;
    default:
        return 0;
    }
    logExposure(" after: ", m_exposure.load());
    return 0;
}

void tc3U5MGXS::programExternalExposure() {
    setField(kHdMax, kTriggeredFrameLength);
    setField(kTiming14, kExternalTiming14);
    setField(kTiming15, 0);
    setField(kGresPos, 0);
}

void tc3U5MGXS::programTriggeredExposure(microseconds exposure) {
    const auto result =
        exposureArithmetic::triggeredExposure(exposure, m_clockMhz, getField(kHdPrd));
    if (result.limited) {
        logExposure(": Limiting exposure: exposure duration: ", result.count);
    }
    setField(kHdMax, kTriggeredFrameLength);
    setField(kTiming14, result.count);
    setField(kTiming15, kTriggeredTiming15);
    setField(kGresPos, result.end);
}

void tc3U5MGXS::programSingleExposure(microseconds exposure) {
    const std::uint32_t hdPrd = getField(kHdPrd);
    const std::uint32_t hdMax = getField(kHdMax);
    const auto result = exposureArithmetic::singleExposure(exposure, m_clockMhz, hdPrd, hdMax);

    setField(kTiming14, kNoPosition);
    setField(kTiming15, kNoPosition);
    setField(kTiming1A, 0);
    setField(kTiming3B, kNoPosition);
    setField(kGsPos2, kNoPosition);
    setField(kGsPos1, result.gsPos1);
    setField(kGresPos, result.gresPos);
    if (result.limited) {
        logExposure(": Limiting exposure: exposure duration: ", result.requestedLines,
                    ", gs_pos1: ", result.gsPos1);
    }
    logExposure(": hd_prd: ", hdPrd, ", gs_pos1: ", result.gsPos1,
                ", acc_fpos: ", result.accFposBeforeRaise);
    if (result.raised) {
        logExposure(" Increasing exposure: acc_fpos: ", result.accFposBeforeRaise,
                    ", gs_pos1: ", result.gsPos1);
    }
    setField(kAccFpos, result.accFpos);
    m_exposure = result.applied.count();
}

void tc3U5MGXS::programDualExposure(microseconds exposure) {
    const std::uint32_t hdPrd = getField(kHdPrd);
    const std::uint32_t hdMax = getField(kHdMax);
    const auto result = exposureArithmetic::dualExposure(exposure, m_clockMhz, hdPrd, hdMax);

    setField(kTiming14, kNoPosition);
    setField(kTiming15, kNoPosition);
    setField(kTiming1A, 0);
    setField(kTiming3B, kNoPosition);
    setField(kGsPos2, result.gsPos2);
    if (result.limited) {
        // The label names the other position; log readers know it so.
        logExposure(": Limiting exposure: exposure duration: ", result.requestedLines,
                    ", gs_pos1: ", result.gsPos2);
    }
    logExposure(": hd_prd: ", hdPrd, ", gs_pos2: ", result.gsPos2,
                ", acc_fpos: ", result.accFposBeforeRaise);
    if (result.raised) {
        logExposure(" Increasing exposure: acc_fpos: ", result.accFposBeforeRaise,
                    ", gs_pos2: ", result.gsPos2);
    }
    if (result.madeEven) {
        // One line shorter, whatever the text says; log readers know it so.
        logExposure(" Increasing exposure to make even: acc_fpos: ", result.accFposBeforeEven,
                    ", gs_pos2: ", result.gsPos2);
    }
    setField(kAccFpos, result.accFpos);
    setField(kGsPos1, result.gsPos1);
    setField(kGresPos, result.gresPos);
    logExposure(": gs_pos1: ", result.gsPos1, ", gres_pos: ", result.gresPos);
    m_exposure = result.applied.count();
}

// Pixel depth, colour, test pattern, gain, peek and poke, and what the board does not have.

#include <varnox/pipeline.h>

#include "plugin/board.h"

namespace Varnox {

namespace {

/// How a pixel-depth mode reaches the pixel shifter and the host's pipeline.
struct tsDelivery {
    int direction; // of the shift: 1 = to the left
    int amount;    // bits
    tePixelPacking packing;
};

constexpr tsDelivery kDelivery12{0, 0, ePacking12};
constexpr tsDelivery kDelivery8{1, 4, ePacking8};
constexpr tsDelivery kDelivery16{1, 4, ePacking16};

const tsDelivery* delivery(teBPPMode mode) {
    switch (mode) {
    case eBPP12:
        return &kDelivery12;
    case eBPP8:
        return &kDelivery8;
    case eBPP16:
        return &kDelivery16;
    case eBPP10: // lies between the others, and the FPGA image has no such delivery
        return nullptr;
    }
    return nullptr;
}

/// Registers above are no addresses of the sensor driver.
constexpr int kRegisterLimit = 0x10000;

constexpr unsigned short registerAddress(int reg) {
    return static_cast<unsigned short>(reg);
}

} // namespace

int tc3U5MGXSSensorBoard::setBPP(teBPPMode mode) {
    updateStatusFMT(eStatusProgress, "%s: %u", "setBPP", static_cast<unsigned int>(mode));
    const tsDelivery* const wanted = delivery(mode);
    if (wanted == nullptr) {
        return eValidationFailed;
    }
    if (!guarded([&] { m_fpga.pixelShift.setShift(wanted->direction, wanted->amount); })) {
        return eLinkFailure;
    }
    pipeline().setPixelPacking(wanted->packing);
    return eSuccess;
}

int tc3U5MGXSSensorBoard::setColor(bool color) {
    updateStatusFMT("setColor: %d", color ? 1 : 0);
    guarded([this, color] { m_fpga.badPixelReplacement.setColor(color); });
    return eSuccess;
}

int tc3U5MGXSSensorBoard::setTestPattern(teTestPattern pattern) {
    switch (pattern) {
    case eTestPatternOff:
        m_sensor.setTestPattern(tc3U5MGXS::ePatternOff);
        break;
    case eTestPatternDefault:
    case eTestPatternSensorFirst:
        m_sensor.setTestPattern(tc3U5MGXS::ePatternFirst);
        break;
    case eTestPatternSensorSecond:
        m_sensor.setTestPattern(tc3U5MGXS::ePatternSecond);
        break;
    default:
        return eInvalidArgument;
    }
    m_testPattern = pattern;
    return eSuccess;
}

int tc3U5MGXSSensorBoard::getTestPattern() {
    return m_testPattern;
}

int tc3U5MGXSSensorBoard::setDGain(tc3U5MGXS::teDGainCoarse gain) {
    m_sensor.setDGainCourse(gain);
    return eSuccess;
}

tc3U5MGXS::teDGainCoarse tc3U5MGXSSensorBoard::getDGain() {
    return m_sensor.getDGainCourse();
}

// ---- Peek and poke

int tc3U5MGXSSensorBoard::peek(int reg, int* value) {
    const auto shown = static_cast<unsigned int>(reg);
    if (reg >= kRegisterLimit) {
        updateStatusFMT(eStatusProgress, "Peek: Register 0x%03X too large", shown);
        return eInvalidArgument;
    }
    unsigned int stored = 0;
    const bool found = m_sensor.readShadowRegister(registerAddress(reg), stored) == 0;
    if (found) {
        *value = static_cast<int>(stored);
    } else {
        updateStatusFMT(eStatusProgress, "Peek: Register 0x%03X not found", shown);
    }
    // After "not found" as well, with the caller's own value: hosts wait for this line.
    updateStatusFMT(eStatusProgress, "Peek: Register 0x%03X: Value: 0x%04X", shown,
                    static_cast<unsigned int>(*value));
    return found ? eSuccess : eInvalidArgument;
}

int tc3U5MGXSSensorBoard::poke(int reg, int value) {
    const auto shown = static_cast<unsigned int>(reg);
    // Before the range check: a refused poke shows what was asked for.
    updateStatusFMT(eStatusProgress, "Poke: Register 0x%03X: Value: 0x%04X", shown,
                    static_cast<unsigned int>(value));
    if (reg >= kRegisterLimit) {
        updateStatusFMT(eStatusProgress, "Poke: Register 0x%03X too large", shown);
        return eInvalidArgument;
    }
    m_sensor.writeRegister(registerAddress(reg), static_cast<unsigned int>(value));
    return eSuccess;
}

// ---- What the board does not have

int tc3U5MGXSSensorBoard::setShutterMode(teShutterMode /*mode*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::getShutterMode() {
    return eShutterGlobal;
}
int tc3U5MGXSSensorBoard::power(bool /*on*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::setAnalogGain(int /*step*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::getAnalogGain(int* /*step*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::setBlackLevel(int /*level*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::getBlackLevel(int* /*level*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::setWhiteBalance(int /*red*/, int /*green*/, int /*blue*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::getWhiteBalance(int* /*red*/, int* /*green*/, int* /*blue*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::setGamma(int /*percent*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::getGamma(int* /*percent*/) {
    return eNotSupported;
}
int tc3U5MGXSSensorBoard::setStrobe(int /*microseconds*/) {
    return eNotSupported;
}

} // namespace Varnox

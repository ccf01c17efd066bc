// Sensor features: each maps onto one or two register fields.

#include <array>
#include <iostream>

#include "common/mutex_guard.h"
#include "common/print.h"
#include "sensor/registers.h"
#include "sensor/sensor.h"

using namespace sensorRegisters;

namespace {

constexpr unsigned char kDepthWithoutAnalogueGain = 12; // bits
constexpr unsigned int kRefused = 4;

/// Settings of the two analogue stages for one coarse step.
struct tsAnalogueStages {
    unsigned int first;
    unsigned int second;
};

constexpr std::array<tsAnalogueStages, 6> kAnalogueSteps{
    tsAnalogueStages{0, 0}, {1, 0}, {2, 0}, {2, 1}, {2, 2}, {2, 3}};

constexpr std::uint32_t areaRows(unsigned short start, unsigned short end) {
    return kAreaRowEnd.placed(end / sensorArray::kRowsPerUnit) |
           kAreaRowStart.placed(start / sensorArray::kRowsPerUnit);
}

constexpr std::uint32_t areaColumns(unsigned short start, unsigned short end) {
    return kAreaColumnEnd.placed(end / sensorArray::kColumnsPerUnit) |
           kAreaColumnStart.placed(start / sensorArray::kColumnsPerUnit);
}

constexpr std::uint16_t areaRegister(std::uint16_t first, unsigned int area) {
    return static_cast<std::uint16_t>(first + kAreaStride * area);
}

} // namespace

void tc3U5MGXS::setFrameState(teFrameState state) {
    setField(kFrameState, state);
}

void tc3U5MGXS::setFrameControlMode(teCtrlMode mode) {
    setField(kFrameControlMode, mode);
}

tc3U5MGXS::teCtrlMode tc3U5MGXS::getFrameControlMode() {
    return static_cast<teCtrlMode>(getField(kFrameControlMode));
}

void tc3U5MGXS::setBin(unsigned short bin) {
    const unsigned short state = bin == 2 ? 1 : 0;
    m_binning = state;
    setField(kBin, state);
}

void tc3U5MGXS::setVScanInvert(bool invert) {
    setField(kVScanInvert, invert ? 1 : 0);
    setField(kVScanInvert2, invert ? 1 : 0);
}

bool tc3U5MGXS::getVScanInvert() {
    return getField(kVScanInvert) != 0;
}

void tc3U5MGXS::setHScanInvert(bool invert) {
    setField(kHScanInvert, invert ? 1 : 0);
    setField(kHScanInvert2, invert ? 1 : 0);
}

bool tc3U5MGXS::getHScanInvert() {
    return getField(kHScanInvert) != 0;
}

// ---- Gain

unsigned int tc3U5MGXS::setAGainCourse(teAGainCoarse gain) {
    if (m_pixelDepth == kDepthWithoutAnalogueGain) {
        return kRefused;
    }
    const std::size_t step = gain;
    const tsAnalogueStages stages = kAnalogueSteps[step < kAnalogueSteps.size() ? step : 0];
    setField(kAGainCoarse, stages.first);
    setField(kAGainCoarse2, stages.second);
    return 0;
}

unsigned char tc3U5MGXS::getAGainCourse() {
    const unsigned int first = getField(kAGainCoarse);
    return static_cast<unsigned char>(first + getField(kAGainCoarse2));
}

unsigned int tc3U5MGXS::setAGainFine(unsigned char gain) {
    if (m_pixelDepth == kDepthWithoutAnalogueGain) {
        return kRefused;
    }
    setField(kAGainFine, gain);
    return 0;
}

unsigned char tc3U5MGXS::getAGainFine() {
    return static_cast<unsigned char>(getField(kAGainFine));
}

void tc3U5MGXS::setDGainCourse(teDGainCoarse gain) {
    setField(kDGainCoarse, gain);
}

tc3U5MGXS::teDGainCoarse tc3U5MGXS::getDGainCourse() {
    return static_cast<teDGainCoarse>(getField(kDGainCoarse));
}

void tc3U5MGXS::setDGainFine(unsigned char gain) {
    setField(kDGainFine, gain);
}

unsigned char tc3U5MGXS::getDGainFine() {
    return static_cast<unsigned char>(getField(kDGainFine));
}

// ---- Test images

void tc3U5MGXS::setTestPattern(teTestPattern pattern) {
    setField(sensorRegisters::kTestPattern, pattern);
}

int tc3U5MGXS::setTestSigEnable(bool on) {
    return writeRegister(kTestSignal.address, on ? kTestSignalOn : 0);
}

// ---- Readout areas

int tc3U5MGXS::resetROIAreas() {
    writeRegister(kAreaRows, kAreaRowsFull);
    writeRegister(kAreaColumns, kAreaColumnsFull);
    for (unsigned int area = 1; area < sensorArray::kAreas; ++area) {
        writeRegister(areaRegister(kAreaRows, area), kAreaRowsOff);
        writeRegister(areaRegister(kAreaColumns, area), kAreaColumnsOff);
    }
    m_readoutRows = 0;
    return 0;
}

int tc3U5MGXS::setROIArea(unsigned char num, unsigned short rowStart, unsigned short rowEnd,
                          unsigned short colStart, unsigned short colEnd) {
    const tcMutexGuard guard(m_registerLock);
    printFlushed(std::cout, "setROIArea Num: ", num, " RowS: ", rowStart, " RowE: ", rowEnd,
                 " ColS: ", colStart, " ColE: ", colEnd, "\n");
    if (num < sensorArray::kAreas) {
        writeRegister(areaRegister(kAreaRows, num), areaRows(rowStart, rowEnd));
        writeRegister(areaRegister(kAreaColumns, num), areaColumns(colStart, colEnd));
        // The signed difference, modulo 2^32.
        m_readoutRows += static_cast<std::uint32_t>(rowEnd - rowStart);
    }
    return 0;
}

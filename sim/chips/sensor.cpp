#include "sim/chips/sensor.h"

#include <algorithm>

#include "sensor/registers.h"
#include "sim/base/rules.h"
#include "sim/base/text.h"

namespace sim {

namespace {

using namespace sensorRegisters;
using limits::kLastColumnUnit;
using limits::kLastRowPair;

constexpr std::uint32_t kStopped = 0;
constexpr std::uint32_t kStreaming = 3;
constexpr std::uint32_t kLanesOn = 4;

constexpr std::uint16_t kLastAreaRegister =
    kAreaRows + kAreaStride * sensorArray::kAreas - 1; // column register of area 7

// Two rows are read in one line; some lines more go by between frames.
constexpr std::uint32_t kRowsPerLine = 2;
constexpr std::uint32_t kOverheadLines = 20;

bool isAreaRegister(std::uint16_t address) {
    return address >= kAreaRows && address <= kLastAreaRegister;
}

bool isRowRegister(std::uint16_t address) {
    return (address - kAreaRows) % kAreaStride == 0;
}

bool isTimingRegister(std::uint16_t address) {
    return (address >= kHdMax.address && address <= kGsPos2.address) || address == kHdPrd.address ||
           isAreaRegister(address);
}

std::uint32_t extract(const tsRegisterField& field, std::uint32_t value) {
    return (value >> field.shift) & field.mask;
}

const char* explain(teFate fate) {
    switch (fate) {
    case teFate::neverSent:
        return "never sent";
    case teFate::held:
        return "the sensor holds another value";
    case teFate::asleep:
        return "lost: the sensor was asleep";
    case teFate::refused:
        return "lost: the SPI transfer failed";
    case teFate::garbled:
        return "lost: the port was not set as the sensor needs it";
    case teFate::clearedByReset:
        return "cleared by reset";
    case teFate::clearedByPowerLoss:
        return "cleared by power loss";
    }
    return "";
}

} // namespace

void tcSensor::receive(std::uint32_t word, bool awake, const tsReceiverSettings& receiver) {
    const auto address =
        static_cast<std::uint16_t>((word >> sensorWire::kAddressShift) & sensorWire::kAddressMask);
    const std::uint32_t value = word & sensorWire::kValueMask;
    if (!awake) {
        m_fates[address] = teFate::asleep;
        tcText text;
        text.add("register ").hex(address, 2).add(" <- ").hex(value, 6);
        m_journal.violation(teRule::sensorAsleep, text.add(" while the sensor is asleep").view());
        return;
    }
    const std::uint32_t oldState = frameState();
    if (oldState == kStreaming && address == kFrameState.address) {
        checkStreaming(receiver); // what was in force until now
    }
    m_values[address] = value;
    m_written.set(address);
    m_fates[address] = teFate::held;
    if (isAreaRegister(address)) {
        m_areasBinned = field(kBin) == 1;
    }
    checkValue(address);
    if (frameState() == kStreaming) {
        if (oldState != kStreaming) {
            checkStreaming(receiver);
        } else if (isTimingRegister(address)) {
            m_unchecked = true;
            m_changedNs = m_journal.clock.now();
        }
    }
}

void tcSensor::missed(std::uint32_t word, teFate fate) {
    m_fates[(word >> sensorWire::kAddressShift) & sensorWire::kAddressMask] = fate;
}

void tcSensor::clear(teFate fate) {
    for (std::size_t address = 0; address < kRegisters; ++address) {
        if (m_written.test(address)) {
            m_fates[address] = fate;
        }
    }
    m_values.fill(0);
    m_written.reset();
    m_areasBinned = false;
    m_unchecked = false;
}

std::optional<std::uint32_t> tcSensor::value(std::uint16_t address) const {
    if (address >= kRegisters || !written(address)) {
        return std::nullopt;
    }
    return m_values[address];
}

std::map<std::uint16_t, std::uint32_t> tcSensor::values() const {
    std::map<std::uint16_t, std::uint32_t> result;
    for (std::uint16_t address = 0; address < kRegisters; ++address) {
        if (written(address)) {
            result[address] = m_values[address];
        }
    }
    return result;
}

std::uint32_t tcSensor::field(const tsRegisterField& wanted) const {
    return extract(wanted, m_values[wanted.address]);
}

std::uint32_t tcSensor::frameState() const {
    return field(kFrameState);
}

bool tcSensor::sending() const {
    return frameState() == kStreaming || frameState() == kLanesOn;
}

// Area 0 is the whole array until it is programmed; the others are off.
std::optional<tsReadoutArea> tcSensor::area(std::uint16_t number) const {
    const auto rowsAt = static_cast<std::uint16_t>(kAreaRows + kAreaStride * number);
    const auto columnsAt = static_cast<std::uint16_t>(rowsAt + 1);
    const std::uint32_t rows =
        written(rowsAt) ? m_values[rowsAt] : (number == 0 ? kAreaRowsFull : kAreaRowsOff);
    const std::uint32_t columns = written(columnsAt)
                                      ? m_values[columnsAt]
                                      : (number == 0 ? kAreaColumnsFull : kAreaColumnsOff);
    const std::uint32_t rowStart = extract(kAreaRowStart, rows);
    const std::uint32_t rowEnd = extract(kAreaRowEnd, rows);
    const std::uint32_t columnStart = extract(kAreaColumnStart, columns);
    const std::uint32_t columnEnd = extract(kAreaColumnEnd, columns);
    if (rowEnd > kLastRowPair || columnEnd > kLastColumnUnit || rowStart > rowEnd ||
        columnStart > columnEnd) {
        return std::nullopt;
    }
    using namespace sensorArray;
    return tsReadoutArea{rowStart * kRowsPerUnit, rowEnd * kRowsPerUnit + kRowsPerUnit - 1,
                         columnStart * kColumnsPerUnit,
                         columnEnd * kColumnsPerUnit + kColumnsPerUnit - 1};
}

tcSensor::tsImage tcSensor::image() const {
    tsImage result;
    for (std::uint16_t number = 0; number < sensorArray::kAreas; ++number) {
        if (const std::optional<tsReadoutArea> read = area(number)) {
            const std::uint32_t width = read->columnEnd - read->columnStart + 1;
            result.sameWidths = result.sameWidths && (result.width == 0 || result.width == width);
            result.width = result.width == 0 ? width : result.width;
            result.rows += read->rowEnd - read->rowStart + 1;
        }
    }
    result.height = m_areasBinned ? result.rows / 2 : result.rows;
    return result;
}

void tcSensor::limit(std::uint16_t address, bool allowed, const char* what) {
    if (!allowed) {
        tcText text;
        text.add("register ").hex(address, 2).add(" <- ").hex(m_values[address], 6).add(": ");
        m_journal.violation(teRule::registerLimits, text.add(what).view());
    }
}

void tcSensor::checkValue(std::uint16_t address) {
    switch (address) {
    case kFrameState.address:
        limit(address,
              frameState() == kStopped || frameState() == kStreaming || frameState() == kLanesOn,
              "frame_state is 0, 3 or 4");
        break;
    case kBin.address:
        limit(address, field(kBin) <= 1, "bin is 0 or 1");
        break;
    case kAGainCoarse.address:
        limit(address, field(kAGainCoarse) <= 2, "again_coarse is 0, 1 or 2");
        break;
    case kAGainCoarse2.address:
        limit(address, field(kAGainCoarse2) <= 3, "again_coarse2 is 0 to 3");
        break;
    case kClockRange.address:
        limit(address, m_values[address] == kClockRangeHigh || m_values[address] == kClockRangeLow,
              "clock_range is 0x2D90F or 0x4B90F");
        break;
    default:
        if (isAreaRegister(address)) {
            checkArea(address);
        }
    }
}

void tcSensor::checkArea(std::uint16_t address) {
    const std::uint32_t value = m_values[address];
    const bool rows = isRowRegister(address);
    if (value == (rows ? kAreaRowsOff : kAreaColumnsOff)) {
        return;
    }
    const std::uint32_t start = extract(rows ? kAreaRowStart : kAreaColumnStart, value);
    const std::uint32_t end = extract(rows ? kAreaRowEnd : kAreaColumnEnd, value);
    if (start > end || end > (rows ? kLastRowPair : kLastColumnUnit)) {
        tcText text;
        text.add("register ").hex(address, 2).add(" <- ").hex(value, 6).add(": ");
        text.add(rows ? "row pairs " : "column units ").decimal(start).add(" to ").decimal(end);
        m_journal.violation(teRule::areaLimits, text.view());
    }
}

void tcSensor::checkStreaming(const tsReceiverSettings& receiver) {
    m_unchecked = false;
    checkPositions();
    checkFrameLength(receiver);
    tcText text;
    if (field(kVScanInvert) != field(kVScanInvert2)) {
        m_journal.violation(teRule::scanDirection, "vertical: 0x90 bit 17 and 0x6C bit 3 differ");
    }
    if (field(kHScanInvert) != field(kHScanInvert2)) {
        m_journal.violation(teRule::scanDirection, "horizontal: 0x90 bit 16 and 0x6D bit 0 differ");
    }
    if ((field(kVScanInvert) != 0) != receiver.pairsFlip) {
        m_journal.violation(teRule::pairsFlip, receiver.pairsFlip
                                                   ? "pairs flip is set, vscan_invert is not"
                                                   : "vscan_invert is set, pairs flip is not");
    }
    const tsImage delivered = image();
    if (!delivered.sameWidths) {
        m_journal.violation(teRule::resolution, "the readout areas differ in width");
    } else if (delivered.width != receiver.width || delivered.height != receiver.height) {
        text.add("the sensor delivers ").decimal(delivered.width).add(" x ");
        text.decimal(delivered.height).add(", the frame-control core expects ");
        text.decimal(receiver.width).add(" x ").decimal(receiver.height);
        m_journal.violation(teRule::resolution, text.view());
    }
    if (written(kClockRange.address) && receiver.clockMhz > 0) {
        const std::uint32_t fitting = receiver.clockMhz >= 36.0 ? kClockRangeHigh : kClockRangeLow;
        if (field(kClockRange) != fitting) {
            tcText range;
            range.add("clock_range is ").hex(field(kClockRange), 5).add(" at ");
            range.fixed(receiver.clockMhz).add(" MHz; needed is ").hex(fitting, 5);
            m_journal.violation(teRule::clockRange, range.view());
        }
    }
}

// Only where registers set frame and exposure do the positions count from the frame's first line.
void tcSensor::checkPositions() {
    const std::uint32_t lines = field(kHdMax);
    if (field(kFrameControlMode) != 0 || !written(kHdMax.address) || !written(kGsPos1.address)) {
        return;
    }
    const std::uint32_t second = field(kGsPos2);
    const bool usesSecond = written(kGsPos2.address) && second != kNoPosition;
    const bool inOrder = field(kAccFpos) < field(kGsPos1) && field(kGsPos1) < lines &&
                         field(kGresPos) < lines &&
                         (!usesSecond || (field(kGsPos1) < second && second < lines));
    if (!inOrder) {
        tcText text;
        text.add("acc_fpos ").decimal(field(kAccFpos)).add(", gres_pos ").decimal(field(kGresPos));
        text.add(", gs_pos1 ").decimal(field(kGsPos1)).add(", gs_pos2 ").decimal(second);
        text.add(" in a frame of ").decimal(lines).add(" lines");
        m_journal.violation(teRule::exposurePositions, text.view());
    }
}

// With both shutter positions in use, the array is read twice.
std::uint32_t tcSensor::linesNeeded() const {
    const std::uint32_t once = image().rows / kRowsPerLine + kOverheadLines;
    const bool twice =
        field(kFrameControlMode) == 0 && written(kGsPos2.address) && field(kGsPos2) != kNoPosition;
    return twice ? 2 * once : once;
}

// The last line may be cut short: the receiver has had all rows long before. Rows take whole lines.
tsFrameClocks tcSensor::frameClocks() const {
    const std::uint64_t lines = field(kHdMax);
    const std::uint64_t lineClocks = field(kHdPrd) + 1;
    const bool said = lines != 0 && written(kHdPrd.address);
    return {said ? (lines - 1) * lineClocks : 0, image().rows / kRowsPerLine * lineClocks};
}

void tcSensor::checkFrameLength(const tsReceiverSettings& receiver) {
    const std::uint32_t lines = field(kHdMax);
    if (!written(kHdMax.address)) {
        return;
    }
    if (lines < linesNeeded()) {
        tcText text;
        text.add("a frame of ").decimal(lines).add(" lines; the readout takes ");
        m_journal.violation(teRule::frameLength, text.decimal(linesNeeded()).view());
    }
    const std::uint64_t lineClocks = field(kHdPrd) + 1;
    if (field(kFrameControlMode) == 0 && receiver.pulsesRun &&
        receiver.pulsePeriod < frameClocks().frame) {
        tcText text;
        text.add("frame-start pulses every ").decimal(receiver.pulsePeriod);
        text.add(" clocks; a frame takes ").decimal(lines * lineClocks);
        m_journal.violation(teRule::frameLength, text.view());
    }
}

void tcSensor::checkFrame(const tsReceiverSettings& receiver) {
    if (!m_unchecked) {
        return;
    }
    if (frameState() != kStreaming) {
        m_unchecked = false;
        return;
    }
    const double clock = receiver.clockMhz > 0 ? receiver.clockMhz : 36.0;
    const double frameNs = static_cast<double>(field(kHdMax)) *
                           static_cast<double>(field(kHdPrd) + 1) / clock * 1000.0;
    if (static_cast<double>(m_journal.clock.now() - m_changedNs) >= std::max(frameNs, 1.0)) {
        m_unchecked = false;
        checkPositions();
        checkFrameLength(receiver);
    }
}

tsSensorState tcSensor::decoded(double clockMhz) const {
    const tsImage delivered = image();
    tsSensorState state;
    state.frameState = frameState();
    state.frameControlMode = field(kFrameControlMode);
    state.rows = delivered.rows;
    state.width = delivered.width;
    state.height = delivered.height;
    state.binned = field(kBin) == 1;
    state.verticalInvert = field(kVScanInvert) != 0;
    state.horizontalInvert = field(kHScanInvert) != 0;
    state.analogueCoarse = field(kAGainCoarse) + field(kAGainCoarse2);
    state.analogueFine = field(kAGainFine);
    state.digitalCoarse = field(kDGainCoarse);
    state.digitalFine = field(kDGainFine);
    state.testPattern = field(kTestPattern);
    state.testSignal = field(kTestSignal) == kTestSignalOn;
    state.frameLines = field(kHdMax);
    state.lineClocks = field(kHdPrd) + 1;
    state.clockMhz = clockMhz;
    return state;
}

std::vector<tsShadowDifference>
tcSensor::differences(const std::map<std::uint16_t, std::uint32_t>& shadow) const {
    std::vector<tsShadowDifference> result;
    for (const auto& [address, copy] : shadow) {
        const std::optional<std::uint32_t> held = value(address);
        if (address >= kRegisters) {
            result.push_back({address, copy, held, "the wire has 10 address bits"});
        } else if (held != copy) {
            const bool cut = held && *held == (copy & sensorWire::kValueMask);
            result.push_back({address, copy, held,
                              cut ? "the wire has 22 value bits" : explain(m_fates[address])});
        }
    }
    for (const auto& [address, held] : values()) {
        if (shadow.count(address) == 0) {
            result.push_back({address, 0, held, "the copy does not know the register"});
        }
    }
    return result;
}

} // namespace sim

#include "sim/chips/fpga.h"

#include <algorithm>

#include "sensor/registers.h"
#include "sim/base/rules.h"
#include "sim/base/states.h"
#include "sim/base/text.h"

namespace sim {

namespace {

using namespace fpgaAddresses;
namespace frame = frameCtrlRegisters;

constexpr std::uint32_t kFull = 0xFFFF'FFFF;
constexpr std::uint32_t kFrameControlId = 0x4643'5231; // "FCR1"
constexpr std::uint32_t kFrameControlRevision = 0x0001'0002;
constexpr std::uint32_t kFrameControlCaps = 0x0000'000C; // twelve lanes
constexpr std::uint32_t kCoreRevision = 0x0001'0000;
constexpr std::uint32_t kTriggerBit = 1U; // of the control word: acts when written, reads 0

constexpr std::uint32_t addressOf(std::uint32_t block, std::uint32_t word) {
    return block + 4 * word;
}

constexpr std::uint32_t bits(const tsRegisterField& field) {
    return field.placed(field.mask);
}

} // namespace

std::size_t tcFpga::indexOf(std::uint32_t address) {
    const std::uint32_t offset = address - kRegion;
    return offset < kRegionLength ? offset / 4 : kWords;
}

tcFpga::tcFpga(tcJournal& journal, const tsFpgaFacts& facts, const tsConditions& now, tcLink& link)
    : m_journal(journal), m_now(now), m_link(link) {
    define(kBase, baseRegisters::kSysId0.address, teAccess::readOnly, kFull, facts.systemId[0]);
    define(kBase, baseRegisters::kSysId1.address, teAccess::readOnly, kFull, facts.systemId[1]);
    define(kPll, pllRegisters::kUpdate.address, teAccess::writeOnly, kFull, 0);
    define(kPll, pllRegisters::kCounter.address, teAccess::readWrite, kFull,
           pllRegisters::kCounter36MHz);
    defineFrameControl();
    defineHostCores();
}

void tcFpga::define(std::uint32_t block, std::uint32_t word, teAccess access, std::uint32_t mask,
                    std::uint32_t value) {
    const std::size_t index = indexOf(addressOf(block, word));
    m_rules[index] = {access, mask};
    m_values[index] = value;
}

void tcFpga::defineCore(std::uint32_t block, std::uint32_t id) {
    define(block, coreIdentity::kIdWord, teAccess::readOnly, kFull, id);
    define(block, coreIdentity::kRevisionWord, teAccess::readOnly, kFull, kCoreRevision);
}

void tcFpga::defineFrameControl() {
    using enum teAccess;
    const std::uint32_t resolution = static_cast<std::uint32_t>(sensorArray::kRows) << 16 |
                                     static_cast<std::uint32_t>(sensorArray::kColumns);
    define(kFrameCtrl, frame::kEnable.address, readWrite,
           bits(frame::kEnable) | bits(frame::kPairsFlip) | bits(frame::kHdrUpdate), 0);
    define(kFrameCtrl, frame::kAligned.address, readOnly, 0xF, 0);
    define(kFrameCtrl, frame::kLaneInversion.address, readWrite, bits(frame::kLaneInversion), 0);
    define(kFrameCtrl, frame::kIrqFlags.address, clearOnWrite, kFull, 0);
    define(kFrameCtrl, frame::kIrqMask.address, readWrite, kFull, 0);
    define(kFrameCtrl, frame::kRoiResCntH.address, readWrite,
           bits(frame::kRoiResCntH) | bits(frame::kRoiResCntW), 0x0404'01B0);
    define(kFrameCtrl, frame::kResolutionH.address, readWrite, kFull, resolution);
    define(kFrameCtrl, frame::kRoiY.address, readWrite, kFull, 0);
    define(kFrameCtrl, frame::kDpaReset.address, readWrite,
           bits(frame::kDpaReset) | bits(frame::kDpaFifoReset), 0);
    define(kFrameCtrl, frame::kDpaHold.address, readWrite, bits(frame::kDpaHold), 0);
    define(kFrameCtrl, frame::kDpaLock.address, readOnly, bits(frame::kDpaLock), 0);
    define(kFrameCtrl, frame::kIndexSync.address, writeOnly, kFull, 0);
    define(kFrameCtrl, frame::kFrameTimestamp.address, writeOnly, kFull, 0);
    define(kFrameCtrl, frame::kBackPorchY.address, readWrite,
           bits(frame::kBackPorchY) | bits(frame::kBackPorchX), 0);
    define(kFrameCtrl, frame::kCoreId.address, readOnly, kFull, kFrameControlId);
    define(kFrameCtrl, frame::kCoreRev.address, readOnly, kFull, kFrameControlRevision);
    define(kFrameCtrl, frame::kCoreCaps.address, readOnly, kFull, kFrameControlCaps);
}

void tcFpga::defineHostCores() {
    using enum teAccess;
    defineCore(kPwm, pwmRegisters::kId);
    define(kPwm, pwmRegisters::kControlWord, readWrite,
           pwmRegisters::kControlEnable | pwmRegisters::kControlInvert, 0);
    define(kPwm, pwmRegisters::kPeriodWord, readWrite, kFull, 0);
    define(kPwm, pwmRegisters::kDutyWord, readWrite, pwmRegisters::kDutyMax, 0);

    defineCore(kPixelShift, pixelShiftRegisters::kId);
    define(kPixelShift, pixelShiftRegisters::kControlWord, readWrite,
           pixelShiftRegisters::kControlReset | pixelShiftRegisters::kControlLeft |
               pixelShiftRegisters::kControlAmount,
           pixelShiftRegisters::kControlReset);

    using namespace badPixelRegisters;
    defineCore(kBadPixelControl, badPixelRegisters::kId);
    define(kBadPixelControl, kControlWord, readWrite,
           kControlReset | kControlRun | kControlApplyMap | kControlColor, kControlReset);
    define(kBadPixelControl, kStatusWord, readOnly, kStatusRunning, 0);
    define(kBadPixelControl, kRoiOriginWord, readWrite, kFull, 0);
    define(kBadPixelControl, kRoiSizeWord, readWrite, kFull, 0);
    define(kBadPixelControl, kEntriesWord, readWrite, kFull, 0);
    define(kBadPixelControl, kBufferWord, readWrite, kFull, 0);
    for (std::uint32_t entry = 0; entry < kTableEntries; ++entry) {
        define(kBadPixelTable, entry, readWrite, kFull, 0);
    }
    define(kBadPixelTakeOver, kCommitWord, writeOnly, 1, 0);
    define(kBadPixelTakeOver, kInForceWord, readOnly, kFull, 0);
}

bool tcFpga::silent(std::uint32_t address) const {
    // By teCore.
    constexpr std::array<std::uint32_t, kCores> identities{
        addressOf(kFrameCtrl, frame::kCoreId.address), addressOf(kPwm, coreIdentity::kIdWord),
        addressOf(kPixelShift, coreIdentity::kIdWord),
        addressOf(kBadPixelControl, coreIdentity::kIdWord)};
    for (std::size_t core = 0; core < kCores; ++core) {
        if (address == identities[core]) {
            return m_now.silent[core];
        }
    }
    return false;
}

std::uint32_t tcFpga::word(std::uint32_t block, std::uint32_t at) const {
    return m_values[indexOf(addressOf(block, at))];
}

void tcFpga::violation(teRule rule, const char* what, std::uint32_t address) {
    tcText text;
    m_journal.violation(rule, text.add(what).hex(address, 8).view());
}

bool tcFpga::badWidth(const char* what, std::uint32_t address, unsigned width) {
    if (width == 4 && address % 4 == 0) {
        return false;
    }
    tcText text;
    text.add(what).decimal(width).add(" bytes at ").hex(address, 8);
    m_journal.violation(teRule::fpgaWidth, text.view());
    return true;
}

// Words whose value follows from the state of something else.
void tcFpga::refresh(std::uint32_t address) {
    if (address == addressOf(kFrameCtrl, frame::kAligned.address) ||
        address == addressOf(kFrameCtrl, frame::kDpaLock.address)) {
        refreshStatus();
    } else if (address == addressOf(kBadPixelTakeOver, badPixelRegisters::kInForceWord)) {
        refreshBadPixels();
    }
}

void tcFpga::refreshStatus() {
    const tsLinkState state = m_link.state();
    // Bits without a meaning stay as a test has put them.
    const auto set = [this](const tsRegisterField& field, std::uint32_t value) {
        std::uint32_t& held = m_values[indexOf(addressOf(kFrameCtrl, field.address))];
        held = (held & ~bits(field)) | field.placed(value);
    };
    set(frame::kAligned, state.aligned ? 1 : 0);
    set(frame::kLocked, state.locked ? 1 : 0);
    set(frame::kRgLocked, state.rgLocked ? 1 : 0);
    set(frame::kGbLocked, state.gbLocked ? 1 : 0);
    set(frame::kDpaLock, state.dpaLock);
}

void tcFpga::refreshBadPixels() {
    if (m_takeOverPending && m_journal.clock.now() >= m_takeOverNs) {
        m_takeOverPending = false;
        m_values[indexOf(addressOf(kBadPixelTakeOver, badPixelRegisters::kInForceWord))] =
            m_takenEntries;
        m_tableInForce = m_takenTable;
    }
}

std::span<const std::uint32_t> tcFpga::badPixels() {
    refreshBadPixels();
    const std::size_t entries = word(kBadPixelTakeOver, badPixelRegisters::kInForceWord);
    return std::span(m_tableInForce).first(std::min(entries, m_tableInForce.size()));
}

std::uint32_t tcFpga::load(std::uint32_t address, unsigned width) {
    ++m_loads;
    const std::size_t index = indexOf(address);
    std::uint32_t value = kUnmodelledValue;
    const char* broken = nullptr;
    teRule rule = teRule::fpgaUnmodelled;
    if (width == 4 && address % 4 == 0 && index < kWords) {
        switch (m_rules[index].access) {
        case teAccess::none:
            broken = "a load from ";
            break;
        case teAccess::writeOnly:
            broken = "a load from ";
            rule = teRule::fpgaWriteOnly;
            break;
        default:
            refresh(address);
            value = silent(address) ? 0 : m_values[index];
        }
    }
    m_journal.event(teLine::read, address, value);
    if (!badWidth("a load of ", address, width) && broken != nullptr) {
        violation(rule, broken, address);
    }
    return value;
}

teWriteFate tcFpga::fateOf(std::uint32_t address, unsigned width, std::uint32_t value) const {
    if (width != 4 || address % 4 != 0) {
        return teWriteFate::width;
    }
    const std::size_t index = indexOf(address);
    const tsWord rules = index < kWords ? m_rules[index] : tsWord{};
    if (rules.access == teAccess::none) {
        return teWriteFate::noRegister;
    }
    if (rules.access == teAccess::readOnly) {
        return teWriteFate::readOnly;
    }
    if (m_now.stuck.test(index)) {
        return teWriteFate::stuck;
    }
    return (value & ~rules.mask) != 0 ? teWriteFate::reserved : teWriteFate::taken;
}

// Nobody can say what a write-only register holds.
void tcFpga::tell(std::uint32_t address, std::uint32_t value, teWriteFate fate) {
    if (!m_journal.keepsStates()) {
        return;
    }
    tcText text;
    text.add("FPGA-WORD ").hex(address, 8).add(" ");
    const std::optional<std::uint32_t> held = peek(address);
    if (held && m_rules[indexOf(address)].access != teAccess::writeOnly) {
        text.hex(*held, 8);
    } else {
        text.add("-");
    }
    text.add(" ").hex(value, 8).add(" ").add(describe(fate).word);
    m_journal.state(m_journal.clock.now(), text.view());
}

void tcFpga::store(std::uint32_t address, unsigned width, std::uint32_t value) {
    ++m_stores;
    m_journal.event(teLine::write, address, value);
    tell(address, value, fateOf(address, width, value));
    if (badWidth("a store of ", address, width)) {
        return;
    }
    const std::size_t index = indexOf(address);
    const tsWord rules = index < kWords ? m_rules[index] : tsWord{};
    if (rules.access == teAccess::none) {
        violation(teRule::fpgaUnmodelled, "a store to ", address);
        return;
    }
    if (rules.access == teAccess::readOnly) {
        violation(teRule::fpgaReadOnly, "a store to ", address);
        return;
    }
    if ((value & ~rules.mask) != 0) {
        tcText text;
        text.add("a store of ").hex(value, 8).add(" to ").hex(address, 8);
        m_journal.violation(teRule::fpgaReserved,
                            text.add("; bits that exist are ").hex(rules.mask, 8).view());
    }
    if (!m_now.stuck.test(index)) {
        apply(address, value & rules.mask);
    }
}

void tcFpga::apply(std::uint32_t address, std::uint32_t value) {
    std::uint32_t& held = m_values[indexOf(address)];
    const std::uint32_t old = held;
    held = m_rules[indexOf(address)].access == teAccess::clearOnWrite ? old & ~value : value;
    switch (address) {
    case addressOf(kFrameCtrl, frame::kEnable.address):
        held = value & ~kTriggerBit;
        updateLink();
        break;
    case addressOf(kFrameCtrl, frame::kLaneInversion.address):
        m_link.setInversion(value);
        break;
    case addressOf(kFrameCtrl, frame::kDpaReset.address):
        m_link.setResets(value);
        break;
    case addressOf(kFrameCtrl, frame::kDpaHold.address):
        m_link.setHold(value);
        break;
    case addressOf(kPll, pllRegisters::kCounter.address):
        applyClockCounter();
        break;
    case addressOf(kPll, pllRegisters::kUpdate.address):
        applyClockUpdate(value);
        break;
    case addressOf(kPwm, pwmRegisters::kControlWord):
    case addressOf(kPwm, pwmRegisters::kPeriodWord):
    case addressOf(kPwm, pwmRegisters::kDutyWord):
        applyPulses(old);
        break;
    case addressOf(kBadPixelControl, badPixelRegisters::kControlWord):
        m_values[indexOf(addressOf(kBadPixelControl, badPixelRegisters::kStatusWord))] =
            (value & badPixelRegisters::kControlRun) != 0 &&
                    (value & badPixelRegisters::kControlReset) == 0
                ? badPixelRegisters::kStatusRunning
                : 0;
        break;
    case addressOf(kBadPixelTakeOver, badPixelRegisters::kCommitWord):
        if (value == 1) {
            applyTable();
        }
        break;
    default:
        break;
    }
}

void tcFpga::applyClockCounter() {
    m_counterWritten = true;
}

void tcFpga::applyClockUpdate(std::uint32_t value) {
    if (value != 1) {
        violation(teRule::clockUpdate, "the update word takes only a 1; written was ", value);
        return;
    }
    if (!m_counterWritten) {
        m_journal.violation(teRule::clockUpdate, "an update without a new counter setting");
    }
    if (m_sending) {
        m_journal.violation(teRule::clockWhileSending,
                            "the clock was updated while the sensor sends");
    }
    m_counterWritten = false;
    const std::uint32_t counter = word(kPll, pllRegisters::kCounter.address);
    m_clockMhz = counter == pllRegisters::kCounter36MHz   ? 36.0
                 : counter == pllRegisters::kCounter24MHz ? 24.0
                                                          : 0.0;
    if (m_clockMhz == 0.0) {
        violation(teRule::clockUpdate, "no known clock belongs to the counter setting ", counter);
    }
    updateLink();
}

bool tcFpga::pulsesRun() const {
    return (word(kPwm, pwmRegisters::kControlWord) & pwmRegisters::kControlEnable) != 0 &&
           word(kPwm, pwmRegisters::kPeriodWord) >= pwmRegisters::kPeriodMin;
}

std::uint64_t tcFpga::nsOf(std::uint64_t clocks) const {
    if (m_clockMhz == 0.0) {
        return 0;
    }
    return static_cast<std::uint64_t>(static_cast<double>(clocks) * 1000.0 / m_clockMhz);
}

std::uint64_t tcFpga::pulseNs() const {
    return nsOf(word(kPwm, pwmRegisters::kPeriodWord));
}

// A pulse that comes while the sensor is still busy with a frame starts none.
std::uint64_t tcFpga::frameNs() const {
    const std::uint64_t pulse = word(kPwm, pwmRegisters::kPeriodWord);
    if (pulse == 0 || m_frameClocks <= pulse) {
        return pulseNs();
    }
    return (m_frameClocks + pulse - 1) / pulse * pulseNs();
}

// Whole pulses take as long as the pulses do, rounded or not.
std::uint64_t tcFpga::busyNs() const {
    const std::uint64_t pulse = word(kPwm, pwmRegisters::kPeriodWord);
    return pulse == 0 ? 0 : m_frameClocks / pulse * pulseNs() + nsOf(m_frameClocks % pulse);
}

// Rows that take longer than the frame, by wrong registers, still leave a pause between two frames.
std::uint64_t tcFpga::rowsNs() const {
    const std::uint64_t frame = frameNs();
    return std::min(nsOf(m_rowClocks), frame - frame / 16);
}

void tcFpga::timePulses() {
    const std::uint64_t now = m_journal.clock.now();
    const std::uint64_t period = pulsesRun() ? pulseNs() : 0;
    if (period == m_pulses.periodNs && m_clockMhz == m_pulsesMhz) {
        return;
    }
    if (period == 0 || m_pulses.periodNs == 0) {
        m_pulses = {period, period == 0 ? 0 : now};
    } else {
        const std::uint64_t nextNs = m_pulses.nextNs(now);
        const std::uint64_t sinceNs = nextNs == now ? 0 : m_pulses.periodNs - (nextNs - now);
        const auto counted =
            static_cast<std::uint64_t>(static_cast<double>(sinceNs) * m_pulsesMhz / m_clockMhz);
        m_pulses = {period, counted == 0 || counted >= period ? now : now + (period - counted)};
    }
    m_pulsesMhz = m_clockMhz;
}

std::uint64_t tcFpga::pulseLengthNs() const {
    return m_clockMhz == 0.0 ? 0
                             : static_cast<std::uint64_t>(
                                   static_cast<double>(word(kPwm, pwmRegisters::kDutyWord)) *
                                   1000.0 / m_clockMhz);
}

bool tcFpga::pulsesInverted() const {
    return (word(kPwm, pwmRegisters::kControlWord) & pwmRegisters::kControlInvert) != 0;
}

void tcFpga::applyPulses(std::uint32_t) {
    const std::uint32_t period = word(kPwm, pwmRegisters::kPeriodWord);
    const std::uint32_t duty = word(kPwm, pwmRegisters::kDutyWord);
    if ((word(kPwm, pwmRegisters::kControlWord) & pwmRegisters::kControlEnable) != 0 &&
        (period < pwmRegisters::kPeriodMin || duty >= period)) {
        tcText text;
        text.add("pulses of ").decimal(duty).add(" clocks run with a period of ").decimal(period);
        m_journal.violation(teRule::pulsePeriod, text.add(" clocks").view());
    }
    updateLink();
}

void tcFpga::checkTable(std::uint32_t entries) {
    if (entries > badPixelRegisters::kTableEntries) {
        violation(teRule::badPixelTable, "the number of entries is ", entries);
        return;
    }
    for (std::uint32_t at = 0; at < entries; ++at) {
        const std::uint32_t entry = word(kBadPixelTable, at);
        const bool inside = (entry >> 16) < static_cast<std::uint32_t>(sensorArray::kRows) &&
                            (entry & 0xFFFF) < static_cast<std::uint32_t>(sensorArray::kColumns);
        if (!inside || (at > 0 && entry <= word(kBadPixelTable, at - 1))) {
            tcText text;
            text.add("entry ").decimal(at).add(" is x ").decimal(entry & 0xFFFF).add(", y ");
            text.decimal(entry >> 16).add(inside ? ": not in raster order" : ": outside");
            m_journal.violation(teRule::badPixelTable, text.view());
            return;
        }
    }
}

// With frames flowing the table waits for the next one.
void tcFpga::applyTable() {
    refreshBadPixels();
    m_takenEntries = word(kBadPixelControl, badPixelRegisters::kEntriesWord);
    checkTable(m_takenEntries);
    std::copy_n(&m_values[indexOf(kBadPixelTable)], m_takenTable.size(), m_takenTable.begin());
    m_takeOverPending = true;
    m_takeOverNs = m_journal.clock.now() + (m_streaming && pulsesRun() ? pulseNs() : 0);
}

void tcFpga::updateLink() {
    timePulses();
    tsLinkInputs inputs;
    inputs.enabled = (word(kFrameCtrl, frame::kEnable.address) & bits(frame::kEnable)) != 0;
    inputs.sensorSending = m_sending;
    inputs.streaming = m_streaming;
    inputs.pulsesRun = pulsesRun();
    inputs.pulses = m_pulses;
    inputs.busyNs = busyNs();
    inputs.frameNs = frameNs();
    inputs.rowsNs = rowsNs();
    inputs.clockKnown = m_clockMhz > 0;
    m_link.setInputs(inputs);
}

void tcFpga::sensorChanged(bool sending, bool streaming, std::uint64_t frameClocks,
                           std::uint64_t rowClocks) {
    m_sending = sending;
    m_streaming = streaming;
    m_frameClocks = frameClocks;
    m_rowClocks = rowClocks;
    updateLink();
}

tsReceiverSettings tcFpga::receiverSettings() const {
    const std::uint32_t resolution = word(kFrameCtrl, frame::kResolutionH.address);
    tsReceiverSettings settings;
    settings.width = resolution & 0xFFFF;
    settings.height = resolution >> 16;
    settings.pairsFlip =
        (word(kFrameCtrl, frame::kPairsFlip.address) & bits(frame::kPairsFlip)) != 0;
    settings.clockMhz = m_clockMhz;
    settings.pulsesRun = pulsesRun();
    settings.pulsePeriod = word(kPwm, pwmRegisters::kPeriodWord);
    return settings;
}

std::optional<std::uint32_t> tcFpga::peek(std::uint32_t address) {
    const std::size_t index = indexOf(address);
    if (index >= kWords || address % 4 != 0 || m_rules[index].access == teAccess::none) {
        return std::nullopt;
    }
    refresh(address);
    return silent(address) ? 0 : m_values[index];
}

bool tcFpga::poke(std::uint32_t address, std::uint32_t value) {
    const std::size_t index = indexOf(address);
    if (index >= kWords || address % 4 != 0 || m_rules[index].access == teAccess::none) {
        return false;
    }
    if (m_rules[index].access == teAccess::readWrite) {
        apply(address, value & m_rules[index].mask);
    }
    m_values[index] = value; // as it is, reserved bits as well
    return true;
}

} // namespace sim

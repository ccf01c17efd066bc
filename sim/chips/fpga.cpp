#include "sim/chips/fpga.h"

#include <algorithm>
#include <array>

#include <varnox/core_registers.h>

#include "sensor/registers.h"
#include "sim/base/rules.h"
#include "sim/base/states.h"
#include "sim/base/text.h"

namespace sim {

namespace {

using namespace fpgaAddresses;
namespace frame = frameCtrlRegisters;

constexpr std::uint32_t kTriggerBit = 1U; // of the control word: acts when written, reads 0

} // namespace

tcFpga::tcFpga(tcJournal& journal, const tsFpgaFacts& facts, const tsConditions& now, tcLink& link)
    : m_journal(journal), m_now(now), m_link(link), m_words(facts), m_table(journal) {}

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

// A fault may keep a word from changing.
bool tcFpga::stuck(std::uint32_t address) const {
    const std::optional<std::size_t> index = tcFpgaWords::indexOf(address);
    return index && m_now.stuck.test(*index);
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
        std::uint32_t& held = m_words.at(addressOf(kFrameCtrl, field.address));
        held = (held & ~bitsOf(field)) | field.placed(value);
    };
    set(frame::kAligned, state.aligned ? 1 : 0);
    set(frame::kLocked, state.locked ? 1 : 0);
    set(frame::kRgLocked, state.rgLocked ? 1 : 0);
    set(frame::kGbLocked, state.gbLocked ? 1 : 0);
    set(frame::kDpaLock, state.dpaLock);
}

void tcFpga::refreshBadPixels() {
    if (const std::optional<std::uint32_t> entries = m_table.newlyInForce()) {
        m_words.at(addressOf(kBadPixelTakeOver, badPixelRegisters::kInForceWord)) = *entries;
    }
}

std::span<const std::uint32_t> tcFpga::badPixels() {
    refreshBadPixels();
    const std::size_t entries = m_words.word(kBadPixelTakeOver, badPixelRegisters::kInForceWord);
    const std::span<const std::uint32_t> words = m_table.inForce();
    return words.first(std::min(entries, words.size()));
}

std::uint32_t tcFpga::load(std::uint32_t address, unsigned width) {
    ++m_loads;
    std::uint32_t value = kUnmodelledValue;
    const char* broken = nullptr;
    teRule rule = teRule::fpgaUnmodelled;
    if (width == 4 && tcFpgaWords::indexOf(address)) {
        switch (m_words.rulesOf(address).access) {
        case teAccess::none:
            broken = "a load from ";
            break;
        case teAccess::writeOnly:
            broken = "a load from ";
            rule = teRule::fpgaWriteOnly;
            break;
        default:
            refresh(address);
            value = silent(address) ? 0 : m_words.at(address);
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
    const tcFpgaWords::tsWord rules = m_words.rulesOf(address);
    if (rules.access == teAccess::none) {
        return teWriteFate::noRegister;
    }
    if (rules.access == teAccess::readOnly) {
        return teWriteFate::readOnly;
    }
    if (stuck(address)) {
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
    if (held && m_words.rulesOf(address).access != teAccess::writeOnly) {
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
    const tcFpgaWords::tsWord rules = m_words.rulesOf(address);
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
    if (!stuck(address)) {
        apply(address, value & rules.mask);
    }
}

void tcFpga::apply(std::uint32_t address, std::uint32_t value) {
    std::uint32_t& held = m_words.at(address);
    held = m_words.rulesOf(address).access == teAccess::clearOnWrite ? held & ~value : value;
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
        applyPulses();
        break;
    case addressOf(kBadPixelControl, badPixelRegisters::kControlWord):
        m_words.at(addressOf(kBadPixelControl, badPixelRegisters::kStatusWord)) =
            (value & badPixelRegisters::kControlRun) != 0 &&
                    (value & badPixelRegisters::kControlReset) == 0
                ? badPixelRegisters::kStatusRunning
                : 0;
        break;
    case addressOf(kBadPixelTakeOver, badPixelRegisters::kCommitWord):
        if (value == 1) {
            takeTableOver();
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
    const std::uint32_t counter = m_words.word(kPll, pllRegisters::kCounter.address);
    m_clockMhz = counter == pllRegisters::kCounter36MHz   ? 36.0
                 : counter == pllRegisters::kCounter24MHz ? 24.0
                                                          : 0.0;
    if (m_clockMhz == 0.0) {
        violation(teRule::clockUpdate, "no known clock belongs to the counter setting ", counter);
    }
    updateLink();
}

void tcFpga::applyPulses() {
    const std::uint32_t period = m_words.word(kPwm, pwmRegisters::kPeriodWord);
    const std::uint32_t duty = m_words.word(kPwm, pwmRegisters::kDutyWord);
    if ((m_words.word(kPwm, pwmRegisters::kControlWord) & pwmRegisters::kControlEnable) != 0 &&
        (period < limits::kShortestPulsePeriod || duty >= period)) {
        tcText text;
        text.add("pulses of ").decimal(duty).add(" clocks run with a period of ").decimal(period);
        m_journal.violation(teRule::pulsePeriod, text.add(" clocks").view());
    }
    updateLink();
}

// With frames flowing the table waits for the next one.
void tcFpga::takeTableOver() {
    refreshBadPixels();
    m_table.takeOver(m_words.span(kBadPixelTable, badPixelRegisters::kTableEntries),
                     m_words.word(kBadPixelControl, badPixelRegisters::kEntriesWord),
                     m_streaming && m_pulses.run() ? m_pulses.periodNs() : 0);
}

void tcFpga::updateLink() {
    const std::uint32_t control = m_words.word(kPwm, pwmRegisters::kControlWord);
    m_pulses.set({(control & pwmRegisters::kControlEnable) != 0,
                  (control & pwmRegisters::kControlInvert) != 0,
                  m_words.word(kPwm, pwmRegisters::kPeriodWord),
                  m_words.word(kPwm, pwmRegisters::kDutyWord)},
                 m_clockMhz, m_journal.clock.now());
    tsLinkInputs inputs;
    inputs.enabled =
        (m_words.word(kFrameCtrl, frame::kEnable.address) & bitsOf(frame::kEnable)) != 0;
    inputs.sensorSending = m_sending;
    inputs.clockKnown = m_clockMhz > 0;
    inputs.frames = m_pulses.frames(m_streaming, m_frameClocks);
    m_link.setInputs(inputs);
}

void tcFpga::sensorChanged(bool sending, bool streaming, const tsFrameClocks& clocks) {
    m_sending = sending;
    m_streaming = streaming;
    m_frameClocks = clocks;
    updateLink();
}

tsReceiverSettings tcFpga::receiverSettings() const {
    const std::uint32_t resolution = m_words.word(kFrameCtrl, frame::kResolutionH.address);
    tsReceiverSettings settings;
    settings.width = resolution & 0xFFFF;
    settings.height = resolution >> 16;
    settings.pairsFlip =
        (m_words.word(kFrameCtrl, frame::kPairsFlip.address) & bitsOf(frame::kPairsFlip)) != 0;
    settings.clockMhz = m_clockMhz;
    settings.pulsesRun = m_pulses.run();
    settings.pulsePeriod = m_words.word(kPwm, pwmRegisters::kPeriodWord);
    return settings;
}

std::optional<std::uint32_t> tcFpga::peek(std::uint32_t address) {
    if (m_words.rulesOf(address).access == teAccess::none) {
        return std::nullopt;
    }
    refresh(address);
    return silent(address) ? 0 : m_words.at(address);
}

bool tcFpga::poke(std::uint32_t address, std::uint32_t value) {
    const tcFpgaWords::tsWord rules = m_words.rulesOf(address);
    if (rules.access == teAccess::none) {
        return false;
    }
    if (rules.access == teAccess::readWrite) {
        apply(address, value & rules.mask);
    }
    m_words.at(address) = value; // as it is, reserved bits as well
    return true;
}

} // namespace sim

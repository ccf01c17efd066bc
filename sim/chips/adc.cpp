#include "sim/chips/adc.h"

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "sim/base/rules.h"
#include "sim/base/text.h"

namespace sim {

namespace {

constexpr std::uint8_t kSingleEnded = 0x80;
constexpr std::uint8_t kReference = 0x08; // PD1
constexpr double kReferenceVolts = 2.5;
constexpr double kSteps = 4096;
constexpr std::uint32_t kFullScale = 0xFFF;
constexpr std::uint32_t kFloating = 0xFFFF; // the bus is pulled up
constexpr std::uint64_t kByteNs = 90'000;   // nine bits at 100 kHz

} // namespace

int tcAdc::answer(std::uint16_t address, int refusal) const {
    if (refusal != 0) {
        return refusal;
    }
    return address == kAddress ? m_now.adcError : ENXIO;
}

void tcAdc::busTime(std::size_t bytes) {
    m_journal.spend((1 + bytes) * kByteNs); // the address goes first
}

// What the wires do, for whoever looks at them: "I2C 0x49 R ack 07 AE".
void tcAdc::wire(std::uint16_t address, bool reads, bool acknowledged,
                 std::span<const std::uint8_t> bytes) {
    if (!m_journal.keepsStates()) {
        return;
    }
    constexpr std::size_t longest = 64; // bytes that fit into a line
    tcText text;
    text.add("I2C ").hex(address, 2).add(reads ? " R " : " W ").add(acknowledged ? "ack" : "nack");
    for (const std::uint8_t byte :
         bytes.subspan(0, acknowledged ? std::min(bytes.size(), longest) : 0)) {
        text.add(" ").bareHex(byte, 2);
    }
    m_journal.state(m_journal.clock.now(), text.view());
}

void tcAdc::stop() {
    m_commanded = false;
    m_journal.state(m_journal.clock.now(), "I2C-STOP");
}

int tcAdc::write(std::uint16_t address, std::span<const std::uint8_t> bytes, int refusal) {
    const std::uint64_t startNs = m_journal.clock.now();
    const int error = answer(address, refusal);
    for (const std::uint8_t byte : bytes) {
        m_journal.event(teLine::adcCommand, 0, byte, error);
    }
    if (error == kShort) {
        return -kShort;
    }
    wire(address, false, error == 0, bytes);
    busTime(error == 0 ? bytes.size() : 0);
    if (error == 0) {
        for (const std::uint8_t byte : bytes) {
            command(byte, startNs);
        }
    }
    return -error;
}

// The input is sampled with the command; the reference must have settled by then.
void tcAdc::command(std::uint8_t byte, std::uint64_t startNs) {
    m_command = byte;
    m_commanded = true;
    const bool on = (byte & kReference) != 0;
    m_first = on && !m_referenceOn;
    if (m_first) {
        m_restNs = m_journal.clock.now();
    }
    m_settled =
        on && !m_first && startNs >= m_restNs && startNs - m_restNs >= limits::kReferenceSettlesNs;
    m_referenceOn = on;
}

// C2 to C0 with SD set: the even channels, then the odd ones.
unsigned tcAdc::positiveChannel() const {
    const unsigned bits = (m_command >> 4) & 7U;
    return ((bits & 3U) << 1) | (bits >> 2);
}

// The 3.3 V supplies come through dividers by two.
double tcAdc::inputVolts(unsigned channel) const {
    switch (channel) {
    case 0:
        return m_supplies.volts(teRail::core);
    case 1:
        return m_supplies.volts(teRail::avddh) / 2;
    case 4:
        return m_supplies.volts(teRail::svdd) / 2;
    default:
        return 0;
    }
}

// Whether nobody drives the bus when the present channel's reading is due.
bool tcAdc::floats() const {
    switch (positiveChannel()) {
    case 0:
        return m_now.adcFloats || m_supplies.unreadable(teRail::core);
    case 1:
        return m_now.adcFloats || m_supplies.unreadable(teRail::avddh);
    case 4:
        return m_now.adcFloats || m_supplies.unreadable(teRail::svdd);
    default:
        return m_now.adcFloats;
    }
}

std::uint32_t tcAdc::sample() const {
    if (floats()) {
        return kFloating;
    }
    if (!m_settled) {
        return kFullScale; // whatever is measured is above a reference that is not there yet
    }
    const unsigned channel = positiveChannel();
    double volts = inputVolts(channel);
    if ((m_command & kSingleEnded) == 0) {
        volts -= inputVolts(channel ^ 1U); // against its neighbour
    }
    const double steps = std::floor(volts / kReferenceVolts * kSteps + 0.5);
    return steps <= 0 ? 0 : (steps >= kSteps ? kFullScale : static_cast<std::uint32_t>(steps));
}

void tcAdc::checkConversion() {
    tcText text;
    if (!m_referenceOn) {
        m_journal.violation(teRule::adcReference,
                            text.add("channel ")
                                .decimal(positiveChannel())
                                .add(" was converted with the internal reference off")
                                .view());
    } else if (!m_settled && !m_first) {
        m_journal.violation(teRule::adcReference,
                            text.add("channel ")
                                .decimal(positiveChannel())
                                .add(" was converted before the reference had 5000 us to settle")
                                .view());
    }
    switch (positiveChannel()) {
    case 0:
        m_supplies.checkMeasurable(teRail::core);
        break;
    case 1:
        m_supplies.checkMeasurable(teRail::avddh);
        break;
    case 4:
        m_supplies.checkMeasurable(teRail::svdd);
        break;
    default:
        break;
    }
}

int tcAdc::read(std::uint16_t address, std::span<std::uint8_t> bytes, int refusal) {
    const int error = answer(address, refusal);
    if (error != 0) {
        m_journal.event(teLine::adc, positiveChannel(), 0, error);
        if (error == kShort) {
            return -kShort;
        }
        wire(address, true, false, {});
        busTime(0);
        return -error;
    }
    if (bytes.empty()) { // somebody looks whether there is a chip: nothing is converted
        wire(address, true, true, bytes);
        busTime(0);
        return 0;
    }
    // A single byte without a command is no reading: somebody looks whether there is a chip.
    const bool reading = bytes.size() > 1 || m_commanded;
    if (reading) {
        checkConversion();
    }
    const std::uint32_t result = sample();
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        bytes[at] = at == 0   ? static_cast<std::uint8_t>(result >> 8)
                    : at == 1 ? static_cast<std::uint8_t>(result & 0xFF)
                              : std::uint8_t{0xFF}; // nobody drives the bus any more
    }
    m_journal.event(teLine::adc, positiveChannel(), result);
    wire(address, true, true, bytes);
    busTime(bytes.size());
    if (reading && !m_settled) {
        m_restNs = m_journal.clock.now();
    }
    return 0;
}

} // namespace sim

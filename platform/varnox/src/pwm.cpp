#include <varnox/pwm.h>

#include <cmath>
#include <iostream>
#include <limits>
#include <sstream>
#include <stdexcept>

#include <varnox/core_registers.h>

#include "core_text.h"

namespace {

using namespace pwmRegisters;

constexpr std::uint32_t kBlockWords = coreIdentity::kRevisionWord + 1;

constexpr double kHertzPerMegahertz = 1e6;

/// \return the number as a person writes it, without trailing zeros
std::string numberText(double value) {
    std::ostringstream text;
    text.precision(std::numeric_limits<double>::digits10);
    text << value;
    return text.str();
}

} // namespace

tcPwm::tcPwm(std::uint32_t base, double clock, const std::string& name)
    : clockMhz(clock),
      m_registers(base, kBlockWords),
      m_title("tcPwm " + (name.empty() ? "" : name + " ") + "at " + hexText(base)),
      m_initialized(m_registers.mapped() && m_registers.read(coreIdentity::kIdWord) == kId) {}

void tcPwm::enableCore(bool enable) {
    requireCore("enableCore");
    setControlBit(kControlEnable, enable);
}

void tcPwm::setInvertPulse(bool invert) {
    requireCore("setInvertPulse");
    setControlBit(kControlInvert, invert);
}

void tcPwm::setDutyClks(std::uint32_t clocks) {
    requireCore("setDutyClks");
    if (clocks > kDutyMax)
        throw std::runtime_error(m_title + ": a pulse of " + std::to_string(clocks) +
                                 " clocks does not fit; it takes 0 to " + std::to_string(kDutyMax));
    m_registers.write(kDutyWord, clocks);
}

void tcPwm::setPeriodFreq(double hertz) {
    requireCore("setPeriodFreq");
    setPeriodClocks(clockMhz * kHertzPerMegahertz / hertz, numberText(hertz) + " Hz");
}

void tcPwm::setPeriodTime(std::int64_t microseconds) {
    requireCore("setPeriodTime");
    setPeriodClocks(clockMhz * static_cast<double>(microseconds),
                    std::to_string(microseconds) + " us");
}

void tcPwm::setPeriodClocks(double clocks, const std::string& asked) {
    constexpr std::uint32_t kPeriodMax = std::numeric_limits<std::uint32_t>::max();
    const double whole = std::round(clocks);
    if (!(whole >= kPeriodMin && whole <= kPeriodMax)) // also what is not a number
        throw std::runtime_error(m_title + ": a period of " + asked + " is " + numberText(whole) +
                                 " clocks; it takes " + std::to_string(kPeriodMin) + " to " +
                                 std::to_string(kPeriodMax));
    m_registers.write(kPeriodWord, static_cast<std::uint32_t>(whole));
}

void tcPwm::setControlBit(std::uint32_t bit, bool set) {
    const std::uint32_t control = m_registers.read(kControlWord);
    m_registers.write(kControlWord, set ? control | bit : control & ~bit);
}

void tcPwm::requireCore(const char* operation) const {
    if (!m_initialized)
        throw std::runtime_error(m_title + ": " + operation + ": the core is not there");
}

void tcPwm::dumpRegisters() const {
    if (!m_initialized) {
        std::cout << m_title + ": the core is not there\n";
        return;
    }
    // One load a statement: the order within one is the compiler's affair.
    const std::uint32_t revision = m_registers.read(coreIdentity::kRevisionWord);
    const std::uint32_t control = m_registers.read(kControlWord);
    const std::uint32_t period = m_registers.read(kPeriodWord);
    const std::uint32_t duty = m_registers.read(kDutyWord);
    std::cout << m_title + ": revision " + hexText(revision) + ", control " + hexText(control) +
                     ", period " + std::to_string(period) + " clocks, pulse " +
                     std::to_string(duty) + " clocks\n";
}

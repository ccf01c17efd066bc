#include <varnox/pixel_shift.h>

#include <iostream>
#include <string>

#include <varnox/core_registers.h>

#include "core_text.h"

namespace {

using namespace pixelShiftRegisters;

constexpr std::uint32_t kBlockWords = coreIdentity::kRevisionWord + 1;

} // namespace

tcPixelShift::tcPixelShift(std::uint32_t base)
    : m_registers(base, kBlockWords),
      m_initialized(m_registers.mapped() && m_registers.read(coreIdentity::kIdWord) == kId),
      m_base(base) {}

bool tcPixelShift::setShift(int direction, int amount) {
    const bool inRange = (direction == 0 || direction == 1) && amount >= 0 &&
                         amount <= static_cast<int>(kControlAmount);
    if (!inRange || !usable("setShift"))
        return false;
    const std::uint32_t kept = m_registers.read(kControlWord) & ~(kControlLeft | kControlAmount);
    const std::uint32_t left = direction == 1 ? kControlLeft : 0;
    m_registers.write(kControlWord, kept | left | static_cast<std::uint32_t>(amount));
    return true;
}

void tcPixelShift::reset(bool hold) {
    if (!usable("reset"))
        return;
    const std::uint32_t control = m_registers.read(kControlWord);
    m_registers.write(kControlWord, hold ? control | kControlReset : control & ~kControlReset);
}

bool tcPixelShift::usable(const char* operation) {
    if (!m_initialized && !m_reported) {
        m_reported = true;
        std::cerr << "tcPixelShift at " + hexText(m_base) + ": " + operation +
                         ": the core is not there\n";
    }
    return m_initialized;
}

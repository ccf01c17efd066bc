/// \file
/// The FPGA's pixel shifter.
#pragma once

#include <cstdint>

#include <varnox/export.h>
#include <varnox/mapped_registers.h>

/// Shifts every pixel by some bits. Takes no lock. Calls to a core that is not initialized are
/// reported once on standard error and do nothing.
class VARNOX_API tcPixelShift {
public:
    /// \param base physical address of the core
    explicit tcPixelShift(std::uint32_t base);

    /// \return whether the core is mapped and identifies itself
    [[nodiscard]] bool initialized() const { return m_initialized; }

    /// \param direction 0 = to the right, 1 = to the left
    /// \param amount    bits, 0 to 15
    /// \return false when an argument is out of range or the core is not initialized; nothing is
    ///         written then
    bool setShift(int direction, int amount);

    /// \param hold true: hold the core in reset; false: let it run
    void reset(bool hold);

private:
    bool usable(const char* operation);

    tcMappedRegisters m_registers;
    bool m_initialized;
    std::uint32_t m_base; // physical
    bool m_reported = false;
};

/// \file
/// The FPGA's pulse generator.
#pragma once

#include <cstdint>
#include <string>

#include <varnox/export.h>
#include <varnox/mapped_registers.h>

/// Drives the sensor's frame-start pulse. Takes no lock. A value that the counters cannot hold
/// throws `std::runtime_error` and writes nothing; so does any setter of a core that is not
/// initialized.
class VARNOX_API tcPwm {
public:
    /// \param base     physical address of the core
    /// \param clockMhz clock that the core counts [MHz]
    /// \param name     for the register dump and the texts of exceptions; may be empty
    tcPwm(std::uint32_t base, double clockMhz, const std::string& name);

    /// \return whether the core is mapped and identifies itself
    [[nodiscard]] bool initialized() const { return m_initialized; }

    /// \param enable true: the pulses run
    void enableCore(bool enable);
    /// \param invert true: the pulse is low
    void setInvertPulse(bool invert);
    /// \param clocks length of the pulse, 0 to 65535
    void setDutyClks(std::uint32_t clocks);
    /// \param hertz pulses a second; the period, rounded to whole clocks, must come to 2 to
    ///              2^32 - 1 of them
    void setPeriodFreq(double hertz);
    /// \param microseconds period; rounded to whole clocks, it must come to 2 to 2^32 - 1 of them
    void setPeriodTime(std::int64_t microseconds);

    /// Prints the registers to standard output.
    void dumpRegisters() const;

    double clockMhz; ///< clock that the core counts [MHz]; whoever changes that clock changes this

private:
    void setPeriodClocks(double clocks, const std::string& asked);
    void setControlBit(std::uint32_t bit, bool set);
    void requireCore(const char* operation) const;

    tcMappedRegisters m_registers;
    std::string m_title;
    bool m_initialized;
};

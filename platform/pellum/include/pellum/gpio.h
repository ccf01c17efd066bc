/// \file
/// Board GPIO lines, through the kernel's GPIO character devices (line uAPI v2).
#pragma once

#include <memory>

#include <pellum/export.h>

namespace Pellum {

/// Finds lines.
class PELLUM_API tcGpio {
public:
    /// Looks a line up by its name on every "/dev/gpiochipN", N from 0.
    /// \param name line name as the device tree gives it
    /// \return the pin, N * 1024 + offset on the chip; negative when no chip has such a line
    static int GetPinFromDTName(const char* name);
};

/// One line. Copies and assignments share it; the last one releases it. Constructing touches no
/// hardware. Errors of the kernel are reported once per line and operation on standard error with
/// device, operation and errno; they never end the process.
class PELLUM_API tcGpioSingle {
public:
    /// \param pin as `tcGpio::GetPinFromDTName` returns it
    explicit tcGpioSingle(unsigned int pin);

    /// Requests the line, or changes it when it is held already.
    /// \param direction 1 = output, 0 = input
    /// \param level     0 or 1: level of an output from the first moment on
    /// \return 0, or -1
    int SetDirection(int direction, int level);

    /// \param level 0 or 1
    /// \return 0, or -1 when the line is not held as an output or the kernel refuses
    int SetValue(int level);

private:
    class PELLUM_LOCAL tcLine;
    std::shared_ptr<tcLine> m_line;
};

} // namespace Pellum

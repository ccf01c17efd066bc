/// \file
/// Looks at a head without switching anything on.
#pragma once

#include <string>

#include "apps/camhost/diagnosis.h"

namespace camhost {

/// Whose head is examined, and where.
struct tsSubject {
    std::string plugin;                  ///< path
    std::string spi;                     ///< device of the sensor
    bool hasBoard = false;               ///< a board of this process holds lines and devices
    bool isUp = false;                   ///< that board was told to bring the head up
    std::vector<std::string> complaints; ///< of that board as it was made
    std::string noFacts;                 ///< why `table` is null
    const failures::tcFailureTable* table = nullptr;
};

/// Looks at the device files, the GPIO lines, the supply monitor and the settings file. Device
/// files are opened and closed, lines described by the kernel, one byte is read from the monitor.
/// No device is written to, no line requested.
tsDiagnosis examine(const tsSubject& subject);

} // namespace camhost

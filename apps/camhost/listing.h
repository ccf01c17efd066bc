/// \file
/// What of a camera head's software and devices is on this machine.
#pragma once

#include <string>

#include "apps/camhost/facts.h"

namespace camhost {

/// What `camhost --list` tells. Looks only: no line is requested, nothing is sent.
struct tsListing {
    std::string text;                  ///< for people
    tcFacts facts = tcFacts::object(); ///< the same for programs
};

/// Loads each installed plug-in, looks for SPI devices, and asks the GPIO chips for lines with
/// names.
[[nodiscard]] tsListing listMachine();

} // namespace camhost

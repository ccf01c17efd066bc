/// \file
/// What a board's table says of its head: what somebody needs to know who examines it.
/// docs/failure-table.md describes the file.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "apps/failures/pattern.h"

namespace failures {

/// What a device file is to the kernel.
enum class teDeviceKind { eSpi, eGpio, eI2c, eMemory };

/// A device file that the board opens, for reading and writing.
struct tsDeviceFact {
    std::string name; ///< "port"
    std::string what; ///< "SPI port of the sensor"
    std::string path; ///< with "{spi}" for the port that the host was given
    teDeviceKind kind = teDeviceKind::eSpi;
    unsigned numbers = 0; ///< 0: the path as it is; else it is tried with the numbers from 0
};

/// A GPIO line that the board drives.
struct tsLineFact {
    std::string name;
    std::string onlyFor; ///< what does not work without it; empty: the head does not
};

/// The chip that measures the supplies.
struct tsMonitorFact {
    std::string chip;
    std::string bus;           ///< device file
    std::uint16_t address = 0; ///< 7 bits
    std::uint8_t zeroBits = 0; ///< of the first byte of an answer: never set
};

/// The sensor's register settings: two hexadecimal numbers a line.
struct tsSettingsFact {
    std::string file;        ///< in the working directory
    std::uint16_t pause = 0; ///< the address that stands for a pause [us]
};

/// Limits of a supply [V].
struct tsLimits {
    double least = 0;
    double most = 0;
};

/// INI file with limits of this head's own, in the working directory.
struct tsLimitsFact {
    std::string file;
    std::string least; ///< section of the lower limits
    std::string most;  ///< section of the upper ones
};

/// How to read what the board prints of its link while it brings the head up.
struct tsLinkFact {
    tcPattern status;               ///< a line of flags, each a group: 0 or 1
    std::vector<std::string> flags; ///< names of the groups: those of the PLL, and `aligned`
    std::string aligned;            ///< which of them says that frames are recognised
    tcPattern lanes;                ///< group 1: the mask of the locked lanes, hexadecimal
    tcPattern end;                  ///< what is printed from this line on is no training any more
};

/// What is known of a head before anything is switched on.
struct tsHeadFacts {
    std::vector<tsDeviceFact> devices; ///< in the order in which they are needed
    std::vector<tsLineFact> lines;
    std::string consumer; ///< of the lines that the board holds, as the kernel shows it
    std::optional<tsMonitorFact> monitor;
    std::optional<tsSettingsFact> settings;
    std::optional<tsLimitsFact> limits;
    std::optional<tsLinkFact> link;
};

} // namespace failures

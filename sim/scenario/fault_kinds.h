/// \file
/// What a fault can be, by what it strikes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/chips/conditions.h"

namespace sim {

/// Numbers of what goes wrong; each kind of fault has its own use for them.
struct tsFaultNumbers {
    std::uint32_t which = 0; // lanes, lines or flags, one bit each; rail; core; index of a word
    std::uint32_t value = 0;
    std::uint64_t timeNs = 0;
    double volts = 0;
    int error = 0;
};

/// A kind of fault: a row of the table.
struct tsFaultKind {
    const char* form; // "`lanes N ... lost`"
    const char* meaning;
    /// \return empty when the words say something else
    std::optional<tsFaultNumbers> (*read)(const std::vector<std::string>& words);
    /// \param beganNs when the fault began
    void (*apply)(const tsFaultNumbers& numbers, std::uint64_t beganNs, tsConditions& conditions);
};

/// Faults of the serial link: PLL, lanes, alignment, polarity.
[[nodiscard]] std::span<const tsFaultKind> linkFaults();
/// Faults of the supplies' voltages.
[[nodiscard]] std::span<const tsFaultKind> supplyFaults();
/// Faults of device files and what answers behind them: supply monitor, GPIO, SPI, memory.
[[nodiscard]] std::span<const tsFaultKind> deviceFaults();
/// Faults of the FPGA's register blocks.
[[nodiscard]] std::span<const tsFaultKind> fpgaFaults();

/// \return all of them, in the order of the reference
[[nodiscard]] std::vector<const tsFaultKind*> allFaultKinds();

/// A kind of fault with the numbers that were said.
struct tsSaidFault {
    const tsFaultKind* kind = nullptr; ///< null: the words are no fault
    tsFaultNumbers numbers;
};
/// \param what as `tsFault::what`
[[nodiscard]] tsSaidFault faultSaid(const std::string& what);

} // namespace sim

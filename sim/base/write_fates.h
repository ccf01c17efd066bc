/// \file
/// What became of a register write, as the head's trace says it and a reader of the trace
/// understands it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sim {

/// What became of one register write at the moment when it arrived.
enum class teWriteFate : std::uint8_t {
    taken,
    reserved,
    shifted,
    mixed,
    asleep,
    notSelected,
    tooFast,
    stuck,
    readOnly,
    noRegister,
    width,
};

/// A fate in words.
struct tsWriteFate {
    std::string_view word; ///< the last one of "STATE SENSOR-WORD ..." and "STATE FPGA-WORD ..."
    bool taken;            ///< whether the register has changed
    const char* meaning;   ///< for a person; empty where all is well
};

/// By `teWriteFate`.
inline constexpr std::array<tsWriteFate, 11> kWriteFates{{
    {"taken", true, ""},
    {"reserved", true, "taken without the reserved bits"},
    {"shifted", true, "taken, but not as sent: the port was not in SPI mode 0"},
    {"mixed", true, "taken, but not as sent: the port had another word size or bit order"},
    {"asleep", false, "lost: the sensor was asleep"},
    {"not-selected", false, "lost: the port's mode does not select the sensor"},
    {"too-fast", false, "lost: the port's clock is too fast for the sensor"},
    {"stuck", false, "lost: the register is stuck"},
    {"read-only", false, "lost: the register is read-only"},
    {"no-register", false, "lost: there is no such register"},
    {"width", false, "lost: not one aligned store of 32 bits"},
}};

/// \return what is known about a fate
constexpr const tsWriteFate& describe(teWriteFate fate) {
    return kWriteFates[static_cast<std::size_t>(fate)];
}

} // namespace sim

/// \file
/// Where the bits of a transfer lie in time.
#pragma once

#include <cstdint>

namespace sim {

/// For `fittedBits` and what waits to be drawn: nothing more happens on the wires.
inline constexpr std::uint64_t kForEver = ~std::uint64_t{0};

/// Bits in a row on a wire.
struct tsBits {
    std::uint64_t startNs = 0;
    std::uint64_t spanNs = 0; ///< what all of them take
    std::uint64_t count = 0;

    /// \param unit of time, from the first bit's beginning \return when it begins [ns]
    [[nodiscard]] std::uint64_t timeNs(std::uint64_t unit, std::uint64_t unitsPerBit) const {
        const std::uint64_t units = count * unitsPerBit;
        return units == 0 ? startNs : startNs + unit * spanNs / units;
    }
};

/// \param untilNs    when something else happens on the wire
/// \param nominalNs  what all bits take by the clock
/// \param shortestNs the shortest bit that can be drawn
/// \return bits that take their nominal time, or what is left of it until something else happens;
///         but no less than can be drawn
[[nodiscard]] tsBits fittedBits(std::uint64_t startNs, std::uint64_t untilNs, std::uint64_t count,
                                std::uint64_t nominalNs, std::uint64_t shortestNs);

} // namespace sim

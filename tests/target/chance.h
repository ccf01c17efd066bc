/// \file
/// Choices that depend on a seed alone.
#pragma once

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <random>

/// No distribution of the standard library in it: their results are the library's own business.
class tcChance {
public:
    explicit tcChance(std::uint32_t seed) : m_random(seed) {}

    /// \return 0 to `most`
    int upTo(int most) {
        return static_cast<int>(m_random() % (static_cast<std::uint32_t>(most) + 1));
    }
    bool oneIn(int times) { return upTo(times - 1) == 0; }
    /// \return a number of 32 bits, every one as likely
    std::uint32_t bits() { return static_cast<std::uint32_t>(m_random()); }

    template<class Type, std::size_t Count>
    Type of(const std::array<Type, Count>& choices) {
        return choices[static_cast<std::size_t>(upTo(static_cast<int>(Count) - 1))];
    }

    /// \return mostly 0 to `most`, now and then what nobody should ask for
    int around(int most) {
        constexpr std::array odd{INT_MIN, INT_MIN + 1, -65536, -32769, -2,          -1,
                                 0,       1,           65535,  65536,  INT_MAX - 1, INT_MAX};
        return oneIn(8) ? of(odd) : upTo(most);
    }

private:
    std::mt19937 m_random;
};

/// \file
/// The one way from a float to an unsigned integer.
#pragma once

#include <concepts>
#include <limits>

/// Truncates towards zero and saturates: negative values and not-a-number give 0, values that the
/// type cannot hold give its maximum. The bare conversion is undefined there, and x86 and ARM
/// disagree about it.
template<std::unsigned_integral Integer>
[[nodiscard]] constexpr Integer saturatingTo(float value) {
    // 2^digits, exact in a float; the type's maximum itself is not.
    constexpr Integer kHighestBit = std::numeric_limits<Integer>::max() / 2 + 1;
    constexpr float kBeyond = static_cast<float>(kHighestBit) * 2.0F;
    if (!(value > 0.0F)) {
        return 0;
    }
    if (value >= kBeyond) {
        return std::numeric_limits<Integer>::max();
    }
    return static_cast<Integer>(value);
}

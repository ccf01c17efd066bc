/// \file
/// Digits, for second readings of numbers.
#pragma once

namespace fuzz {

/// \return what a digit or letter stands for in a base of up to 36; 99 for any other character
constexpr int digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z')
        return c - 'A' + 10;
    return 99;
}

} // namespace fuzz

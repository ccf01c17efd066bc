/// \file
/// Seeds of tests that choose at random.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

/// \return the number in the environment variable HEAD_SEED, else `fallback`; printed, so that a
///         failure can be had again
inline std::uint32_t seedOf(const std::string& who, std::uint32_t fallback = 1) {
    const char* const text = std::getenv("HEAD_SEED");
    const std::uint32_t seed =
        text == nullptr ? fallback : static_cast<std::uint32_t>(std::strtoul(text, nullptr, 0));
    std::cout << who << ": HEAD_SEED=" << seed << "\n";
    return seed;
}

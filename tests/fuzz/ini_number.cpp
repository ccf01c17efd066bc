#include "tests/fuzz/ini_number.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "tests/fuzz/digit.h"

namespace fuzz {

std::uint32_t unsignedNumber(const std::string& text, std::uint32_t fallback) {
    std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    if (at == std::string::npos)
        return fallback;
    const bool minus = text[at] == '-';
    at += minus || text[at] == '+' ? 1U : 0U;
    const auto digitAt = [&](std::size_t place) {
        return place < text.size() ? digit(text[place]) : 99;
    };
    int base = digitAt(at) == 0 ? 8 : 10;
    if (base == 8 && digitAt(at + 1) == digit('x') && digitAt(at + 2) < 16) {
        base = 16;
        at += 2;
    }
    if (digitAt(at) >= base)
        return fallback;
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    std::uint64_t magnitude = 0;
    for (; digitAt(at) < base; ++at)
        magnitude = std::min(magnitude * static_cast<unsigned>(base) +
                                 static_cast<std::uint64_t>(digitAt(at)),
                             kMost + 1);
    if (magnitude > kMost)
        return static_cast<std::uint32_t>(kMost);
    return static_cast<std::uint32_t>(minus ? 0 - magnitude : magnitude);
}

long signedNumber(const std::string& text, long fallback) {
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 0);
    return end == text.c_str() ? fallback : number;
}

float voltage(const std::string& text, float fallback) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (end == text.c_str())
        return fallback;
    if (std::fabs(number) > double{std::numeric_limits<float>::max()})
        return number > 0 ? HUGE_VALF : -HUGE_VALF;
    return static_cast<float>(number);
}

} // namespace fuzz

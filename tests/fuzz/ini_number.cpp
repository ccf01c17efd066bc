#include "tests/fuzz/ini_number.h"

#include <algorithm>
#include <cstdlib>

#include "tests/fuzz/digit.h"

namespace fuzz {

namespace {

/// The number that starts a text, of up to 2^32: what is larger is that as well.
struct tsNumber {
    bool is = false;
    bool minus = false;
    std::uint64_t magnitude = 0;
};

tsNumber numberIn(const std::string& text) {
    std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    if (at == std::string::npos)
        return {};
    tsNumber number;
    number.minus = text[at] == '-';
    at += number.minus || text[at] == '+' ? 1U : 0U;
    const auto digitAt = [&](std::size_t place) {
        return place < text.size() ? digit(text[place]) : 99;
    };
    int base = digitAt(at) == 0 ? 8 : 10;
    if (base == 8 && digitAt(at + 1) == digit('x') && digitAt(at + 2) < 16) {
        base = 16;
        at += 2;
    }
    number.is = digitAt(at) < base;
    constexpr std::uint64_t kMost = std::uint64_t{1} << 32;
    for (; digitAt(at) < base; ++at)
        number.magnitude = std::min(number.magnitude * static_cast<unsigned>(base) +
                                        static_cast<std::uint64_t>(digitAt(at)),
                                    kMost);
    return number;
}

} // namespace

std::uint32_t unsignedNumber(const std::string& text, std::uint32_t fallback) {
    const tsNumber number = numberIn(text);
    if (!number.is)
        return fallback;
    if (number.magnitude > 0xFFFFFFFF)
        return 0xFFFFFFFF;
    return static_cast<std::uint32_t>(number.minus ? 0 - number.magnitude : number.magnitude);
}

std::int32_t signedNumber(const std::string& text, std::int32_t fallback) {
    const tsNumber number = numberIn(text);
    if (!number.is)
        return fallback;
    const auto magnitude = static_cast<std::int64_t>(number.magnitude);
    return static_cast<std::int32_t>(number.minus
                                         ? std::max<std::int64_t>(-magnitude, -0x80000000LL)
                                         : std::min<std::int64_t>(magnitude, 0x7FFFFFFF));
}

double voltage(const std::string& text, double fallback) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    return end == text.c_str() ? fallback : number;
}

} // namespace fuzz

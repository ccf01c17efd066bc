#include "common/ini.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include <INIReader.h>

namespace {

bool isNegative(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\n\v\f\r");
    return first != std::string::npos && text[first] == '-';
}

} // namespace

// The syntax of the library's own getter, base 0 and trailing text ignored, which says nothing
// about a minus sign: where `long` has 64 bits, a huge number and a negative one would look alike.
unsigned int readUnsigned(const INIReader& ini, const std::string& section, const std::string& key,
                          unsigned int fallback) {
    constexpr unsigned int kMaximum = std::numeric_limits<unsigned int>::max();
    const std::string text = ini.Get(section, key, "");
    char* end = nullptr;
    const unsigned long number = std::strtoul(text.c_str(), &end, 0);
    if (end == text.c_str()) {
        return fallback;
    }
    const unsigned long magnitude = isNegative(text) ? 0UL - number : number;
    return magnitude <= kMaximum ? static_cast<unsigned int>(number) : kMaximum;
}

std::int32_t readInteger(const INIReader& ini, const std::string& section, const std::string& key,
                         std::int32_t fallback) {
    using tcLimits = std::numeric_limits<std::int32_t>;
    const std::int64_t number = ini.GetInteger(section, key, fallback);
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(number, tcLimits::min(), tcLimits::max()));
}

#include "common/ini.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include <INIReader.h>

namespace {

/// As a 32-bit `long` takes it, on every target: what is too large is the maximum, and a minus sign
/// wraps.
unsigned int to32Bits(unsigned long long number) {
    constexpr unsigned int kMaximum = std::numeric_limits<unsigned int>::max();
    const bool fits = number <= kMaximum || 0 - number <= kMaximum;
    return fits ? static_cast<unsigned int>(number) : kMaximum;
}

template<class Reader>
unsigned int getUnsigned(const Reader& ini, const std::string& section, const std::string& key,
                         unsigned int fallback) {
    if constexpr (requires { ini.GetUnsigned(section, key, 0UL); }) {
        return to32Bits(ini.GetUnsigned(section, key, fallback));
    } else {
        // The same syntax as the newer library's getter: base 0, trailing text ignored.
        const std::string text = ini.Get(section, key, "");
        char* end = nullptr;
        const unsigned long long number = std::strtoull(text.c_str(), &end, 0);
        return end > text.c_str() ? to32Bits(number) : fallback;
    }
}

} // namespace

unsigned int readUnsigned(const INIReader& ini, const std::string& section, const std::string& key,
                          unsigned int fallback) {
    return getUnsigned(ini, section, key, fallback);
}

float readFloat(const INIReader& ini, const std::string& section, const std::string& key,
                float fallback) {
    const double number = ini.GetReal(section, key, static_cast<double>(fallback));
    if (std::abs(number) > static_cast<double>(std::numeric_limits<float>::max())) {
        constexpr float kInfinity = std::numeric_limits<float>::infinity();
        return number > 0 ? kInfinity : -kInfinity;
    }
    return static_cast<float>(number);
}

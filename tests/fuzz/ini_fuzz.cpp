// The two INI files: every key that the plug-in reads, from any text, against the number that the
// value's own text starts with.

#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <INIReader.h>

#include "common/ini.h"
#include "tests/fuzz/support.h"

namespace {

constexpr std::array kIntegers{"RoiX",         "RoiY",          "RoiWidth",   "RoiHeight",
                               "ExposureTime", "FrameInterval", "VerticalBin"};
constexpr std::array kSupplies{"VDD1.2", "VDD3.3AVDDH_DIV2", "VDD3.3SVDD_DIV2"};

int digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z')
        return c - 'A' + 10;
    return 99;
}

/// A number with 0x in hexadecimal, with a leading zero in octal, else in decimal; what follows it
/// does not count. Too large is the largest of 32 bits, a minus sign wraps.
std::uint32_t laneMask(const std::string& text, std::uint32_t fallback) {
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

/// The nearest number of single precision; beyond them, infinity.
float limit(const std::string& text, float fallback) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (end == text.c_str())
        return fallback;
    if (std::fabs(number) > double{std::numeric_limits<float>::max()})
        return number > 0 ? HUGE_VALF : -HUGE_VALF;
    return static_cast<float>(number);
}

void requireSameBits(const char* key, float expected, float actual) {
    if (std::isnan(expected) && std::isnan(actual))
        return;
    fuzz::requireEqual(key, std::to_string(std::bit_cast<std::uint32_t>(expected)),
                       std::to_string(std::bit_cast<std::uint32_t>(actual)));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::tcMemoryFile file;
    file.write(fuzz::text({data, size}));
    const INIReader ini(file.path());

    for (const char* key : kIntegers) {
        const std::string text = ini.Get("Settings", key, "");
        const long expected = text.empty() ? 7 : [&] {
            char* end = nullptr;
            const long number = std::strtol(text.c_str(), &end, 0);
            return end == text.c_str() ? 7 : number;
        }();
        fuzz::require(ini.GetInteger("Settings", key, 7) == expected, key);
    }
    const std::string mask = ini.Get("Settings", "LaneInvertMask", "");
    fuzz::requireEqual("LaneInvertMask", std::to_string(laneMask(mask, 0x5D9)),
                       std::to_string(readUnsigned(ini, "Settings", "LaneInvertMask", 0x5D9)));
    for (const char* section : {"Voltages_Max", "Voltages_Min"}) {
        for (const char* key : kSupplies)
            requireSameBits(key, limit(ini.Get(section, key, ""), 3.25F),
                            readFloat(ini, section, key, 3.25F));
    }
    return 0;
}

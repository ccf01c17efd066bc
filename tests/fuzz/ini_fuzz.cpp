// The two INI files: every key that the plug-in reads, from any text, against the number that the
// value's own text starts with.

#include <array>
#include <bit>
#include <cmath>

#include <INIReader.h>

#include "common/ini.h"
#include "tests/fuzz/ini_number.h"
#include "tests/fuzz/support.h"

namespace {

constexpr std::array kIntegers{"RoiX",         "RoiY",          "RoiWidth",   "RoiHeight",
                               "ExposureTime", "FrameInterval", "VerticalBin"};
constexpr std::array kSupplies{"VDD1.2", "VDD3.3AVDDH_DIV2", "VDD3.3SVDD_DIV2"};

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
        fuzz::requireEqual(key, std::to_string(fuzz::signedNumber(text, 7)),
                           std::to_string(readInteger(ini, "Settings", key, 7)));
    }
    const std::string mask = ini.Get("Settings", "LaneInvertMask", "");
    fuzz::requireEqual("LaneInvertMask", std::to_string(fuzz::unsignedNumber(mask, 0x5D9)),
                       std::to_string(readUnsigned(ini, "Settings", "LaneInvertMask", 0x5D9)));
    for (const char* section : {"Voltages_Max", "Voltages_Min"}) {
        for (const char* key : kSupplies)
            requireSameBits(key, fuzz::voltage(ini.Get(section, key, ""), 3.25F),
                            readFloat(ini, section, key, 3.25F));
    }
    return 0;
}

// The settings' INI file: every key that the board reads, from any text, against the number that
// the value's own text starts with.

#include <array>

#include <INIReader.h>

#include "common/ini.h"
#include "tests/fuzz/ini_number.h"
#include "tests/fuzz/support.h"

namespace {

constexpr std::array kIntegers{"RoiX",         "RoiY",          "RoiWidth",   "RoiHeight",
                               "ExposureTime", "FrameInterval", "VerticalBin"};

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
    return 0;
}

// A whole initialization of the board on the virtual head, with any text as its INI files: the
// configuration, then, behind a line "----", the limits of the supplies.

#include <algorithm>
#include <cmath>
#include <iostream>
#include <optional>
#include <set>

#include <INIReader.h>

#include "plugin/board.h"
#include "sim/virtual_head.h"
#include "tests/fuzz/ini_number.h"
#include "tests/fuzz/support.h"

namespace {

constexpr std::string_view kBetween = "----\n";

/// The board lives as long as the process: it is initialized once for every input.
Varnox::tc3U5MGXSSensorBoard& theBoard() {
    static Varnox::tc3U5MGXSSensorBoard board("/dev/spidev1.0");
    return board;
}

sim::tcVirtualHead& theHead() {
    constexpr std::size_t kEvents = 100'000; // of one initialization
    static sim::tcVirtualHead head =
        sim::aVirtualHead().withLogCapacity(kEvents).withQuietViolations().build();
    return head;
}

constexpr std::uint32_t kLaneInversion = 0xFF210008;

/// \return whether it is a region that the sensor has: columns in steps of 24, even rows
bool isRegion(const Varnox::ROI& roi) {
    return roi.x >= 0 && roi.y >= 0 && roi.width > 0 && roi.height > 0 &&
           roi.x + std::int64_t{roi.width} <= 2592 && roi.y + std::int64_t{roi.height} <= 2056 &&
           roi.x % 24 == 0 && roi.width % 24 == 0 && roi.y % 2 == 0 && roi.height % 2 == 0;
}

/// What an initialization leaves behind.
struct tsState {
    Varnox::ROI region;
    std::uint32_t lanes = 0;
};

tsState theState() {
    return {theBoard().getROI(), theHead().fpgaWord(kLaneInversion)};
}

int setting(const INIReader& ini, const char* key, int fallback) {
    return fuzz::signedNumber(ini.Get("Settings", key, ""), fallback);
}

/// \return how a supply of so many volts stands to its limits; nothing where the monitor's step
///         decides
std::optional<bool> withinLimits(const INIReader& limits, const char* key, double volts,
                                 double maximum, double minimum) {
    constexpr double kStep = 0.005; // V, more than one of the monitor's behind a divider by two
    const double most = fuzz::voltage(limits.Get("Voltages_Max", key, ""), maximum);
    const double least = fuzz::voltage(limits.Get("Voltages_Min", key, ""), minimum);
    // A limit that is not a number limits nothing.
    if (volts > most + kStep || volts < least - kStep)
        return false;
    if (std::abs(volts - most) <= kStep || std::abs(volts - least) <= kStep)
        return std::nullopt;
    return true;
}

/// \return whether the healthy head's supplies are within the file's limits
std::optional<bool> powersUp(const INIReader& limits) {
    const std::optional<bool> supplies[] = {withinLimits(limits, "VDD1.2", 1.2, 1.3, 1.1),
                                            withinLimits(limits, "VDD3.3AVDDH_DIV2", 3.3, 3.4, 3.2),
                                            withinLimits(limits, "VDD3.3SVDD_DIV2", 3.3, 3.4, 3.2)};
    bool certain = true;
    for (const std::optional<bool>& supply : supplies) {
        if (supply == false)
            return false;
        certain = certain && supply.has_value();
    }
    return certain ? std::optional(true) : std::nullopt;
}

/// \return what the file asks for, where the board takes it
tsState expectedState(const INIReader& settings, const tsState& before) {
    Varnox::ROI asked;
    asked.x = setting(settings, "RoiX", 0);
    asked.y = setting(settings, "RoiY", 0);
    asked.width = setting(settings, "RoiWidth", 2592);
    asked.height = setting(settings, "RoiHeight", 2056);
    const std::string lanes = settings.Get("Settings", "LaneInvertMask", "");
    return {isRegion(asked) ? asked : before.region, fuzz::unsignedNumber(lanes, 0x5D9) % 4096};
}

void checkTimes(const INIReader& settings) {
    const std::int64_t period = theHead().sensorState().lineClocks;
    const std::int64_t minimum = theBoard().getMinFrameIntervalMicroS();
    const std::int64_t asked = setting(settings, "FrameInterval", 100000);
    const std::int64_t interval = std::max(asked / period * period, minimum / period * period);
    fuzz::requireEqual("frame interval", std::to_string(interval),
                       std::to_string(theBoard().getFrameInterval()));
    // Exposure counts lines, at most some 16,000. Longer than the interval asked for, it is cut;
    // near its ends the sensor's shutter has limits of its own. The lines of a longer interval than
    // 16 bits count wrap around: its frame may be shorter than the exposure.
    constexpr std::int64_t kLongest = 300'000;    // us
    constexpr std::int64_t kCounted = 65535 * 25; // us
    const std::int64_t line = period / 24 + 1;    // us, at the slower clock
    const std::int64_t exposure = setting(settings, "ExposureTime", 30000);
    const std::int64_t most = std::min(asked / period * period, kLongest);
    if (exposure > 20 * line && exposure < most - 20 * line && asked <= kCounted)
        fuzz::require(std::abs(theBoard().getExposure() - exposure) <= line, "exposure");
    if (asked > 0 && exposure > asked)
        fuzz::require(theBoard().getExposure() <= interval, "exposure within its frame");
}

void checkBinning(const INIReader& settings) {
    const int rows = setting(settings, "VerticalBin", 1);
    if (rows >= 0 && rows <= 2)
        fuzz::require(theHead().sensorState().binned == (rows == 2), "binning");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::silenceStandardOutput();
    fuzz::enterScratchFolder();
    fuzz::writeFile("3U5MGXS_12bit.txt", "B0 383\n"); // 900 clocks a line
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::tcErrorCollector errors;
    errors.clear();
    theHead().clearLog();
    // The region is programmed with the binning factor in force, before the file's is set: that of
    // the input before may turn this one's region upside down.
    theBoard().setVerticalBin(1);

    const std::string text = fuzz::text({data, size});
    const std::size_t between = text.find(kBetween);
    fuzz::writeFile("3u5mgxs_config.ini", text.substr(0, between));
    fuzz::writeFile("3u5mgxs_sensor.ini", between == std::string::npos
                                              ? std::string()
                                              : text.substr(between + kBetween.size()));

    const tsState before = theState();
    const int result = theBoard().initialize();
    fuzz::require(std::set{0, -1, -2, -4}.contains(result),
                  "success, a link that does not come up, or a supply out of limits");
    const std::optional<bool> powered = powersUp(INIReader("3u5mgxs_sensor.ini"));
    fuzz::require(!powered || *powered == (result != -4), "-4 is a supply out of limits");
    const INIReader settings("3u5mgxs_config.ini");
    const tsState expected = result == -4 ? before : expectedState(settings, before);
    const tsState now = theState();
    fuzz::require(isRegion(now.region), "the region is one of the sensor");
    fuzz::requireEqual("region", expected.region.toString(), now.region.toString());
    fuzz::requireEqual("lane inversion", std::to_string(expected.lanes), std::to_string(now.lanes));
    if (result == -4)
        return 0;
    fuzz::require(theHead().sensorAlive(), "the sensor runs");
    fuzz::require((result == 0) == (now.lanes == 0x5D9), "the link comes up with the head's lanes");
    checkTimes(settings);
    checkBinning(settings);
    return 0;
}

// A whole initialization of the board on the virtual head, with any text as its INI files: the
// configuration, then, behind a line "----", the limits of the supplies.

#include <csignal>
#include <iostream>
#include <set>

#include "plugin/board.h"
#include "sim/virtual_head.h"
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

/// \return whether it is a region that the sensor has: columns in steps of 24, even rows
bool isRegion(const Varnox::ROI& roi) {
    return roi.x >= 0 && roi.y >= 0 && roi.width > 0 && roi.height > 0 &&
           roi.x + std::int64_t{roi.width} <= 2592 && roi.y + std::int64_t{roi.height} <= 2056 &&
           roi.x % 24 == 0 && roi.width % 24 == 0 && roi.y % 2 == 0 && roi.height % 2 == 0;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::silenceStandardOutput();
    fuzz::enterScratchFolder();
    fuzz::writeFile("3U5MGXS_12bit.txt", "10 0\n");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::tcErrorCollector errors;
    errors.clear();
    theHead().clearLog();

    const std::string text = fuzz::text({data, size});
    const std::size_t between = text.find(kBetween);
    fuzz::writeFile("3u5mgxs_config.ini", text.substr(0, between));
    fuzz::writeFile("3u5mgxs_sensor.ini", between == std::string::npos
                                              ? std::string()
                                              : text.substr(between + kBetween.size()));

    const int result = theBoard().initialize();
    fuzz::require(std::set{0, -1, -2, -4}.contains(result),
                  "success, a link that does not come up, or a supply out of limits");
    fuzz::require(isRegion(theBoard().getROI()), "the region is one of the sensor");
    fuzz::require(result == -4 || theHead().sensorAlive(), "the sensor runs");
    return 0;
}

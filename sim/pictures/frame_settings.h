/// \file
/// What the registers say about a picture, decoded at one moment.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>

#include "sim/pictures/fpga_image.h"
#include "sim/pictures/sensor_image.h"

namespace sim {

class tcFpga;
class tcSensor;

/// Everything that a picture depends on, apart from the scene and the sensor's defects. Plain
/// memory: a signal handler can copy it, and another process can read it.
struct tsFrameSettings {
    std::uint64_t timeNs = 0; ///< when the frame was complete
    std::uint64_t number = 0; ///< of the frame, from 1; 0 for one that was not counted
    double clockMhz = 0;
    std::uint32_t frameLines = 0; ///< hd_max [lines]
    std::uint32_t lineClocks = 0; ///< [master clocks]
    tsSensorImage sensor;
    tsFpgaImage fpga;
};
static_assert(std::is_trivially_copyable_v<tsFrameSettings>);

/// Which cores of the pipeline let pictures through.
struct tsPipeline {
    bool badPixelsRun = false;
    bool pixelShiftRuns = false;
};
/// Possible in a signal handler.
tsPipeline decodePipeline(tcFpga& fpga);

/// \return how a picture is shaped in the FPGA, whether or not one leaves it
tsFpgaImage decodeFpga(tcFpga& fpga);

/// Possible in a signal handler.
/// \return empty when no picture leaves the FPGA: a core of its pipeline stands still
std::optional<tsFrameSettings> decodeFrame(const tcSensor& sensor, tcFpga& fpga);

/// \return the settings for a reader: lines of "name: value"
std::string describe(const tsFrameSettings& settings);

/// \return the picture with time and settings text
tsFrame render(const tsFrameSettings& settings, const tcScene& scene,
               std::span<const tsDefect> defects);

} // namespace sim

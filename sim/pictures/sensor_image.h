/// \file
/// From light to what the sensor sends: a function of its settings and nothing else.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "sensor/registers.h"
#include "sim/base/export.h"
#include "sim/chips/readout_area.h"
#include "sim/pictures/scene.h"

namespace sim {

/// A pixel that always gives the same.
struct tsDefect {
    std::uint32_t x = 0;     ///< column of the array
    std::uint32_t y = 0;     ///< row of the array
    std::uint16_t value = 0; ///< what the ADC makes of it, 0 to 4095
};

/// Everything that shapes a picture on its way out of the sensor.
struct tsSensorImage {
    std::array<tsReadoutArea, sensorArray::kAreas> areas{};
    std::uint32_t areaCount = 0;
    bool binned = false;           ///< two rows make one line, their mean
    bool fromBottom = false;       ///< vertical scan inverted
    bool fromRight = false;        ///< horizontal scan inverted
    double exposureUs = 0;         ///< [us]
    double analogueGain = 1;       ///< factor, before the ADC
    double digitalGain = 1;        ///< factor, behind the ADC
    std::uint32_t depth = 12;      ///< of the ADC [bits], 10 or 12; 10 bits fill the upper of 12
    std::uint32_t testPattern = 0; ///< 3: column, 4: row of the array; else none
    bool testSignal = false;       ///< half of the ADC's range instead of the pixels
};

/// What goes over the lanes. Lines come in pairs: the first six lanes carry the even line, the last
/// six the odd one, whatever the direction of the scan.
///
///     scan from the top          scan from the bottom
///     lanes 0-5   lanes 6-11     lanes 0-5   lanes 6-11
///     line 0      line 1         line 2      line 3
///     line 2      line 3         line 0      line 1
struct tsRawFrame {
    std::uint32_t width = 0; ///< of the widest area; the lines of the others end in 0
    std::uint32_t pairs = 0; ///< pairs of lines
    /// `width` words of the first line of pair 0, of its second line, of the first of pair 1, ...
    std::vector<std::uint16_t> pixels;
    std::uint32_t firstLine = 0;   ///< number of the first line, in lines of the array
    std::uint32_t firstColumn = 0; ///< number of the first column
};

/// The areas follow each other by their numbers, or from the last to the first when the scan comes
/// from the bottom.
SIM_API tsRawFrame sensorImage(const tsSensorImage& settings, const tcScene& scene,
                               std::span<const tsDefect> defects);

} // namespace sim

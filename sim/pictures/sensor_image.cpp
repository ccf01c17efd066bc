#include "sim/pictures/sensor_image.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {

constexpr std::uint32_t kCodes = 4096;       // of the lanes' 12 bits
constexpr double kLightPerCode = 16;         // in the reference exposure, at gains of one
constexpr double kReferenceExposure = 30000; // us
constexpr std::uint32_t kColumnPattern = 3;
constexpr std::uint32_t kRowPattern = 4;
constexpr std::uint32_t kLight = 65536; // values of light
constexpr std::uint16_t kTestSignalLight = 32768;

using tcLine = std::vector<std::uint16_t>;

// A table of what becomes of each input.
template<class Function>
tcLine tabulated(std::uint32_t inputs, Function function) {
    tcLine table(inputs);
    for (std::uint32_t input = 0; input < inputs; ++input) {
        table[input] = function(input);
    }
    return table;
}

std::uint16_t limited(double code, double last) {
    return static_cast<std::uint16_t>(std::clamp(std::floor(code), 0.0, last));
}

// Ten bits fill the upper ones of the lanes' twelve.
std::uint16_t converted(double code, std::uint32_t depth) {
    const double step = depth == 10 ? 4 : 1;
    const double last = kCodes / step - 1;
    return static_cast<std::uint16_t>(limited(code / step, last) * step);
}

// Codes that a unit of light gives, before anything is cut off.
double signalOf(const tsSensorImage& settings) {
    return settings.analogueGain / kLightPerCode;
}

tcLine codesByLight(const tsSensorImage& settings) {
    const double exposed = signalOf(settings) * settings.exposureUs / kReferenceExposure;
    return tabulated(
        kLight, [&](std::uint32_t light) { return converted(light * exposed, settings.depth); });
}

tcLine amplifiedByCode(const tsSensorImage& settings) {
    return tabulated(kCodes, [&](std::uint32_t code) {
        return limited(code * settings.digitalGain, kCodes - 1);
    });
}

// Reads the array, row by row.
class tcReadout {
public:
    tcReadout(const tsSensorImage& settings, const tcScene& scene,
              std::span<const tsDefect> defects)
        : m_settings(settings),
          m_scene(scene),
          m_defects(defects.begin(), defects.end()),
          m_codes(codesByLight(settings)),
          m_testSignal(converted(kTestSignalLight * signalOf(settings), settings.depth)),
          m_amplified(amplifiedByCode(settings)) {}

    // \param number of the line within the area
    [[nodiscard]] tcLine line(const tsReadoutArea& area, std::uint32_t number) const {
        const std::uint32_t row = area.rowStart + (m_settings.binned ? 2 * number : number);
        tcLine result = rowOf(area, row);
        if (m_settings.binned) {
            const tcLine lower = rowOf(area, row + 1);
            for (std::size_t at = 0; at < result.size(); ++at) {
                result[at] = static_cast<std::uint16_t>((result[at] + lower[at]) / 2);
            }
        }
        for (std::uint16_t& code : result) {
            code = m_amplified[code];
        }
        if (m_settings.fromRight) {
            std::reverse(result.begin(), result.end());
        }
        return result;
    }

private:
    // One row as it leaves the ADC.
    [[nodiscard]] tcLine rowOf(const tsReadoutArea& area, std::uint32_t row) const {
        tcLine result(area.columnEnd - area.columnStart + 1);
        for (std::uint32_t at = 0; at < result.size(); ++at) {
            result[at] = code(row, area.columnStart + at);
        }
        if (!patterned()) {
            addDefects(area, row, result);
        }
        return result;
    }

    [[nodiscard]] bool patterned() const {
        return m_settings.testPattern == kColumnPattern || m_settings.testPattern == kRowPattern;
    }

    [[nodiscard]] std::uint16_t code(std::uint32_t row, std::uint32_t column) const {
        if (patterned()) {
            return converted(m_settings.testPattern == kColumnPattern ? column : row,
                             m_settings.depth);
        }
        return m_settings.testSignal ? m_testSignal : m_codes[m_scene.light(row, column)];
    }

    void addDefects(const tsReadoutArea& area, std::uint32_t row, tcLine& line) const {
        for (const tsDefect& defect : m_defects) {
            if (defect.y == row && defect.x >= area.columnStart && defect.x <= area.columnEnd) {
                line[defect.x - area.columnStart] = converted(defect.value, m_settings.depth);
            }
        }
    }

    const tsSensorImage& m_settings;
    const tcScene& m_scene;
    std::vector<tsDefect> m_defects;
    tcLine m_codes; // by light
    std::uint16_t m_testSignal;
    tcLine m_amplified; // by code
};

std::uint32_t linesOf(const tsReadoutArea& area, bool binned) {
    const std::uint32_t rows = area.rowEnd - area.rowStart + 1;
    return binned ? rows / 2 : rows;
}

void append(tsRawFrame& frame, const tcLine& line) {
    frame.pixels.insert(frame.pixels.end(), line.begin(), line.end());
    frame.pixels.resize(frame.pixels.size() + frame.width - line.size());
}

void sendArea(const tcReadout& readout, const tsReadoutArea& area, bool binned, bool fromBottom,
              tsRawFrame& frame) {
    const std::uint32_t lines = linesOf(area, binned);
    const std::uint32_t pairs = (lines + 1) / 2;
    for (std::uint32_t at = 0; at < pairs; ++at) {
        const std::uint32_t pair = fromBottom ? pairs - 1 - at : at;
        append(frame, readout.line(area, 2 * pair));
        const bool whole = 2 * pair + 1 < lines; // an odd last line has no partner
        append(frame, whole ? readout.line(area, 2 * pair + 1) : tcLine(frame.width));
    }
    frame.pairs += pairs;
}

// Lines and columns are numbered on from the first ones that any area has.
tsRawFrame emptyFrame(std::span<const tsReadoutArea> areas, bool binned) {
    tsRawFrame frame;
    frame.firstLine = areas.empty() ? 0 : areas.front().rowStart;
    frame.firstColumn = areas.empty() ? 0 : areas.front().columnStart;
    for (const tsReadoutArea& area : areas) {
        frame.width = std::max(frame.width, area.columnEnd - area.columnStart + 1);
        frame.firstLine = std::min(frame.firstLine, area.rowStart);
        frame.firstColumn = std::min(frame.firstColumn, area.columnStart);
    }
    frame.firstLine /= binned ? 2 : 1;
    return frame;
}

} // namespace

tsRawFrame sensorImage(const tsSensorImage& settings, const tcScene& scene,
                       std::span<const tsDefect> defects) {
    const auto areas = std::span(settings.areas).first(settings.areaCount);
    tsRawFrame frame = emptyFrame(areas, settings.binned);
    const tcReadout readout(settings, scene, defects);
    for (std::size_t at = 0; at < areas.size(); ++at) {
        const std::size_t area = settings.fromBottom ? areas.size() - 1 - at : at;
        sendArea(readout, areas[area], settings.binned, settings.fromBottom, frame);
    }
    return frame;
}

} // namespace sim

#include "sim/pictures/frame_settings.h"

#include <algorithm>

#include "fpga/registers.h"
#include "sensor/registers.h"
#include "sim/base/text.h"
#include "sim/chips/fpga.h"
#include "sim/chips/sensor.h"

namespace sim {

namespace {

using namespace sensorRegisters;
namespace frame = frameCtrlRegisters;

constexpr std::uint32_t kPixelsPerUnit = 6;
constexpr std::uint32_t kLinesPerUnit = 2;

// Lines from the start of accumulation to the last shutter position in use; where a trigger sets
// the frame, the count of its own register.
std::uint32_t exposureLines(const tcSensor& sensor) {
    const std::uint32_t mode = sensor.field(kFrameControlMode);
    if (mode == 1 || mode == 3) {
        return sensor.field(kTiming14);
    }
    const std::optional<std::uint32_t> second = sensor.value(kGsPos2.address);
    const bool usesSecond = second && sensor.field(kGsPos2) != kNoPosition;
    const std::uint32_t end = sensor.field(usesSecond ? kGsPos2 : kGsPos1);
    return end - std::min(end, sensor.field(kAccFpos));
}

double powerOfTwo(std::uint32_t exponent) {
    return static_cast<double>(1U << exponent);
}

// Each analogue stage doubles with every step; the fine gains divide a doubling evenly.
double analogueGain(const tcSensor& sensor) {
    return powerOfTwo(sensor.field(kAGainCoarse)) * powerOfTwo(sensor.field(kAGainCoarse2)) *
           (1 + sensor.field(kAGainFine) / 64.0);
}

double digitalGain(const tcSensor& sensor) {
    return powerOfTwo(sensor.field(kDGainCoarse)) * (1 + sensor.field(kDGainFine) / 16.0);
}

tsSensorImage decodeSensor(const tcSensor& sensor, double clockMhz) {
    tsSensorImage image;
    for (std::uint16_t number = 0; number < sensorArray::kAreas; ++number) {
        if (const std::optional<tsReadoutArea> area = sensor.area(number)) {
            image.areas[image.areaCount++] = *area;
        }
    }
    image.binned = sensor.areasBinned();
    image.fromBottom = sensor.field(kVScanInvert) != 0;
    image.fromRight = sensor.field(kHScanInvert) != 0;
    const double lineClocks = sensor.field(kHdPrd) + 1.0;
    image.exposureUs = clockMhz > 0 ? exposureLines(sensor) * lineClocks / clockMhz : 0;
    image.analogueGain = analogueGain(sensor);
    image.digitalGain = digitalGain(sensor);
    image.depth = sensor.field(kAdcDepth) == kAdcDepth10Bits ? 10 : 12;
    image.testPattern = sensor.field(kTestPattern);
    image.testSignal = sensor.field(kTestSignal) == kTestSignalOn;
    return image;
}

// Reads the FPGA's registers.
class tcDecoder {
public:
    explicit tcDecoder(tcFpga& fpga) : m_fpga(fpga) {}

    [[nodiscard]] std::uint32_t word(std::uint32_t block, std::uint32_t at) const {
        return m_fpga.peek(block + 4 * at).value_or(0);
    }
    [[nodiscard]] std::uint32_t field(const tsRegisterField& wanted) const {
        return word(fpgaAddresses::kFrameCtrl, wanted.address) >> wanted.shift & wanted.mask;
    }
    [[nodiscard]] std::uint32_t badPixels(std::uint32_t at) const {
        return word(fpgaAddresses::kBadPixelControl, at);
    }
    [[nodiscard]] std::uint32_t pixelShift() const {
        return word(fpgaAddresses::kPixelShift, pixelShiftRegisters::kControlWord);
    }

private:
    tcFpga& m_fpga;
};

void decodeFrameControl(const tcDecoder& fpga, tsFpgaImage& image) {
    image.pairsFlip = fpga.field(frame::kPairsFlip) != 0;
    image.width = fpga.field(frame::kResolutionW);
    image.height = fpga.field(frame::kResolutionH);
    image.porchX = fpga.field(frame::kBackPorchX) * kPixelsPerUnit;
    image.porchY = fpga.field(frame::kBackPorchY) * kLinesPerUnit;
    image.roiX = fpga.field(frame::kRoiX);
    image.roiY = fpga.field(frame::kRoiY);
    // No picture is larger than the array.
    image.roiWidth = std::min(fpga.field(frame::kRoiResCntW) * kPixelsPerUnit, tcScene::kColumns);
    image.roiHeight = std::min(fpga.field(frame::kRoiResCntH) * kLinesPerUnit, tcScene::kRows);
}

void decodeBadPixels(const tcDecoder& decoder, tcFpga& fpga, tsFpgaImage& image) {
    using namespace badPixelRegisters;
    const std::uint32_t control = decoder.badPixels(kControlWord);
    image.replace = (control & kControlApplyMap) != 0;
    image.color = (control & kControlColor) != 0;
    const std::uint32_t origin = decoder.badPixels(kRoiOriginWord);
    image.mapX = origin & 0xFFFF;
    image.mapY = origin >> 16;
    const std::uint32_t size = decoder.badPixels(kRoiSizeWord);
    image.mapWidth = size & 0xFFFF;
    image.mapHeight = size >> 16;
    const std::span<const std::uint32_t> table = fpga.badPixels();
    image.entries = static_cast<std::uint32_t>(table.size());
    std::copy(table.begin(), table.end(), image.table.begin());
}

void decodePixelShift(const tcDecoder& fpga, tsFpgaImage& image) {
    image.shiftLeft = (fpga.pixelShift() & pixelShiftRegisters::kControlLeft) != 0;
    image.shift = fpga.pixelShift() & pixelShiftRegisters::kControlAmount;
}

// Puts "name: value" lines together.
class tcLines {
public:
    tcLines& line(std::string_view name) {
        m_text += m_text.empty() ? "" : "\n";
        m_text.append(name).append(":");
        return *this;
    }
    tcLines& word(std::string_view text) {
        m_text.append(" ").append(text);
        return *this;
    }
    tcLines& number(std::uint64_t value) { return word(std::to_string(value)); }
    tcLines& fixed(double value) { return word(tcText().fixed(value).view()); }
    tcLines& onOff(bool on) { return word(on ? "on" : "off"); }
    tcLines& size(std::uint32_t width, std::uint32_t height) {
        return number(width).word("x").number(height);
    }
    tcLines& place(std::uint32_t x, std::uint32_t y) {
        return word("x").number(x).word("y").number(y);
    }
    [[nodiscard]] std::string text() const { return m_text; }

private:
    std::string m_text;
};

void describeSensor(const tsSensorImage& sensor, tcLines& lines) {
    for (std::uint32_t at = 0; at < sensor.areaCount; ++at) {
        const tsReadoutArea& area = sensor.areas[at];
        lines.line("readout area").number(at).word("rows").number(area.rowStart).word("to");
        lines.number(area.rowEnd).word("columns").number(area.columnStart).word("to");
        lines.number(area.columnEnd);
    }
    lines.line("binning").number(sensor.binned ? 2 : 1);
    lines.line("vertical scan").word(sensor.fromBottom ? "from the bottom" : "from the top");
    lines.line("horizontal scan").word(sensor.fromRight ? "from the right" : "from the left");
    lines.line("exposure").fixed(sensor.exposureUs).word("us");
    lines.line("analogue gain").fixed(sensor.analogueGain);
    lines.line("digital gain").fixed(sensor.digitalGain);
    lines.line("ADC").number(sensor.depth).word("bits");
    lines.line("test pattern").number(sensor.testPattern);
    lines.line("test signal").onOff(sensor.testSignal);
}

void describeFpga(const tsFpgaImage& fpga, tcLines& lines) {
    lines.line("pairs flip").onOff(fpga.pairsFlip);
    lines.line("arriving").size(fpga.width, fpga.height);
    lines.line("back porch").place(fpga.porchX, fpga.porchY);
    lines.line("delivered").size(fpga.roiWidth, fpga.roiHeight).word("from");
    lines.place(fpga.roiX, fpga.roiY);
    lines.line("bad-pixel map").onOff(fpga.replace).number(fpga.entries).word("pixels,");
    lines.size(fpga.mapWidth, fpga.mapHeight).word("from").place(fpga.mapX, fpga.mapY);
    lines.word(fpga.color ? "colour" : "grey");
    lines.line("pixel shift").word(fpga.shiftLeft ? "left" : "right").number(fpga.shift);
}

} // namespace

tsPipeline decodePipeline(tcFpga& fpga) {
    using namespace badPixelRegisters;
    const tcDecoder decoder(fpga);
    const std::uint32_t control = decoder.badPixels(kControlWord);
    return {(control & kControlRun) != 0 && (control & kControlReset) == 0,
            (decoder.pixelShift() & pixelShiftRegisters::kControlReset) == 0};
}

tsFpgaImage decodeFpga(tcFpga& fpga) {
    const tcDecoder decoder(fpga);
    tsFpgaImage image;
    decodeFrameControl(decoder, image);
    decodeBadPixels(decoder, fpga, image);
    decodePixelShift(decoder, image);
    return image;
}

std::optional<tsFrameSettings> decodeFrame(const tcSensor& sensor, tcFpga& fpga) {
    const tsPipeline pipeline = decodePipeline(fpga);
    if (!pipeline.badPixelsRun || !pipeline.pixelShiftRuns) {
        return std::nullopt;
    }
    tsFrameSettings settings;
    settings.clockMhz = fpga.clockMhz();
    settings.frameLines = sensor.field(kHdMax);
    settings.lineClocks = sensor.field(kHdPrd) + 1;
    settings.sensor = decodeSensor(sensor, settings.clockMhz);
    settings.fpga = decodeFpga(fpga);
    return settings;
}

std::string describe(const tsFrameSettings& settings) {
    tcLines lines;
    lines.line("time").word(tcText().seconds(settings.timeNs).view()).word("s");
    if (settings.number != 0) {
        lines.line("frame").number(settings.number);
    }
    lines.line("master clock").fixed(settings.clockMhz).word("MHz");
    lines.line("frame length").number(settings.frameLines).word("lines of");
    lines.number(settings.lineClocks).word("clocks");
    describeSensor(settings.sensor, lines);
    describeFpga(settings.fpga, lines);
    return lines.text() + "\n";
}

tsFrame render(const tsFrameSettings& settings, const tcScene& scene,
               std::span<const tsDefect> defects) {
    tsFrame frame = fpgaImage(settings.fpga, sensorImage(settings.sensor, scene, defects));
    frame.time = std::chrono::nanoseconds(settings.timeNs);
    frame.settings = describe(settings);
    return frame;
}

} // namespace sim

// Region of interest, binning and mirroring.
//
//     columns 0 ... x ............... x + width - 1 ... 2591
//     row y * b        +--------------+
//        (b = binning) |    region    |
//     row (y+height-1)*b -------------+
//
// The last row given to the sensor is the first of its bin, not the last: the sensor completes it.

#include <algorithm>
#include <iostream>

#include "common/print.h"
#include "plugin/board.h"
#include "plugin/register_words.h"
#include "sensor/registers.h"

namespace Varnox {

namespace {

constexpr std::int32_t kColumnStep = 24; // pixels: what the lanes carry in one turn
constexpr std::int32_t kRowStep = 2;     // rows: they are read out in pairs
constexpr int kMaxVerticalBin = 2;

constexpr std::uint16_t low16(std::int64_t value) {
    return static_cast<std::uint16_t>(value);
}

/// Whether `start` and `length` lie inside 0 to `limit`, without their sum ever overflowing.
constexpr bool inside(std::int32_t start, std::int32_t length, std::int32_t limit) {
    return start >= 0 && length > 0 && length <= limit && start <= limit - length;
}

constexpr bool valid(const ROI& roi) {
    return inside(roi.y, roi.height, kFullFrame.height) &&
           inside(roi.x, roi.width, kFullFrame.width) && roi.x % kColumnStep == 0 &&
           roi.width % kColumnStep == 0 && roi.y % kRowStep == 0 && roi.height % kRowStep == 0;
}

} // namespace

int tc3U5MGXSSensorBoard::setROI(ROI roi) {
    int result = eSuccess;
    if (isCapturing()) {
        updateStatusFMT("ROI: Capture in progress");
        result = eCaptureInProgress;
    } else if (!valid(roi)) {
        updateStatusFMT("ROI not valid");
        result = eInvalidArgument;
    } else {
        m_roi = roi;
        result = programMultipleROI();
    }
    // Also after a refusal: the timing may have changed since the region was set. The minimum
    // counts as unsigned here: a readout that takes for ever is above every interval.
    const int minimum = getMinFrameIntervalMicroS();
    if (m_frameInterval < std::int64_t{static_cast<std::uint32_t>(minimum)}) {
        result = raiseFrameInterval(minimum);
    }
    publish(registerWords::kMinFrameInterval, getMinFrameIntervalMicroS());
    return result;
}

ROI tc3U5MGXSSensorBoard::getROI() {
    return m_roi;
}

/// Regions in use, never beyond the table: its length and the number are the host's.
std::size_t tc3U5MGXSSensorBoard::activeRegions() const {
    return std::min(regions.size(), static_cast<std::size_t>(std::max(numberOfRegions, 0)));
}

ROI tc3U5MGXSSensorBoard::getImageROI() {
    if (numberOfRegions == 1) {
        return getROI();
    }
    ROI image = regions.empty() ? ROI{} : regions.front();
    image.height = 0;
    for (std::size_t area = 0; area < activeRegions(); ++area) {
        image.y = std::min(image.y, regions[area].y);
        image.height = low16(std::int64_t{image.height} + regions[area].height);
    }
    return image;
}

int tc3U5MGXSSensorBoard::programMultipleROI() {
    print(std::cout, "programMultipleROI ", m_roi.toString(), "\n");
    m_sensor.resetROIAreas();
    if (const int result = programAreas(); result != 0) {
        return result;
    }

    const int exposure = getExposure();
    const int interval = getFrameInterval();
    setExposure(exposure);
    setFrameInterval(interval);

    const ROI image = getImageROI();
    print(std::cout, "image", image.toString(), "\n");
    const tcCanon3U5MGXSFrameCtrl::tsResolutionConfig resolution{low16(image.height),
                                                                 low16(image.width)};
    m_fpga.frameCtrl.setResolutionConfig(resolution);
    m_fpga.frameCtrl.setRoiResCntConfig(resolution);
    m_fpga.frameCtrl.setRoiConfig({low16(image.y), low16(image.x)});
    return eSuccess;
}

int tc3U5MGXSSensorBoard::programAreas() {
    if (numberOfRegions == 1) {
        return programArea(0, m_roi);
    }
    for (std::size_t area = 0; area < activeRegions(); ++area) {
        if (const int result = programArea(area, regions[area]); result != 0) {
            return result;
        }
    }
    return eSuccess;
}

int tc3U5MGXSSensorBoard::programArea(std::size_t area, const ROI& roi) {
    // In 16 bits throughout, as the sensor driver takes them, and the index in 8. The driver leaves
    // out what the sensor has no area for.
    const auto index = static_cast<unsigned char>(area);
    const std::int64_t lastRow = std::int64_t{roi.y} + roi.height - 1;
    const std::int64_t lastColumn = std::int64_t{roi.x} + roi.width - 1;
    return m_sensor.setROIArea(index, low16(std::int64_t{roi.y} * m_verticalBin),
                               low16(lastRow * m_verticalBin), low16(roi.x), low16(lastColumn));
}

// ---- Binning

int tc3U5MGXSSensorBoard::setVerticalBin(int factor) {
    if (factor > kMaxVerticalBin) {
        return eInvalidArgument;
    }
    // No lower bound: 0 and negative factors switch binning off, and hosts send them.
    m_verticalBin = low16(factor);
    m_sensor.setBin(m_verticalBin);
    const ROI image = getImageROI();
    publish(registerWords::kImageWidth, image.width);
    publish(registerWords::kImageHeight, image.height);
    publish(registerWords::kImageX, image.x);
    publish(registerWords::kImageY, image.y);
    return eSuccess;
}

// The getters are constant: hosts take the binning from the image geometry.
int tc3U5MGXSSensorBoard::getVerticalBin() {
    return 1;
}

int tc3U5MGXSSensorBoard::setHorizontalBin(int /*factor*/) {
    return eNotSupported;
}

int tc3U5MGXSSensorBoard::getHorizontalBin() {
    return 1;
}

// ---- Mirroring

int tc3U5MGXSSensorBoard::setMirroring(bool horizontal, bool enable) {
    if (horizontal) {
        m_sensor.setHScanInvert(enable);
    } else {
        m_sensor.setVScanInvert(enable);
        // From the bottom up, the lines of each pair arrive swapped.
        m_fpga.frameCtrl.enablePairsFlip(enable);
    }
    return eSuccess;
}

int tc3U5MGXSSensorBoard::getMirroring(bool horizontal, bool* enabled) {
    *enabled = horizontal ? m_sensor.getHScanInvert() : m_sensor.getVScanInvert();
    return eSuccess;
}

} // namespace Varnox

// Bringing the head up, starting and stopping, and the master clock.

#include <chrono>
#include <iostream>

#include <INIReader.h>
#include <varnox/register_file.h>

#include "common/ini.h"
#include "common/pause.h"
#include "common/print.h"
#include "plugin/board.h"
#include "plugin/register_words.h"

using namespace std::chrono_literals;

namespace Varnox {

namespace {

constexpr const char* kSection = "Settings";

// The head's lanes as they are wired: these arrive inverted.
constexpr unsigned int kLaneInvertMask = 0x5D9;

// Frame-start pulse until a frame interval is set.
constexpr std::uint32_t kPulseClocks = 10; // master clocks
constexpr double kPulseHertz = 30;

constexpr auto kLanesOn = 200us;       // the sensor's drivers settle before the first pulse
constexpr auto kFirstFrame = 8000us;   // a first frame start passes before streaming
constexpr auto kAfterFirstFrame = 8us; // a step of its own in the sequence
constexpr auto kClockSettling = 5000us;

int readSetting(const INIReader& settings, const char* key, int fallback) {
    return readInteger(settings, kSection, key, fallback);
}

} // namespace

// ---- initialize

int tc3U5MGXSSensorBoard::initialize() {
    int result = eLinkFailure;
    guarded([this, &result] { result = bringUp(); });
    return result;
}

int tc3U5MGXSSensorBoard::bringUp() {
    tcRegisterFile::getInstance(nullptr, true)->observable().registerObserver(m_regFileObs);
    const INIReader settings("3u5mgxs_config.ini");
    if (const int result = powerSensorUp(); result != 0) {
        return result;
    }
    if (const int failedCores = initializeFpga(settings); failedCores != 0) {
        return failedCores;
    }
    const ROI roi = restoreSettings(settings);

    const int link = trainLink();
    enablePulses(false);
    m_sensor.setFrameState(tc3U5MGXS::eFrameStop);
    if (link == 0) {
        loadBadPixelMap(roi);
    }
    setBPP(eBPP12);
    publishState();
    guarded([this] { m_fpga.dumpRegisters(); });
    return link;
}

int tc3U5MGXSSensorBoard::powerSensorUp() {
    updateStatus(eStatusProgress, "Powering up sensor...");
    int result = eLinkFailure;
    guarded([this, &result] { result = m_sensor.powerUp(); });
    if (result != 0) {
        updateStatus(eStatusError, "Sensor powerup error!");
    }
    return result;
}

int tc3U5MGXSSensorBoard::initializeFpga(const INIReader& settings) {
    updateStatus(eStatusProgress, "Initializing FPGA...");
    if (const unsigned int failedCores = m_fpga.initialize(); failedCores != 0) {
        updateStatus(eStatusError, "FPGA Initialization error!");
        return static_cast<int>(failedCores);
    }
    m_fpga.frameCtrl.setLaneInversion(
        readUnsigned(settings, kSection, "LaneInvertMask", kLaneInvertMask));
    // One block: the first exception skips the rest.
    guarded([this] {
        m_fpga.pwm.setInvertPulse(true);
        m_fpga.pwm.setDutyClks(kPulseClocks);
        m_fpga.pwm.setPeriodFreq(kPulseHertz);
    });
    updateStatus(eStatusProgress, "FPGA Initialization done");
    m_sensor.setMClockMhz(m_fpga.getClockMhz());
    return 0;
}

/// Refusals do not end the initialization; each setter reports its own. A trigger mode that was set
/// before stays in force, on its line too, although the settings file has put the sensor back into
/// frame-control mode 0: meant, hosts choose the trigger after they initialize.
ROI tc3U5MGXSSensorBoard::restoreSettings(const INIReader& settings) {
    ROI roi;
    roi.x = readSetting(settings, "RoiX", kFullFrame.x);
    roi.y = readSetting(settings, "RoiY", kFullFrame.y);
    roi.width = readSetting(settings, "RoiWidth", kFullFrame.width);
    roi.height = readSetting(settings, "RoiHeight", kFullFrame.height);
    // The sensor gets it with the frame interval.
    m_exposure = readSetting(settings, "ExposureTime", 30000);
    setFrameInterval(readSetting(settings, "FrameInterval", 100000));

    numberOfRegions = 1;
    setROI(roi);
    setVerticalBin(readSetting(settings, "VerticalBin", 1));
    // The sensor is mounted upside down.
    setMirroring(false, true);
    setMirroring(true, true);
    return roi;
}

/// Trains the link while the sensor drives its lanes and frame starts come in. Callers switch off
/// again, each in its own order.
/// \return the link's code; 6 when the training threw, for example out of standard output
int tc3U5MGXSSensorBoard::trainLink() {
    m_sensor.setFrameState(tc3U5MGXS::eFrameLanesOn);
    enablePulses(true);
    int result = eLinkFailure;
    guarded([this, &result] { result = m_fpga.frameCtrl.enableCore(true); });
    return result;
}

void tc3U5MGXSSensorBoard::loadBadPixelMap(const ROI& roi) {
    guarded([this, &roi] {
        m_fpga.badPixelReplacement.setData("bad_pixel_map.txt");
        m_fpga.badPixelReplacement.setRoi(roi);
        m_fpga.badPixelReplacement.setColor(false);
    });
}

void tc3U5MGXSSensorBoard::publishState() {
    publish(registerWords::kBoardFormat, registerWords::kBoardFormatValue);
    publish(registerWords::kBoardReady, 1);
    publish(registerWords::kExposureMode, m_sensor.getExposureMode());
    publish(registerWords::kDigitalGain, getDGain());
}

// ---- start and stop

int tc3U5MGXSSensorBoard::start() {
    if (validate() != 0) {
        return eValidationFailed;
    }
    if (isCapturing() || !resetPipeline(false)) {
        // Hosts look for this text in both cases.
        print(std::cout, "Error starting capture (failed to get all channels synced)\n");
        return eLinkFailure;
    }
    if (m_trigger == eTriggerFreeRunning) {
        m_sensor.setFrameState(tc3U5MGXS::eFrameLanesOn);
        pauseFor(kLanesOn);
        enablePulses(true);
        pauseFor(kFirstFrame);
        pauseFor(kAfterFirstFrame);
    }
    m_sensor.setFrameState(tc3U5MGXS::eFrameStream);
    m_capturing = true;
    updateStatus(eStatusCaptureStarted, "Starting capture...");
    return eSuccess;
}

int tc3U5MGXSSensorBoard::stop() {
    m_sensor.setFrameState(tc3U5MGXS::eFrameStop);
    // The frame under way still arrives.
    if (const std::chrono::microseconds frame(m_frameInterval); frame.count() > 0) {
        pauseFor(frame);
    }
    enablePulses(false);
    resetPipeline(true);
    m_capturing = false;
    updateStatus(eStatusCaptureEnded, "Ending capture...");
    return eSuccess;
}

int tc3U5MGXSSensorBoard::resetFpga() {
    return resetPipeline(true) ? 1 : 0;
}

int tc3U5MGXSSensorBoard::validate() {
    return eSuccess;
}

bool tc3U5MGXSSensorBoard::isCapturing() {
    return m_capturing;
}

// ---- Master clock

int tc3U5MGXSSensorBoard::setClockSetting(int index) {
    if (isCapturing()) {
        updateStatus(eStatusError, "Can't change clock while running");
        return eCaptureInProgress;
    }
    updateStatus(eStatusProgress, "Changing clock settings");
    resetPipeline(true);
    m_fpga.frameCtrl.enableCore(false);
    const int clock = m_fpga.setMClk(static_cast<tc3U5MGXSFpga::teMClkSpeed>(index));

    const int link = trainLink();
    m_sensor.setFrameState(tc3U5MGXS::eFrameStop);
    enablePulses(false);
    if (link != 0) {
        updateStatusFMT(eStatusError, "PLL/DPA lock failed. rv=%d", link);
        return eLinkFailure;
    }
    pauseFor(kClockSettling);
    if (clock != 0) {
        return clock;
    }

    const float clockMhz = m_fpga.getClockMhz();
    m_sensor.setMClockMhz(clockMhz);
    updateStatusFMT(eStatusProgress, "clock: %f", static_cast<double>(clockMhz));
    guarded([this] {
        const int exposure = getExposure();
        const int interval = getFrameInterval();
        setExposure(exposure);
        setFrameInterval(interval);
    });
    return eSuccess;
}

int tc3U5MGXSSensorBoard::getClockSetting(int& index) {
    index = m_fpga.getMClk();
    return eSuccess;
}

} // namespace Varnox

/// \file
/// A board without hardware, for tests of the host application.
#pragma once

#include <map>
#include <string>

#include <varnox/multiple_roi_sensor.h>
#include <varnox/sensor_board.h>

/// Remembers what it is told, with the limits and refusals that real boards have. Its device name
/// says how it behaves:
///
/// | device | behaviour |
/// |---|---|
/// | "init=N" | `initialize` returns N |
/// | "stubborn" | `stop` returns 6, `setExposure` throws |
/// | "rolling" | takes any interval, in steps of 900 us; refuses 0 of them with 3, but keeps it |
/// | anything else | all is well |
///
/// Exposure and interval are rounded down to 10 us; above 1,000,000 us they are refused. The
/// interval is at least 12,340 us, the exposure at most the interval and 700,000 us.
class tcFakeBoard : public Varnox::tcSensorBoard, public Varnox::tcMultipleROISensor {
public:
    explicit tcFakeBoard(std::string device);
    ~tcFakeBoard() override; ///< prints "fake: board deleted"

    Varnox::tcAbstractHandler*
    getCustomHandlers(Varnox::tcAbstractHandler* next,
                      std::map<std::string, Varnox::tcAbstractHandler*>* handlers) override;
    int resetFpga() override;
    std::string fpgaVersion() override;
    int GetCameraInfo(Varnox::tsCameraInfo& info) override;
    int setClockSetting(int index) override;
    int getClockSetting(int& index) override;
    int initialize() override;
    int setExposure(int microseconds) override;
    int getExposure() override;
    int getMinFrameIntervalMicroS() override;
    int setFrameInterval(int microseconds) override;
    int getFrameInterval() override;
    int setROI(Varnox::ROI roi) override;
    Varnox::ROI getROI() override;
    int setVerticalBin(int factor) override;
    int setBPP(Varnox::teBPPMode mode) override;
    int setColor(bool color) override;
    int setTestPattern(Varnox::teTestPattern pattern) override;
    int getTestPattern() override;
    int setTrigger(Varnox::teTriggerMode mode) override;
    int getTrigger() override;
    int peek(int reg, int* value) override;
    int poke(int reg, int value) override;
    bool isCapturing() override;
    int start() override;
    int stop() override;
    std::string getTemperature(int index) override;
    int getTempCelsius() override;
    std::string getVersion() override;
    int save(int slot) override;
    int setIODirection(int pin, int direction) override;
    int setIOValue(int pin, int value) override;
    int setIOInverter(int pin, int inverted) override;
    int getIODirection(int pin) override;
    int getIOValue(int pin) override;
    int getNumPins() override;
    int setMirroring(bool horizontal, bool enable) override;
    int getMirroring(bool horizontal, bool* enabled) override;
    int setAnalogGain(int step) override;
    int getAnalogGain(int* step) override;
    int setWhiteBalance(int red, int green, int blue) override;
    int getWhiteBalance(int* red, int* green, int* blue) override;
    int setStrobe(int microseconds) override;
    int programMultipleROI() override;

private:
    [[nodiscard]] bool isRegion(const Varnox::ROI& roi) const;

    std::string m_device;
    int m_exposure = 30000;
    int m_interval = 100000;
    int m_clock = 1;
    int m_trigger = 0;
    int m_pattern = 0;
    int m_gain = 0;
    int m_white[3] = {100, 100, 100};
    int m_direction[2] = {};
    int m_level[2] = {};
    bool m_mirror[2] = {}; // vertical, horizontal
    bool m_capturing = false;
    Varnox::ROI m_roi{0, 0, 2592, 2056};
    std::map<int, int> m_registers{{0x0D8, 0x2D90F}};
};

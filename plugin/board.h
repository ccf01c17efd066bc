/// \file
/// The 3U5MGXS sensor board: the chief header of the plug-in.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include <pellum/gpio.h>
#include <varnox/multiple_roi_sensor.h>
#include <varnox/observer.h>
#include <varnox/sensor_board.h>

#include "common/full_frame.h"
#include "fpga/fpga.h"
#include "plugin/external_exposure.h"
#include "sensor/sensor.h"

class INIReader;

namespace Varnox {

/// One camera head with a 3U5MGXS sensor, as the host drives it.
///
/// Results are `teResult` numbers unless a docstring says otherwise. What the FPGA cores throw
/// never leaves an operation, and `initialize` lets nothing out at all. Times at this interface are
/// whole microseconds.
///
/// Threads: `setExposure`, `setFrameInterval` and `getVersion` hold the board mutex and may be
/// called from several threads, as may `peek`, `poke`, the gain, the exposure mode, the getters of
/// exposure, intervals, trigger and capture, and writes to the register file. Everything else is
/// for one control thread of the host, and `initialize`, `setClockSetting` and regions not beside
/// them: they reprogram what the others work with.
class tc3U5MGXSSensorBoard : public tcSensorBoard,
                             public tcMultipleROISensor,
                             public tcExternalExposure {
public:
    /// Carries clients' writes to the sensor's exposure mode (0x3D000) and coarse digital gain
    /// (0x3D004) from the register file to the board.
    class tcRegFileObs : public tcObserver {
    public:
        /// \param board not owned
        explicit tcRegFileObs(tc3U5MGXSSensorBoard& board);
        ~tcRegFileObs() override;

        /// Marks word writes to the two words as handled, with status 0x8FFF when the board
        /// refuses. Any other update is printed and left unmarked.
        void update(tsUpdate& update) override;

    private:
        tc3U5MGXSSensorBoard* m_board;
    };

    /// Builds the objects and finds the external-trigger line; no sensor register is touched.
    /// \param spiDevice path of the sensor's SPI device
    explicit tc3U5MGXSSensorBoard(const std::string& spiDevice);

    /// Neither stops a capture nor powers the sensor down.
    ~tc3U5MGXSSensorBoard() override;

    // Every override stands for its slot of the host interface; the order below is the host's.

    /// Contributes the clock, exposure-mode and bad-pixel handlers. The host owns them.
    /// \param handlers keyword table of the host; may be null. After a failure it holds what it
    ///                 held before.
    /// \return the head of the chain, which ends in `next`
    /// \throws std::bad_alloc when a handler or an entry cannot be had; no handler is left then
    tcAbstractHandler*
    getCustomHandlers(tcAbstractHandler* next,
                      std::map<std::string, tcAbstractHandler*>* handlers) override;

    /// Holds the FPGA pipeline in reset.
    /// \return 1, the success of the FPGA object; 0 when a core throws
    int resetFpga() override;

    int GetCameraInfo(tsCameraInfo& info) override;

    /// Stops the pipeline, sets the sensor's master clock, brings the link up again and applies
    /// exposure and frame interval anew.
    /// \param index 0 = 24 MHz, 1 = 36 MHz
    /// \return 0; 3 for another index (the link is brought up all the same); 5 while capturing; 6
    ///         when the link does not come back
    int setClockSetting(int index) override;
    int getClockSetting(int& index) override;

    /// Brings the head from power-off to a running link, with the settings of "3u5mgxs_config.ini".
    /// Whatever is thrown on the way, a host's status listener included, ends here.
    /// \return 0, or the first of: the sensor's power-up code (6 when it throws), the FPGA's mask
    ///         of cores that are not ready (6 when it throws), the link's code
    int initialize() override;

    /// \param microseconds limited to what the frame interval allows
    /// \return 0; 4 when the sensor's exposure mode has no exposure arithmetic
    int setExposure(int microseconds) override;
    int getExposure() override;
    int getMinFrameIntervalMicroS() override;

    /// \param microseconds rounded down to a multiple of the horizontal period's number
    /// \return 0; 3 when the frame-start pulse cannot have this period (the interval is kept); the
    ///         sensor's code
    int setFrameInterval(int microseconds) override;
    int getFrameInterval() override;

    /// \param roi inside the full frame; x and width multiples of 24, y and height even
    /// \return 0; 3 for another rectangle; 5 while capturing; the code of `setFrameInterval` when
    ///         the interval had to be raised
    int setROI(ROI roi) override;
    ROI getROI() override;
    /// \return the image that the FPGA delivers: regions are stacked vertically
    ROI getImageROI() override;

    /// Takes effect in the readout areas with the next region.
    /// \param factor 2 bins; up to 2, without a lower bound
    /// \return 0; 3 for more than 2
    int setVerticalBin(int factor) override;
    int getVerticalBin() override;                   ///< always 1, whatever was set
    int setHorizontalBin(int factor) override;       ///< always 7: the sensor has none
    int getHorizontalBin() override;                 ///< always 1
    int setShutterMode(teShutterMode mode) override; ///< always 7: the shutter is global
    int getShutterMode() override;                   ///< always 1

    /// \return 0; 4 for another mode than 0, 2 and 3; 6 when the pixel shifter throws
    int setBPP(teBPPMode mode) override;
    int setColor(bool color) override;
    /// \return 0; 3 for another pattern than 0, 1, 16 and 17
    int setTestPattern(teTestPattern pattern) override;
    int getTestPattern() override;

    /// \return 0; 3 for an unknown mode (the mode in force is applied again); 5 while capturing
    int setTrigger(teTriggerMode mode) override;
    int getTrigger() override;

    /// \param reg   sensor register, answered from the driver's shadow copy
    /// \param value untouched when the register was never written
    /// \return 0, or 3
    int peek(int reg, int* value) override;
    /// \param reg sensor register, up to 0xFFFF; negative numbers lose their upper bits
    /// \return 0, or 3
    int poke(int reg, int value) override;

    int validate() override; ///< always 0
    bool isCapturing() override;

    /// \return 0; 4 when `validate` fails; 6 when already capturing or the pipeline does not start
    int start() override;
    int stop() override; ///< always 0

    std::string getTemperature(int index) override; ///< always "-275": there is no sensor for it
    std::string getVersion() override;
    int save(int slot) override;   ///< always 7
    int recall(int slot) override; ///< always 7
    int power(bool on) override;   ///< always 7

    /// \param horizontal which axis
    /// \return 0
    int setMirroring(bool horizontal, bool enable) override;
    int getMirroring(bool horizontal, bool* enabled) override;

    // None of these exists on this board: always 7.
    int setAnalogGain(int step) override;
    int getAnalogGain(int* step) override;
    int setBlackLevel(int level) override;
    int getBlackLevel(int* level) override;
    int setWhiteBalance(int red, int green, int blue) override;
    int getWhiteBalance(int* red, int* green, int* blue) override;
    int setGamma(int percent) override;
    int getGamma(int* percent) override;
    int setStrobe(int microseconds) override;

    /// \param skip becomes false
    /// \return 1 when free-running, else 0
    int GetSkipFrames(bool& skip) override;

    int setInternalExposureMode(bool internal) override;
    bool getInternalExposureMode() override;

    /// Programs the readout areas, applies timing anew, and tells the FPGA what will arrive.
    /// \return 0, or the sensor's code
    int programMultipleROI() override;

    // ---- Beyond the host interface

    /// Puts trigger line, frame-control mode and exposure in step with trigger and exposure mode.
    /// \return the result of `setExposure`
    int configureTriggers();

    /// \return 0, or the result of `setFrameInterval` when the interval had to be raised
    int setExposureMode(tc3U5MGXS::teExposureMode mode);

    int setDGain(tc3U5MGXS::teDGainCoarse gain); ///< always 0
    tc3U5MGXS::teDGainCoarse getDGain();

private:
    static void publish(std::uint32_t address, std::int64_t value);

    /// Runs calls; what they throw becomes a status line of level 4 with its text, or "unknown
    /// exception". What ends a thread (`pthread_cancel`) passes.
    /// \return whether they went through
    bool guarded(const std::function<void()>& calls);
    bool enablePulses(bool enable);
    bool resetPipeline(bool hold);
    void reportFailure(const char* text);

    // Steps of initialize, and of the clock setting where it does the same.
    int bringUp();
    int powerSensorUp();
    int initializeFpga(const INIReader& settings);
    ROI restoreSettings(const INIReader& settings);
    int trainLink();
    void loadBadPixelMap(const ROI& roi);
    void publishState();

    int raiseFrameInterval(int minimum);
    int programAreas();
    int programArea(std::size_t area, const ROI& roi);
    [[nodiscard]] std::size_t activeRegions() const;

    tc3U5MGXSFpga m_fpga;
    tc3U5MGXS m_sensor;
    std::atomic<std::int64_t> m_exposure{0};      // us, as applied
    std::atomic<std::int64_t> m_frameInterval{0}; // us, as applied
    std::atomic<bool> m_internalExposure{true};
    std::atomic<int> m_trigger{eTriggerFreeRunning};
    int m_testPattern = eTestPatternOff;
    std::uint16_t m_verticalBin = 1;
    std::atomic<bool> m_capturing{false};
    ROI m_roi = kFullFrame;
    Pellum::tcGpioSingle m_extTrigEnable{0};
    tcRegFileObs m_regFileObs;
};

} // namespace Varnox

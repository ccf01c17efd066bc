/// \file
/// The host's interface to a camera head.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <varnox/codes.h>
#include <varnox/export.h>
#include <varnox/mutex.h>
#include <varnox/observer.h>
#include <varnox/roi.h>

namespace Varnox {

class tcAbstractHandler;
class tcPipeline;

/// Words of the register file that every board serves.
namespace sensorBoardWords {
inline constexpr std::uint32_t kFrameInterval = 0x3A000; ///< us
inline constexpr std::uint32_t kExposure = 0x3A004;      ///< us
} // namespace sensorBoardWords

/// What a board says of itself.
struct tsCameraInfo {
    char model[16];            ///< NUL-terminated
    char maker[24];            ///< NUL-terminated
    ROI fullFrame;             ///< the whole pixel array
    std::uint16_t flags;       ///< 0: none
    std::int32_t sensorWidth;  ///< [pixels]
    std::int32_t sensorHeight; ///< [rows]
};

/// Receives the events that the FPGA raises for a board.
class VARNOX_API tcEventHandler {
public:
    tcEventHandler() = default;
    tcEventHandler(const tcEventHandler&) = delete;
    tcEventHandler& operator=(const tcEventHandler&) = delete;
    virtual ~tcEventHandler();
    /// Called on a thread of the host's.
    /// \param source event line, from 0
    /// \param flags  what the FPGA says with the event
    virtual void Handler(unsigned int source, unsigned int flags) = 0;
};

/// One camera head. Plug-ins derive from it; `makeSensor` hands the host a pointer to it.
///
/// The order of the virtual operations is part of the host interface. An operation that returns an
/// int and does not say what returns a `teResult`: 0 for success, or a code of the board's lower
/// layers. What a board does not override has a default that says so: a result of 7
/// (`eNotSupported`) where there is nothing to do, with every out argument untouched; else the
/// neutral value: no name, no rectangle, binning by 1, -275 degrees Celsius, pin -1.
///
/// A board says itself which operations several threads may call at once.
class VARNOX_API tcSensorBoard : public tcObserver, public tcEventHandler {
public:
    /// Receives the board's status lines, on the thread that caused them and with the board's locks
    /// as they are: it must not call the board or write to the register file.
    using StatusListener = std::function<void(int level, const std::string& text)>;

    /// \param boardType    the host's code of the board family
    /// \param regionBase   physical address of the board's FPGA register region
    /// \param regionLength length of that region [bytes]
    /// \param eventLines   number of event lines the FPGA may raise for the board
    /// \param eventCount   where the host counts the events of this kind of board; not owned
    tcSensorBoard(int boardType, std::uint32_t regionBase, std::uint32_t regionLength,
                  int eventLines, int* eventCount);
    ~tcSensorBoard() override;

    /// Takes clients' writes to 0x3A000 (frame interval, us) and 0x3A004 (exposure, us) and
    /// publishes in the process's register file what the board then has. Status 0x8FFF when the
    /// board refuses; a value above 2147483647 is refused without asking it. Holds the board mutex
    /// until the word is published.
    void update(tsUpdate& update) override;

    /// Makes the board's own command handlers. The host owns them from then on.
    /// \param next     the handler that answers what the board's handlers do not; may be null
    /// \param handlers keyword table to enter them into; may be null
    /// \return the head of the chain
    virtual tcAbstractHandler*
    getCustomHandlers(tcAbstractHandler* next, std::map<std::string, tcAbstractHandler*>* handlers);
    /// Holds the FPGA's pipeline in reset; a stream ends.
    /// \return the board's own number, not a `teResult`
    virtual int resetFpga();
    /// \return version of the FPGA's image as text; empty: the board does not tell
    virtual std::string fpgaVersion();
    /// \param info becomes what the board says of itself
    virtual int GetCameraInfo(tsCameraInfo& info);
    /// Calibrates the black level.
    virtual int calibrate();
    /// Calibrates the white level.
    virtual int whiteLevelCalibrate();
    /// Selects the sensor's master clock.
    /// \param index into the board's list of clocks, from 0
    /// \return 5 while capturing
    virtual int setClockSetting(int index);
    /// \param index becomes the master clock in force, as for `setClockSetting`
    virtual int getClockSetting(int& index);
    /// Takes a single frame.
    virtual int snap();
    /// Brings the head from power-off to a running link, with the settings of its files. May be
    /// called again.
    /// \return 0, or a code of the layer that failed: status lines say which
    virtual int initialize();
    /// Sets the exposure. The sensor counts in lines: `getExposure` tells what it took.
    /// \param microseconds exposure wanted [us]
    virtual int setExposure(int microseconds);
    /// \return exposure in force [us]; 0: the board does not tell
    virtual int getExposure();
    /// \return shortest frame interval with the present region [us]; 0: the board does not tell
    virtual int getMinFrameIntervalMicroS();
    /// Sets the time from frame to frame. `getFrameInterval` tells what the sensor took.
    /// \param microseconds interval wanted [us]
    virtual int setFrameInterval(int microseconds);
    /// \return frame interval in force [us]; 0: the board does not tell
    virtual int getFrameInterval();
    /// Selects the region that is read out.
    /// \param roi inside the full frame
    /// \return 3 for a region that the sensor cannot read out; 5 while capturing
    virtual int setROI(ROI roi);
    /// \return the region that is read out
    virtual ROI getROI();
    /// \return the image that is delivered; without an override that of `getROI`
    virtual ROI getImageROI();
    /// Joins rows.
    /// \param factor rows of the array that make one of the image, from 1
    virtual int setVerticalBin(int factor);
    /// \return rows of the array that make one of the image
    virtual int getVerticalBin();
    /// Joins columns.
    /// \param factor columns of the array that make one of the image, from 1
    virtual int setHorizontalBin(int factor);
    /// \return columns of the array that make one of the image
    virtual int getHorizontalBin();
    /// Selects the shutter.
    /// \param mode rolling or global
    virtual int setShutterMode(teShutterMode mode);
    /// \return a `teShutterMode`
    virtual int getShutterMode();
    /// Selects how pixels are delivered.
    /// \param mode depth and alignment
    /// \return 4 for a mode that the board does not have
    virtual int setBPP(teBPPMode mode);
    /// Tells whether the sensor is a colour sensor.
    /// \param color true: pixels have the colours of a mosaic
    virtual int setColor(bool color);
    /// Selects what is delivered in place of the picture.
    /// \param pattern one of the board
    /// \return 3 for a pattern that the board does not have
    virtual int setTestPattern(teTestPattern pattern);
    /// \return a `teTestPattern`
    virtual int getTestPattern();
    /// Selects what starts a frame.
    /// \param mode free-running or by the trigger input
    /// \return 3 for an unknown mode; 5 while capturing
    virtual int setTrigger(teTriggerMode mode);
    /// \return a `teTriggerMode`
    virtual int getTrigger();
    /// Reads a sensor register.
    /// \param reg its address
    /// \param value becomes what it holds
    /// \return 3 for a register that the board cannot tell
    virtual int peek(int reg, int* value);
    /// Writes a sensor register past all settings.
    /// \param reg its address
    /// \param value what it gets
    /// \return 3 for a register that there is not
    virtual int poke(int reg, int value);
    /// Checks the settings for a capture.
    /// \return 4 when they do not fit each other
    virtual int validate();
    /// \return whether `start` succeeded and `stop` was not called since
    virtual bool isCapturing();
    /// Starts capturing.
    /// \return 4 when `validate` fails; 6 when the board captures already or its pipeline does not
    /// start
    virtual int start();
    /// Ends the capture.
    virtual int stop();
    /// \param index of the thermometer, from 0
    /// \return degrees Celsius as text; "-275": there is none
    virtual std::string getTemperature(int index);
    /// \return temperature of the sensor [degrees Celsius]; -275: there is no thermometer
    virtual int getTempCelsius();
    /// \return temperature of the board [degrees Celsius]; -275: there is no thermometer
    virtual int getBoardTempCelsius();
    /// \return versions of hardware and software, as text for a person
    virtual std::string getVersion();
    /// Keeps the settings.
    /// \param slot of the board's own memory, from 0
    virtual int save(int slot);
    /// Takes kept settings.
    /// \param slot of the board's own memory, from 0
    virtual int recall(int slot);
    /// Makes a pin an output or an input.
    /// \param pin from 0
    /// \param direction 1 = output, 0 = input
    virtual int setIODirection(int pin, int direction);
    /// Sets the level of an output pin.
    /// \param pin from 0
    /// \param value level of an output, 0 or 1
    virtual int setIOValue(int pin, int value);
    /// Inverts a pin's level.
    /// \param pin from 0
    /// \param inverted 1: the pin's level is inverted
    virtual int setIOInverter(int pin, int inverted);
    /// Switches the supplies of the head.
    /// \param on true: the head gets its supplies; false: it loses them
    virtual int power(bool on);
    /// \param pin from 0
    /// \return 1 = output, 0 = input, -1: there is no such pin
    virtual int getIODirection(int pin);
    /// \param pin from 0
    /// \return 0 or 1; -1: there is no such pin
    virtual int getIOValue(int pin);
    /// \return number of the board's pins
    virtual int getNumPins();
    /// Mirrors the picture.
    /// \param horizontal true: left and right; false: top and bottom
    /// \param enable whether they change places
    virtual int setMirroring(bool horizontal, bool enable);
    /// \param horizontal as for `setMirroring`
    /// \param enabled becomes whether they change places
    virtual int getMirroring(bool horizontal, bool* enabled);
    /// Sets the analogue gain.
    /// \param step of the board's own scale
    virtual int setAnalogGain(int step);
    /// \param step becomes that of the gain in force
    virtual int getAnalogGain(int* step);
    /// Sets what a dark pixel reads.
    /// \param level in the board's own scale
    virtual int setBlackLevel(int level);
    /// \param level becomes what is in force
    virtual int getBlackLevel(int* level);
    /// Sets the gains of the colours.
    /// \param red
    /// \param green
    /// \param blue gains of the colours, in the board's own scale
    virtual int setWhiteBalance(int red, int green, int blue);
    /// \param red
    /// \param green
    /// \param blue become the gains in force
    virtual int getWhiteBalance(int* red, int* green, int* blue);
    /// Sets the gamma.
    /// \param percent gamma [%]; 100 leaves pixels as they are
    virtual int setGamma(int percent);
    /// \param percent becomes the gamma in force [%]
    virtual int getGamma(int* percent);
    /// Sets the flash pulse.
    /// \param microseconds length of the flash pulse [us]
    virtual int setStrobe(int microseconds);
    /// \return the board's own streamer, of a type that host and board agree on; null: none. Not
    /// owned
    virtual void* getStreamer();
    /// \return what stamps frames, of a type that host and board agree on; null: none. Not owned
    virtual void* getTimestamper();
    /// \param timestamper as `getTimestamper` returns it; not owned
    virtual int setTimestamper(void* timestamper);
    /// \return the board itself
    virtual tcSensorBoard* self();
    /// Counts the event, if the board has such a line.
    void Handler(unsigned int source, unsigned int flags) override;
    /// \return code of the delivered pixels that host and board agree on; 0: none
    virtual int getPixelFormat();
    /// \param skip becomes whether the host drops the first frames of a capture
    /// \return the board's own number, not a `teResult`
    virtual int GetSkipFrames(bool& skip);

    /// \param listener null: status lines go nowhere
    void setStatusListener(StatusListener listener);

    /// \param pipeline the host's pipeline, not owned; null: back to the one the board brings along
    void setPipeline(tcPipeline* pipeline);

protected:
    /// Reports a text as it stands.
    void updateStatus(int level, const std::string& text);
    /// Reports a printf-style text.
    void updateStatusFMT(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// The same without a level: the listener gets `eStatusPlain`.
    void updateStatusFMT(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// The board mutex: recursive and robust.
    tcMutex& boardMutex() { return m_boardMutex; }

    /// The pipeline object behind the board; never null.
    tcPipeline& pipeline() { return *m_pipeline; }

private:
    tcMutex m_boardMutex{true};
    std::unique_ptr<tcPipeline> m_ownPipeline;
    tcPipeline* m_pipeline;
    std::mutex m_listenerLock; // never held while the listener runs
    std::shared_ptr<const StatusListener> m_statusListener;
    // Kept for hosts that look into a board; nothing here reads them.
    [[maybe_unused]] int m_boardType;
    [[maybe_unused]] std::uint32_t m_regionBase;   // physical
    [[maybe_unused]] std::uint32_t m_regionLength; // bytes
    int m_eventLines;
    int* m_eventCount;
};

} // namespace Varnox

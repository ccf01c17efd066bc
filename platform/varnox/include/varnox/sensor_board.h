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
inline constexpr std::uint32_t kFrameInterval = 0x3A000; // us
inline constexpr std::uint32_t kExposure = 0x3A004;      // us
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
    virtual void Handler(unsigned int source, unsigned int flags) = 0;
};

/// One camera head. Plug-ins derive from it; `makeSensor` hands the host a pointer to it.
///
/// The order of the virtual operations is part of the host interface. What a board does not
/// override has a default that says so: a result of 7 (`eNotSupported`) where there is nothing to
/// do, with every out argument untouched; else the neutral value: no name, no rectangle, binning by
/// 1, -275 degrees Celsius, pin -1.
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
    virtual int resetFpga();
    virtual std::string fpgaVersion();
    virtual int GetCameraInfo(tsCameraInfo& info);
    virtual int calibrate();
    virtual int whiteLevelCalibrate();
    virtual int setClockSetting(int index);
    virtual int getClockSetting(int& index);
    virtual int snap();
    virtual int initialize();
    virtual int setExposure(int microseconds);
    virtual int getExposure();
    virtual int getMinFrameIntervalMicroS();
    virtual int setFrameInterval(int microseconds);
    virtual int getFrameInterval();
    virtual int setROI(ROI roi);
    virtual ROI getROI();
    virtual ROI getImageROI();
    virtual int setVerticalBin(int factor);
    virtual int getVerticalBin();
    virtual int setHorizontalBin(int factor);
    virtual int getHorizontalBin();
    virtual int setShutterMode(teShutterMode mode);
    virtual int getShutterMode();
    virtual int setBPP(teBPPMode mode);
    virtual int setColor(bool color);
    virtual int setTestPattern(teTestPattern pattern);
    virtual int getTestPattern();
    virtual int setTrigger(teTriggerMode mode);
    virtual int getTrigger();
    virtual int peek(int reg, int* value);
    virtual int poke(int reg, int value);
    virtual int validate();
    virtual bool isCapturing();
    virtual int start();
    virtual int stop();
    virtual std::string getTemperature(int index);
    virtual int getTempCelsius();
    virtual int getBoardTempCelsius();
    virtual std::string getVersion();
    virtual int save(int slot);
    virtual int recall(int slot);
    virtual int setIODirection(int pin, int direction);
    virtual int setIOValue(int pin, int value);
    virtual int setIOInverter(int pin, int inverted);
    virtual int power(bool on);
    virtual int getIODirection(int pin);
    virtual int getIOValue(int pin);
    virtual int getNumPins();
    virtual int setMirroring(bool horizontal, bool enable);
    virtual int getMirroring(bool horizontal, bool* enabled);
    virtual int setAnalogGain(int step);
    virtual int getAnalogGain(int* step);
    virtual int setBlackLevel(int level);
    virtual int getBlackLevel(int* level);
    virtual int setWhiteBalance(int red, int green, int blue);
    virtual int getWhiteBalance(int* red, int* green, int* blue);
    virtual int setGamma(int percent);
    virtual int getGamma(int* percent);
    virtual int setStrobe(int microseconds);
    virtual void* getStreamer();
    virtual void* getTimestamper();
    virtual int setTimestamper(void* timestamper);
    virtual tcSensorBoard* self();
    void Handler(unsigned int source, unsigned int flags) override;
    virtual int getPixelFormat();
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

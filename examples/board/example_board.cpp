// The skeleton of a sensor-board plug-in: copy it, and put your head's hardware where the comments
// say so.
//
// It has no hardware. It comes up, holds an exposure, starts and stops, tells its version, and
// answers one text command, LAMP. A host loads it like any plug-in:
//
//     camhost --plugin ./example_board.so --spi /dev/spidev1.0 -c init -c version -c "LAMP 1"
//
// What a board leaves out answers "not supported" by itself: begin with few operations and add one
// after the other. varnox/sensor_board.h has all of them.

#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include <varnox/abstract_handler.h>
#include <varnox/codes.h>
#include <varnox/plugin_entry.h>
#include <varnox/sensor_board.h>
#include <varnox/string_tokenizer.h>

namespace {

constexpr int kSensorType = 1000;           // the number by which your host knows the sensor
constexpr int kLongestExposure = 1'000'000; // us

// What the base class wants to know of the board's FPGA: nothing of ours uses it.
constexpr int kBoardFamily = 0;
constexpr std::uint32_t kRegionBase = 0;
constexpr std::uint32_t kRegionLength = 0;
constexpr int kEventLines = 0;
int eventCount = 0;

/// Text command LAMP: "LAMP" asks whether the lamp is on, "LAMP 0" and "LAMP 1" switch it.
///
/// A handler answers its own keyword and passes the others on. The host owns it, and deletes it
/// before the board.
class tcLampHandler : public Varnox::tcAbstractHandler {
public:
    tcLampHandler(Varnox::tcSensorBoard* board, Varnox::tcAbstractHandler* next)
        : tcAbstractHandler(board, next) {}

    std::string execute(std::string& command, std::string& arguments) override {
        if (command != kKeyword) {
            return tcAbstractHandler::execute(command, arguments);
        }
        tcStringTokenizer words(arguments, ' ');
        if (!words.hasMoreTokens()) {
            return ack(carrotNumber(m_on ? 1 : 0).c_str()); // <ack ^1>
        }
        int value = -1; // stays so when the word is no number
        words.nextInt(value);
        if (value != 0 && value != 1) {
            return nack(Varnox::eInvalidArgument); // <nack 3>
        }
        // Your hardware: Pellum::tcGpioSingle sets a line, for example.
        m_on = value == 1;
        return ack(nullptr); // <ack>
    }

    static constexpr const char* kKeyword = "LAMP";

private:
    bool m_on = false;
};

/// The board. A host may call it from several threads: what two operations share is touched with
/// the board mutex held.
class tcExampleBoard : public Varnox::tcSensorBoard {
public:
    explicit tcExampleBoard(std::string spiDevice)
        : tcSensorBoard(kBoardFamily, kRegionBase, kRegionLength, kEventLines, &eventCount),
          m_spiDevice(std::move(spiDevice)) {}

    std::string getVersion() override { return "example board 1.0"; }

    /// Your hardware: supplies, reset, registers by tcSPIDevice, link. Each `init` begins anew.
    int initialize() override {
        const std::lock_guard hold(boardMutex());
        m_capturing = false;
        m_initialized = true;
        updateStatusFMT(Varnox::eStatusProgress, "example board on %s is up", m_spiDevice.c_str());
        return Varnox::eSuccess;
    }

    /// \param microseconds 1 to 1,000,000
    int setExposure(int microseconds) override {
        const std::lock_guard hold(boardMutex());
        if (microseconds < 1 || microseconds > kLongestExposure) {
            return Varnox::eInvalidArgument;
        }
        m_exposure = microseconds;
        return Varnox::eSuccess;
    }
    int getExposure() override {
        const std::lock_guard hold(boardMutex());
        return m_exposure;
    }

    int start() override {
        const std::lock_guard hold(boardMutex());
        if (!m_initialized) {
            updateStatus(Varnox::eStatusError, "start: the board is not initialized");
            return Varnox::eValidationFailed;
        }
        m_capturing = true;
        updateStatus(Varnox::eStatusCaptureStarted, "capturing");
        return Varnox::eSuccess;
    }
    int stop() override {
        const std::lock_guard hold(boardMutex());
        m_capturing = false;
        updateStatus(Varnox::eStatusCaptureEnded, "not capturing");
        return Varnox::eSuccess;
    }
    bool isCapturing() override {
        const std::lock_guard hold(boardMutex());
        return m_capturing;
    }

    Varnox::tcAbstractHandler*
    getCustomHandlers(Varnox::tcAbstractHandler* next,
                      std::map<std::string, Varnox::tcAbstractHandler*>* handlers) override {
        auto* const lamp = new tcLampHandler(this, next);
        if (handlers != nullptr) {
            (*handlers)[tcLampHandler::kKeyword] = lamp;
        }
        return lamp;
    }

private:
    std::string m_spiDevice;
    int m_exposure = 10'000; // us
    bool m_initialized = false;
    bool m_capturing = false;
};

} // namespace

// What hosts look for: varnox/plugin_entry.h declares both, exports.map lets nothing else out.

int sensorType() {
    return kSensorType;
}

Varnox::tcSensorBoard* makeSensor(const char* spiDevice) {
    if (spiDevice == nullptr) {
        throw std::logic_error("makeSensor: no SPI device");
    }
    return new tcExampleBoard(spiDevice);
}

#include <varnox/sensor_board.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include <varnox/abstract_handler.h>
#include <varnox/pipeline.h>
#include <varnox/register_file.h>

namespace Varnox {

namespace {

/// What a board without a thermometer reports: below absolute zero. [degrees Celsius]
constexpr int kNoTemperature = -275;

/// What a board without that pin reports.
constexpr int kNoPin = -1;

/// \return the text of a printf-style call, whatever its length
__attribute__((format(printf, 1, 0))) std::string formatted(const char* format,
                                                            std::va_list arguments) {
    char* made = nullptr;
    const int length = ::vasprintf(&made, format, arguments);
    if (length < 0)
        return format; // better the bare line than none
    const std::unique_ptr<char, void (*)(void*)> text(made, std::free);
    return {text.get(), static_cast<std::size_t>(length)};
}

/// Holds the board mutex for a scope, also after an owner that died. Boards guard their sections
/// themselves, in a library of their own.
class tcBoardSection {
public:
    explicit tcBoardSection(tcMutex& mutex) : m_mutex(mutex) {
        const int result = m_mutex.lock();
        m_held = result == 0 || result == EOWNERDEAD;
        if (result == EOWNERDEAD)
            makeConsistent();
    }
    ~tcBoardSection() {
        if (m_held)
            m_mutex.unlock();
    }
    tcBoardSection(const tcBoardSection&) = delete;
    tcBoardSection& operator=(const tcBoardSection&) = delete;

private:
    /// As a board says it: once the mutex is held, no section within asks again.
    void makeConsistent() {
        if (const int result = m_mutex.consistent(); result != 0) {
            errno = result; // where perror looks
            std::perror("pthread_mutex_consistent failed");
        }
    }

    tcMutex& m_mutex;
    bool m_held = false;
};

} // namespace

tcEventHandler::~tcEventHandler() = default;

tcSensorBoard::tcSensorBoard(int boardType, std::uint32_t regionBase, std::uint32_t regionLength,
                             int eventLines, int* eventCount)
    : m_ownPipeline(std::make_unique<tcPipeline>()),
      m_pipeline(m_ownPipeline.get()),
      m_boardType(boardType),
      m_regionBase(regionBase),
      m_regionLength(regionLength),
      m_eventLines(eventLines),
      m_eventCount(eventCount) {}

tcSensorBoard::~tcSensorBoard() = default;

void tcSensorBoard::update(tsUpdate& update) {
    const bool frameInterval = update.address == sensorBoardWords::kFrameInterval;
    if (update.kind != kUpdateWordWrite ||
        (!frameInterval && update.address != sensorBoardWords::kExposure))
        return;
    update.handled = true;

    if (update.value > std::uint32_t{std::numeric_limits<int>::max()}) {
        update.status = kUpdateFailed;
        return;
    }
    const int asked = static_cast<int>(update.value);
    // Until the word is published: another thread's newer setting must not be published before.
    const tcBoardSection section(m_boardMutex);
    const int result = frameInterval ? setFrameInterval(asked) : setExposure(asked);
    if (result != eSuccess)
        update.status = kUpdateFailed;
    if (result == eNotSupported)
        return;
    // Also after a refusal: a board may have applied a part, and the word tells what holds.
    const int applied = frameInterval ? getFrameInterval() : getExposure();
    tcRegisterFile::getInstance(nullptr, true)
        ->update_word(update.address, static_cast<std::uint32_t>(applied));
}

tcAbstractHandler*
tcSensorBoard::getCustomHandlers(tcAbstractHandler* next,
                                 std::map<std::string, tcAbstractHandler*>* /*handlers*/) {
    return next;
}

int tcSensorBoard::resetFpga() {
    return eNotSupported;
}

std::string tcSensorBoard::fpgaVersion() {
    return {};
}

int tcSensorBoard::GetCameraInfo(tsCameraInfo& /*info*/) {
    return eNotSupported;
}

int tcSensorBoard::calibrate() {
    return eNotSupported;
}

int tcSensorBoard::whiteLevelCalibrate() {
    return eNotSupported;
}

int tcSensorBoard::setClockSetting(int /*index*/) {
    return eNotSupported;
}

int tcSensorBoard::getClockSetting(int& /*index*/) {
    return eNotSupported;
}

int tcSensorBoard::snap() {
    return eNotSupported;
}

int tcSensorBoard::initialize() {
    return eNotSupported;
}

int tcSensorBoard::setExposure(int /*microseconds*/) {
    return eNotSupported;
}

int tcSensorBoard::getExposure() {
    return 0;
}

int tcSensorBoard::getMinFrameIntervalMicroS() {
    return 0;
}

int tcSensorBoard::setFrameInterval(int /*microseconds*/) {
    return eNotSupported;
}

int tcSensorBoard::getFrameInterval() {
    return 0;
}

int tcSensorBoard::setROI(ROI /*roi*/) {
    return eNotSupported;
}

ROI tcSensorBoard::getROI() {
    return {};
}

ROI tcSensorBoard::getImageROI() {
    return getROI();
}

int tcSensorBoard::setVerticalBin(int /*factor*/) {
    return eNotSupported;
}

int tcSensorBoard::getVerticalBin() {
    return 1;
}

int tcSensorBoard::setHorizontalBin(int /*factor*/) {
    return eNotSupported;
}

int tcSensorBoard::getHorizontalBin() {
    return 1;
}

int tcSensorBoard::setShutterMode(teShutterMode /*mode*/) {
    return eNotSupported;
}

int tcSensorBoard::getShutterMode() {
    return eShutterRolling;
}

int tcSensorBoard::setBPP(teBPPMode /*mode*/) {
    return eNotSupported;
}

int tcSensorBoard::setColor(bool /*color*/) {
    return eNotSupported;
}

int tcSensorBoard::setTestPattern(teTestPattern /*pattern*/) {
    return eNotSupported;
}

int tcSensorBoard::getTestPattern() {
    return eTestPatternOff;
}

int tcSensorBoard::setTrigger(teTriggerMode /*mode*/) {
    return eNotSupported;
}

int tcSensorBoard::getTrigger() {
    return eTriggerFreeRunning;
}

int tcSensorBoard::peek(int /*reg*/, int* /*value*/) {
    return eNotSupported;
}

int tcSensorBoard::poke(int /*reg*/, int /*value*/) {
    return eNotSupported;
}

int tcSensorBoard::validate() {
    return eSuccess;
}

bool tcSensorBoard::isCapturing() {
    return false;
}

int tcSensorBoard::start() {
    return eNotSupported;
}

int tcSensorBoard::stop() {
    return eNotSupported;
}

std::string tcSensorBoard::getTemperature(int /*index*/) {
    return std::to_string(kNoTemperature);
}

int tcSensorBoard::getTempCelsius() {
    return kNoTemperature;
}

int tcSensorBoard::getBoardTempCelsius() {
    return kNoTemperature;
}

std::string tcSensorBoard::getVersion() {
    return {};
}

int tcSensorBoard::save(int /*slot*/) {
    return eNotSupported;
}

int tcSensorBoard::recall(int /*slot*/) {
    return eNotSupported;
}

int tcSensorBoard::setIODirection(int /*pin*/, int /*direction*/) {
    return eNotSupported;
}

int tcSensorBoard::setIOValue(int /*pin*/, int /*value*/) {
    return eNotSupported;
}

int tcSensorBoard::setIOInverter(int /*pin*/, int /*inverted*/) {
    return eNotSupported;
}

int tcSensorBoard::power(bool /*on*/) {
    return eNotSupported;
}

int tcSensorBoard::getIODirection(int /*pin*/) {
    return kNoPin;
}

int tcSensorBoard::getIOValue(int /*pin*/) {
    return kNoPin;
}

int tcSensorBoard::getNumPins() {
    return 0;
}

int tcSensorBoard::setMirroring(bool /*horizontal*/, bool /*enable*/) {
    return eNotSupported;
}

int tcSensorBoard::getMirroring(bool /*horizontal*/, bool* /*enabled*/) {
    return eNotSupported;
}

int tcSensorBoard::setAnalogGain(int /*step*/) {
    return eNotSupported;
}

int tcSensorBoard::getAnalogGain(int* /*step*/) {
    return eNotSupported;
}

int tcSensorBoard::setBlackLevel(int /*level*/) {
    return eNotSupported;
}

int tcSensorBoard::getBlackLevel(int* /*level*/) {
    return eNotSupported;
}

int tcSensorBoard::setWhiteBalance(int /*red*/, int /*green*/, int /*blue*/) {
    return eNotSupported;
}

int tcSensorBoard::getWhiteBalance(int* /*red*/, int* /*green*/, int* /*blue*/) {
    return eNotSupported;
}

int tcSensorBoard::setGamma(int /*percent*/) {
    return eNotSupported;
}

int tcSensorBoard::getGamma(int* /*percent*/) {
    return eNotSupported;
}

int tcSensorBoard::setStrobe(int /*microseconds*/) {
    return eNotSupported;
}

void* tcSensorBoard::getStreamer() {
    return nullptr;
}

void* tcSensorBoard::getTimestamper() {
    return nullptr;
}

int tcSensorBoard::setTimestamper(void* /*timestamper*/) {
    return eNotSupported;
}

tcSensorBoard* tcSensorBoard::self() {
    return this;
}

void tcSensorBoard::Handler(unsigned int source, unsigned int /*flags*/) {
    // Two heads of one kind count into the same place, each on a thread of its own.
    const bool known = m_eventLines > 0 && source < static_cast<unsigned int>(m_eventLines);
    if (known && m_eventCount != nullptr)
        std::atomic_ref(*m_eventCount).fetch_add(1);
}

int tcSensorBoard::getPixelFormat() {
    return 0;
}

int tcSensorBoard::GetSkipFrames(bool& skip) {
    skip = false;
    return 0;
}

void tcSensorBoard::setStatusListener(StatusListener listener) {
    auto shared = listener ? std::make_shared<const StatusListener>(std::move(listener)) : nullptr;
    const std::lock_guard lock(m_listenerLock);
    m_statusListener.swap(shared);
}

void tcSensorBoard::setPipeline(tcPipeline* pipeline) {
    m_pipeline = pipeline != nullptr ? pipeline : m_ownPipeline.get();
}

void tcSensorBoard::updateStatus(int level, const std::string& text) {
    std::unique_lock lock(m_listenerLock);
    const std::shared_ptr<const StatusListener> listener = m_statusListener;
    lock.unlock();
    if (listener)
        (*listener)(level, text);
}

void tcSensorBoard::updateStatusFMT(int level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    updateStatus(level, text);
}

void tcSensorBoard::updateStatusFMT(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    updateStatus(eStatusPlain, text);
}

} // namespace Varnox

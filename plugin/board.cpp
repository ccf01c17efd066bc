#include "plugin/board.h"

#include <exception>
#include <iostream>
#include <memory>

#include <varnox/clock_handler.h>
#include <varnox/register_file.h>

#include "common/print.h"
#include "common/thread_end.h"
#include "fpga/registers.h"
#include "plugin/bad_pixel_handler.h"
#include "plugin/exposure_mode_handler.h"
#include "sensor/registers.h"

namespace Varnox {

namespace {

// What the host's base wants to hear; their meaning is the host's.
constexpr int kBoardType = 4;
constexpr int kEventLines = 4;
int eventCount = 0;

constexpr int kOutput = 1;

using tcKeywordTable = std::map<std::string, tcAbstractHandler*>;

/// Gives a host's keyword table back as it was, unless all went well: handlers enter themselves
/// while they are built, and one that cannot be built takes the others with it.
class tcTableBackup {
public:
    /// \param table may be null
    explicit tcTableBackup(tcKeywordTable* table) : m_table(table) {
        if (m_table != nullptr) {
            m_before = *m_table;
        }
    }
    ~tcTableBackup() {
        if (m_table == nullptr) {
            return;
        }
        // In place: the host may hold iterators of its entries.
        for (auto entry = m_table->begin(); entry != m_table->end();) {
            const auto before = m_before.find(entry->first);
            if (before == m_before.end()) {
                entry = m_table->erase(entry);
            } else {
                entry->second = before->second;
                ++entry;
            }
        }
    }
    tcTableBackup(const tcTableBackup&) = delete;
    tcTableBackup& operator=(const tcTableBackup&) = delete;

    void keepChanges() { m_table = nullptr; }

private:
    tcKeywordTable* m_table;
    tcKeywordTable m_before;
};

static_assert(kFullFrame.width == sensorArray::kColumns && kFullFrame.height == sensorArray::kRows);

} // namespace

tc3U5MGXSSensorBoard::tc3U5MGXSSensorBoard(const std::string& spiDevice)
    : tcSensorBoard(kBoardType, fpgaAddresses::kRegion, fpgaAddresses::kRegionLength, kEventLines,
                    &eventCount),
      tcMultipleROISensor(sensorArray::kAreas),
      m_fpga("fpga_addresses.ini"),
      m_sensor(spiDevice),
      m_regFileObs(*this) {
    printFlushed(std::cout, "Constructing tc3U5MGXSSensorBoard\n");
    // A line that was not found is used with its negative number: the board-support library then
    // reports every call on it.
    m_extTrigEnable =
        Pellum::tcGpioSingle(static_cast<unsigned int>(GetPinFromDTName("EXT_TRIG_EN")));
    m_extTrigEnable.SetDirection(kOutput, 0);
}

tc3U5MGXSSensorBoard::~tc3U5MGXSSensorBoard() = default;

tcAbstractHandler*
tc3U5MGXSSensorBoard::getCustomHandlers(tcAbstractHandler* next,
                                        std::map<std::string, tcAbstractHandler*>* handlers) {
    std::unique_ptr<tcClockHandler> clock;
    std::unique_ptr<tcExposureModeHandler> exposureMode;
    std::unique_ptr<tcBadPixelHandler<tcBadPixelReplacement>> badPixel;
    tcTableBackup table(handlers); // goes before the handlers do
    clock = std::make_unique<tcClockHandler>(this, next, handlers);
    exposureMode = std::make_unique<tcExposureModeHandler>(this, clock.get(), handlers);
    badPixel = std::make_unique<tcBadPixelHandler<tcBadPixelReplacement>>(
        nullptr, exposureMode.get(), m_fpga.badPixelReplacement);
    if (handlers != nullptr) {
        for (const char* keyword : {"SBPR", "GBPR", "SBPRM", "GBPRM"}) {
            (*handlers)[keyword] = badPixel.get();
        }
    }
    table.keepChanges();
    // The host owns all three from here on.
    static_cast<void>(clock.release());
    static_cast<void>(exposureMode.release());
    return badPixel.release();
}

void tc3U5MGXSSensorBoard::publish(std::uint32_t address, std::int64_t value) {
    tcRegisterFile::getInstance(nullptr, true)
        ->update_word(address, static_cast<std::uint32_t>(value));
}

bool tc3U5MGXSSensorBoard::guarded(const std::function<void()>& calls) {
    std::exception_ptr failure; // whose text is told
    const char* text = "unknown exception";
    try {
        calls();
        return true;
    } catch (const std::exception& exception) {
        failure = std::current_exception();
        text = exception.what();
    } catch (...) {
        if (endsThread()) {
            throw;
        }
    }
    // Not inside a handler, which the end of a thread cannot leave: the listener may be where the
    // host ends this one.
    reportFailure(text);
    return false;
}

/// For failures of any origin: when it was the host's listener that threw, nobody is left to tell.
void tc3U5MGXSSensorBoard::reportFailure(const char* text) {
    try {
        updateStatusFMT(eStatusError, "%s", text);
    } catch (...) {
        if (endsThread()) {
            throw; // the host may end its thread inside its listener, too
        }
    }
}

bool tc3U5MGXSSensorBoard::enablePulses(bool enable) {
    return guarded([this, enable] { m_fpga.pwm.enableCore(enable); });
}

bool tc3U5MGXSSensorBoard::resetPipeline(bool hold) {
    bool done = false;
    guarded([this, hold, &done] { done = m_fpga.resetPipeline(hold); });
    return done;
}

} // namespace Varnox

#include "plugin/board.h"

#include <exception>
#include <iostream>
#include <memory>

#include <varnox/clock_handler.h>
#include <varnox/register_file.h>

#include "common/print.h"
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
    auto clock = std::make_unique<tcClockHandler>(this, next, handlers);
    auto exposureMode = std::make_unique<tcExposureModeHandler>(this, clock.get(), handlers);
    auto badPixel = std::make_unique<tcBadPixelHandler<tcBadPixelReplacement>>(
        nullptr, exposureMode.get(), m_fpga.badPixelReplacement);
    if (handlers != nullptr) {
        for (const char* keyword : {"SBPR", "GBPR", "SBPRM", "GBPRM"}) {
            (*handlers)[keyword] = badPixel.get();
        }
    }
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
    try {
        calls();
        return true;
    } catch (const std::exception& exception) {
        updateStatusFMT(eStatusError, "%s", exception.what());
        return false;
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

// Boards are loaded from libraries that were built apart from the host: what counts is the place
// of every virtual operation in the table, not its name.

#include <cstddef>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <varnox/abstract_handler.h>
#include <varnox/multiple_roi_sensor.h>
#include <varnox/pipeline.h>
#include <varnox/sensor_board.h>

namespace {

/// \return the place of a virtual operation in the primary table of its class, counted from 0
template<typename F>
int slotOf(F operation) {
    struct tsParts {
        std::ptrdiff_t place;
        std::ptrdiff_t adjustment;
    };
    static_assert(sizeof(operation) == sizeof(tsParts));
    tsParts parts{};
    std::memcpy(&parts, &operation, sizeof parts);
#if defined(__arm__) || defined(__aarch64__)
    EXPECT_EQ(parts.adjustment & 1, 1) << "not virtual";
    const std::ptrdiff_t bytes = parts.place;
#else
    EXPECT_EQ(parts.place & 1, 1) << "not virtual";
    const std::ptrdiff_t bytes = parts.place - 1;
#endif
    return static_cast<int>(bytes / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

} // namespace

TEST(SlotOrder, OfTheSensorBoardIsTheHosts) {
    using B = Varnox::tcSensorBoard;
    int slot = 2; // behind the two destructors
    EXPECT_EQ(slotOf(&B::update), slot++);
    EXPECT_EQ(slotOf(&B::getCustomHandlers), slot++);
    EXPECT_EQ(slotOf(&B::resetFpga), slot++);
    EXPECT_EQ(slotOf(&B::fpgaVersion), slot++);
    EXPECT_EQ(slotOf(&B::GetCameraInfo), slot++);
    EXPECT_EQ(slotOf(&B::calibrate), slot++);
    EXPECT_EQ(slotOf(&B::whiteLevelCalibrate), slot++);
    EXPECT_EQ(slotOf(&B::setClockSetting), slot++);
    EXPECT_EQ(slotOf(&B::getClockSetting), slot++);
    EXPECT_EQ(slotOf(&B::snap), slot++);
    EXPECT_EQ(slotOf(&B::initialize), slot++);
    EXPECT_EQ(slotOf(&B::setExposure), slot++);
    EXPECT_EQ(slotOf(&B::getExposure), slot++);
    EXPECT_EQ(slotOf(&B::getMinFrameIntervalMicroS), slot++);
    EXPECT_EQ(slotOf(&B::setFrameInterval), slot++);
    EXPECT_EQ(slotOf(&B::getFrameInterval), slot++);
    EXPECT_EQ(slotOf(&B::setROI), slot++);
    EXPECT_EQ(slotOf(&B::getROI), slot++);
    EXPECT_EQ(slotOf(&B::getImageROI), slot++);
    EXPECT_EQ(slotOf(&B::setVerticalBin), slot++);
    EXPECT_EQ(slotOf(&B::getVerticalBin), slot++);
    EXPECT_EQ(slotOf(&B::setHorizontalBin), slot++);
    EXPECT_EQ(slotOf(&B::getHorizontalBin), slot++);
    EXPECT_EQ(slotOf(&B::setShutterMode), slot++);
    EXPECT_EQ(slotOf(&B::getShutterMode), slot++);
    EXPECT_EQ(slotOf(&B::setBPP), slot++);
    EXPECT_EQ(slotOf(&B::setColor), slot++);
    EXPECT_EQ(slotOf(&B::setTestPattern), slot++);
    EXPECT_EQ(slotOf(&B::getTestPattern), slot++);
    EXPECT_EQ(slotOf(&B::setTrigger), slot++);
    EXPECT_EQ(slotOf(&B::getTrigger), slot++);
    EXPECT_EQ(slotOf(&B::peek), slot++);
    EXPECT_EQ(slotOf(&B::poke), slot++);
    EXPECT_EQ(slotOf(&B::validate), slot++);
    EXPECT_EQ(slotOf(&B::isCapturing), slot++);
    EXPECT_EQ(slotOf(&B::start), slot++);
    EXPECT_EQ(slotOf(&B::stop), slot++);
    EXPECT_EQ(slotOf(&B::getTemperature), slot++);
    EXPECT_EQ(slotOf(&B::getTempCelsius), slot++);
    EXPECT_EQ(slotOf(&B::getBoardTempCelsius), slot++);
    EXPECT_EQ(slotOf(&B::getVersion), slot++);
    EXPECT_EQ(slotOf(&B::save), slot++);
    EXPECT_EQ(slotOf(&B::recall), slot++);
    EXPECT_EQ(slotOf(&B::setIODirection), slot++);
    EXPECT_EQ(slotOf(&B::setIOValue), slot++);
    EXPECT_EQ(slotOf(&B::setIOInverter), slot++);
    EXPECT_EQ(slotOf(&B::power), slot++);
    EXPECT_EQ(slotOf(&B::getIODirection), slot++);
    EXPECT_EQ(slotOf(&B::getIOValue), slot++);
    EXPECT_EQ(slotOf(&B::getNumPins), slot++);
    EXPECT_EQ(slotOf(&B::setMirroring), slot++);
    EXPECT_EQ(slotOf(&B::getMirroring), slot++);
    EXPECT_EQ(slotOf(&B::setAnalogGain), slot++);
    EXPECT_EQ(slotOf(&B::getAnalogGain), slot++);
    EXPECT_EQ(slotOf(&B::setBlackLevel), slot++);
    EXPECT_EQ(slotOf(&B::getBlackLevel), slot++);
    EXPECT_EQ(slotOf(&B::setWhiteBalance), slot++);
    EXPECT_EQ(slotOf(&B::getWhiteBalance), slot++);
    EXPECT_EQ(slotOf(&B::setGamma), slot++);
    EXPECT_EQ(slotOf(&B::getGamma), slot++);
    EXPECT_EQ(slotOf(&B::setStrobe), slot++);
    EXPECT_EQ(slotOf(&B::getStreamer), slot++);
    EXPECT_EQ(slotOf(&B::getTimestamper), slot++);
    EXPECT_EQ(slotOf(&B::setTimestamper), slot++);
    EXPECT_EQ(slotOf(&B::self), slot++);
    EXPECT_EQ(slotOf(&B::Handler), slot++);
    EXPECT_EQ(slotOf(&B::getPixelFormat), slot++);
    EXPECT_EQ(slotOf(&B::GetSkipFrames), slot++);
    EXPECT_EQ(slot, 70);
}

TEST(SlotOrder, OfObserversAndHandlersIsTheHosts) {
    EXPECT_EQ(slotOf(&Varnox::tcObserver::update), 2);
    EXPECT_EQ(slotOf(&Varnox::tcAbstractHandler::update), 2);
    EXPECT_EQ(slotOf(&Varnox::tcAbstractHandler::execute), 3);
    EXPECT_EQ(slotOf(&Varnox::tcAbstractHandler::forward), 4);
    EXPECT_EQ(slotOf(&Varnox::tcEventHandler::Handler), 2);
    EXPECT_EQ(slotOf(&Varnox::tcMultipleROISensor::programMultipleROI), 2);
}

TEST(SlotOrder, PixelPackingIsOperationSeventeenOfThePipeline) {
    EXPECT_EQ(slotOf(&Varnox::tcPipeline::setPixelPacking), 17);
    EXPECT_EQ(slotOf(&Varnox::tcPipeline::getPixelPacking), 16);
    EXPECT_EQ(slotOf(&Varnox::tcPipeline::open), 2);
}

TEST(SlotOrder, HoldsThroughATable) {
    // The same once more from the caller's side: a derived board overrides, the base is called.
    class tcBoard : public Varnox::tcSensorBoard {
    public:
        tcBoard() : tcSensorBoard(0, 0, 0, 0, nullptr) {}
        void Handler(unsigned int source, unsigned int /*flags*/) override { seen = source; }
        unsigned int seen = 0;
    };
    tcBoard board;
    Varnox::tcEventHandler& events = board;
    events.Handler(4, 0);
    EXPECT_EQ(board.seen, 4U);
    EXPECT_EQ(board.self(), &board);
}

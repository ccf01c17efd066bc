// Hosts call boards through tables of operations: what counts is the place in the table.
//
// Read as the ABI of this compiler family lays them out: an object starts with a pointer to its
// table; the first two entries are the destructor, complete and deleting; virtual operations follow
// in the order of their declaration, those of the primary base first.

#include <cstring>
#include <memory>
#include <new>

#include "plugin/bad_pixel_handler.h"
#include "plugin/entry.h"
#include "plugin/exposure_mode_handler.h"
#include "tests/plugin/plugin_test.h"

// The address of an operation itself, not of its place in a table.
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wpmf-conversions"
#pragma GCC diagnostic ignored "-Wold-style-cast"

using Varnox::tc3U5MGXSSensorBoard;
using Varnox::tcExternalExposure;
using Varnox::tcMultipleROISensor;
using Varnox::tcSensorBoard;

namespace {

using tuCode = void (*)();

struct tsSlot {
    const char* name;
    tuCode code;
};

/// \return entry of the table that the object at this address starts with
template<class Function = void()>
Function* slot(const void* object, std::size_t number) {
    Function* const* table = nullptr;
    std::memcpy(&table, object, sizeof table);
    return table[number];
}

class Slots : public tcPluginTest {};

// Every operation, resolved in the class that overrides it.
#define BOARD(operation)                                                                           \
    { #operation, (tuCode)(&tc3U5MGXSSensorBoard::operation) }
#define HOST(operation)                                                                            \
    { #operation, (tuCode)(&tcSensorBoard::operation) }
const tsSlot kPrimary[] = {
    HOST(update),
    BOARD(getCustomHandlers),
    BOARD(resetFpga),
    HOST(fpgaVersion),
    BOARD(GetCameraInfo),
    HOST(calibrate),
    HOST(whiteLevelCalibrate),
    BOARD(setClockSetting),
    BOARD(getClockSetting),
    HOST(snap),
    BOARD(initialize),
    BOARD(setExposure),
    BOARD(getExposure),
    BOARD(getMinFrameIntervalMicroS),
    BOARD(setFrameInterval),
    BOARD(getFrameInterval),
    BOARD(setROI),
    BOARD(getROI),
    BOARD(getImageROI),
    BOARD(setVerticalBin),
    BOARD(getVerticalBin),
    BOARD(setHorizontalBin),
    BOARD(getHorizontalBin),
    BOARD(setShutterMode),
    BOARD(getShutterMode),
    BOARD(setBPP),
    BOARD(setColor),
    BOARD(setTestPattern),
    BOARD(getTestPattern),
    BOARD(setTrigger),
    BOARD(getTrigger),
    BOARD(peek),
    BOARD(poke),
    BOARD(validate),
    BOARD(isCapturing),
    BOARD(start),
    BOARD(stop),
    BOARD(getTemperature),
    HOST(getTempCelsius),
    HOST(getBoardTempCelsius),
    BOARD(getVersion),
    BOARD(save),
    BOARD(recall),
    HOST(setIODirection),
    HOST(setIOValue),
    HOST(setIOInverter),
    BOARD(power),
    HOST(getIODirection),
    HOST(getIOValue),
    HOST(getNumPins),
    BOARD(setMirroring),
    BOARD(getMirroring),
    BOARD(setAnalogGain),
    BOARD(getAnalogGain),
    BOARD(setBlackLevel),
    BOARD(getBlackLevel),
    BOARD(setWhiteBalance),
    BOARD(getWhiteBalance),
    BOARD(setGamma),
    BOARD(getGamma),
    BOARD(setStrobe),
    HOST(getStreamer),
    HOST(getTimestamper),
    HOST(setTimestamper),
    HOST(self),
    HOST(Handler),
    HOST(getPixelFormat),
    BOARD(GetSkipFrames),
    BOARD(setInternalExposureMode),
    BOARD(getInternalExposureMode),
    BOARD(programMultipleROI),
};
#undef BOARD
#undef HOST

/// Counts what is allocated and freed under its name.
class tcCountedBoard : public tc3U5MGXSSensorBoard {
public:
    tcCountedBoard() : tc3U5MGXSSensorBoard("/dev/spidev1.0") {}
    ~tcCountedBoard() override { ++destroyed; }

    static void* operator new(std::size_t size) {
        allocated = ::operator new(size);
        allocatedSize = size;
        return allocated;
    }
    static void operator delete(void* memory, std::size_t size) {
        freed = memory;
        freedSize = size;
        ::operator delete(memory);
    }

    static void forget() {
        destroyed = 0;
        allocated = freed = nullptr;
        allocatedSize = freedSize = 0;
    }

    static inline int destroyed = 0;
    static inline void* allocated = nullptr;
    static inline void* freed = nullptr;
    static inline std::size_t allocatedSize = 0;
    static inline std::size_t freedSize = 0;
};

template<class Base>
void deleteThrough(Base* base) {
    delete base;
    EXPECT_EQ(tcCountedBoard::destroyed, 1);
    EXPECT_EQ(tcCountedBoard::freed, tcCountedBoard::allocated);
    EXPECT_EQ(tcCountedBoard::freedSize, tcCountedBoard::allocatedSize);
    EXPECT_EQ(tcCountedBoard::freedSize, sizeof(tcCountedBoard));
}

} // namespace

TEST_F(Slots, EveryOperationOfTheBoardStandsWhereTheHostCallsIt) {
    makeBoard();
    std::size_t number = 2; // behind the two destructors
    for (const tsSlot& expected : kPrimary) {
        EXPECT_EQ(slot(&board(), number), expected.code) << number << " " << expected.name;
        ++number;
    }
    EXPECT_EQ(number, 73U);
}

TEST_F(Slots, ChosenOperationsAnswerThroughTheirNumbers) {
    makeReadyBoard();
    void* const object = &board();
    using tuGet = int(void*);
    using tuSet = int(void*, int);
    EXPECT_EQ(slot<tuGet>(object, 4)(object), 1);      // resetFpga
    EXPECT_EQ(slot<tuSet>(object, 9)(object, 2), 3);   // setClockSetting
    EXPECT_EQ(slot<tuGet>(object, 14)(object), 30000); // getExposure
    EXPECT_EQ(slot<tuGet>(object, 15)(object), 27100); // getMinFrameIntervalMicroS
    EXPECT_EQ(slot<tuSet>(object, 16)(object, 45000), 0);
    EXPECT_EQ(slot<tuGet>(object, 17)(object), 45000);
    EXPECT_EQ(slot<tuSet>(object, 21)(object, 3), 3); // setVerticalBin
    EXPECT_EQ(slot<tuSet>(object, 31)(object, 1), 0); // setTrigger
    EXPECT_EQ(slot<tuGet>(object, 32)(object), 1);    // getTrigger
    EXPECT_EQ(slot<tuGet>(object, 37)(object), 0);    // start
    EXPECT_TRUE(slot<bool(void*)>(object, 36)(object));
    EXPECT_EQ(slot<tuGet>(object, 38)(object), 0); // stop
    EXPECT_FALSE(slot<bool(void*)>(object, 36)(object));
    EXPECT_EQ(slot<void*(void*)>(object, 66)(object), object); // self
    EXPECT_TRUE(slot<bool(void*)>(object, 71)(object));        // getInternalExposureMode
}

TEST_F(Slots, TheFirstTwoAreTheDestructors) {
    // The complete destructor leaves the storage alone.
    const std::unique_ptr<std::byte[]> storage(new std::byte[sizeof(tcCountedBoard)]);
    tcCountedBoard::forget();
    auto* const placed = ::new (storage.get()) tcCountedBoard;
    slot<void(void*)>(placed, 0)(placed);
    EXPECT_EQ(tcCountedBoard::destroyed, 1);
    EXPECT_EQ(tcCountedBoard::freed, nullptr);

    tcCountedBoard::forget();
    auto* const heaped = new tcCountedBoard;
    slot<void(void*)>(heaped, 1)(heaped);
    EXPECT_EQ(tcCountedBoard::destroyed, 1);
    EXPECT_EQ(tcCountedBoard::freed, heaped);
}

TEST_F(Slots, DeletingThroughEachBaseFreesTheWholeObject) {
    tcCountedBoard::forget();
    deleteThrough<tcSensorBoard>(new tcCountedBoard);
    tcCountedBoard::forget();
    deleteThrough<tcMultipleROISensor>(new tcCountedBoard);
    tcCountedBoard::forget();
    deleteThrough<tcExternalExposure>(new tcCountedBoard);
    tcCountedBoard::forget();
    deleteThrough<Varnox::tcEventHandler>(new tcCountedBoard);
    tcCountedBoard::forget();
    deleteThrough<Varnox::tcObserver>(new tcCountedBoard);
}

TEST_F(Slots, DeletingABoardOfMakeSensorThroughItsOtherBasesReleasesTheHardware) {
    for (const bool external : {false, true}) {
        auto* const made = dynamic_cast<tc3U5MGXSSensorBoard*>(makeSensor("/dev/spidev1.0"));
        ASSERT_NE(made, nullptr);
        const auto devices = trace(
            [&] {
                if (external) {
                    delete static_cast<tcExternalExposure*>(made);
                } else {
                    delete static_cast<tcMultipleROISensor*>(made);
                }
            },
            sim::teEventKind::gpio | sim::teEventKind::device);
        EXPECT_EQ(devices.size(), 15U);
        EXPECT_EQ(devices.front(), "GPIO EXT_TRIG_EN released");
        EXPECT_EQ(devices.back(), "UNMAP 0xFF200000 4096");
    }
}

TEST_F(Slots, TheBasesStandInTheirOrder) {
    makeBoard();
    const auto place = [&](const void* base) {
        return static_cast<const std::byte*>(base) -
               static_cast<const std::byte*>(static_cast<const void*>(&board()));
    };
    EXPECT_EQ(place(static_cast<tcSensorBoard*>(&board())), 0);
    EXPECT_LT(0, place(static_cast<tcMultipleROISensor*>(&board())));
    EXPECT_LT(place(static_cast<tcMultipleROISensor*>(&board())),
              place(static_cast<tcExternalExposure*>(&board())));
}

TEST_F(Slots, OperationsOfTheOtherBasesAreReachedThroughThem) {
    makeReadyBoard();
    auto* const regions = static_cast<tcMultipleROISensor*>(&board());
    EXPECT_EQ(slot<int(void*)>(regions, 2)(regions), 0);
    EXPECT_THAT(out().text(),
                testing::HasSubstr("programMultipleROI [y: 0, x: 0, width: 2592, height: 2056]\n"));

    auto* const exposure = static_cast<tcExternalExposure*>(&board());
    EXPECT_EQ((slot<int(void*, bool)>(exposure, 2)(exposure, false)), 0);
    EXPECT_FALSE(board().getInternalExposureMode());
    EXPECT_FALSE((slot<bool(void*)>(exposure, 3)(exposure)));
    EXPECT_EQ((slot<int(void*, bool)>(exposure, 2)(exposure, true)), 0);
    EXPECT_TRUE((slot<bool(void*)>(exposure, 3)(exposure)));
}

TEST_F(Slots, ABoardIsFoundByItsInterfaces) {
    makeBoard();
    tcSensorBoard* const host = &board();
    EXPECT_EQ(dynamic_cast<tcExternalExposure*>(host), &board());
    EXPECT_EQ(dynamic_cast<tcMultipleROISensor*>(host), &board());
    EXPECT_EQ(host->self(), host);
}

TEST_F(Slots, TheRegisterFileObserverHasItsUpdateThird) {
    makeBoard();
    const tc3U5MGXSSensorBoard::tcRegFileObs observer(board());
    EXPECT_EQ(slot(&observer, 2), (tuCode)(&tc3U5MGXSSensorBoard::tcRegFileObs::update));
}

TEST_F(Slots, TheHandlersHaveTheirOperationsInTheHostsOrder) {
    makeBoard();
    using tcExposureMode = Varnox::tcExposureModeHandler;
    using tcBadPixel = Varnox::tcBadPixelHandler<tcBadPixelReplacement>;
    std::map<std::string, Varnox::tcAbstractHandler*> handlers;
    const std::unique_ptr<Varnox::tcAbstractHandler> badPixel(
        board().getCustomHandlers(nullptr, &handlers));
    const std::unique_ptr<Varnox::tcAbstractHandler> exposureMode(handlers.at("EXPM"));
    const std::unique_ptr<Varnox::tcAbstractHandler> clock(handlers.at("CLKS"));

    EXPECT_EQ(slot(exposureMode.get(), 2), (tuCode)(&tcExposureMode::update));
    std::string command = "EXPM";
    std::string arguments;
    using tuExecute = std::string(void*, std::string&, std::string&);
    EXPECT_EQ(slot<tuExecute>(exposureMode.get(), 3)(exposureMode.get(), command, arguments),
              "<ack>^0");
    EXPECT_EQ(slot(exposureMode.get(), 4), (tuCode)(&Varnox::tcAbstractHandler::forward));

    EXPECT_EQ(slot(badPixel.get(), 2), (tuCode)(&tcBadPixel::update));
    EXPECT_EQ(slot(badPixel.get(), 3), (tuCode)(&tcBadPixel::execute));
    EXPECT_EQ(slot(badPixel.get(), 4), (tuCode)(&Varnox::tcAbstractHandler::forward));
    EXPECT_EQ(slot(badPixel.get(), 5), (tuCode)(&tcBadPixel::operate));
}

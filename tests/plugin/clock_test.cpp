// The sensor's master clock.

#include <functional>
#include <iostream>
#include <stdexcept>

#include "tests/plugin/plugin_test.h"
#include "tests/support/failing_output.h"

namespace {

class Clock : public tcPluginTest {};

/// Holding the pipeline and switching the receiver off. \param control word 0 of the frame-control
/// core
tsTrace switchedOff(std::uint32_t control) {
    return {
        status(6, "Changing clock settings"), load(0xFF217000, 0x80000000),
        store(0xFF217000, 0x80000000),        load(0xFF215000, 0x1),
        store(0xFF215000, 0x80000001),        load(0xFF210000, control),
        store(0xFF210000, 0x00000002),
    };
}

tsTrace pulsesOn() {
    return {
        spi(0x10, 4),
        load(0xFF211000, 0x00000001),
        store(0xFF211000, 0x80000001),
    };
}

/// The other way round than at the end of the initialization.
tsTrace sensorThenPulsesOff() {
    return {
        spi(0x10, 0),
        load(0xFF211000, 0x80000001),
        store(0xFF211000, 0x00000001),
    };
}

} // namespace

TEST_F(Clock, TwentyFourMegahertzReprogramsRelocksAndAppliesTheTiming) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(
        seen([&] { result = board().setClockSetting(0); }),
        text({
            switchedOff(0x80000002), store(0xFF204300, 0x1617), store(0xFF204000, 1), pulsesOn(),
            quickLink(0x00000002), sensorThenPulsesOff(), slept(5000), spi(0xD8, 0x4B90F),
            status(6, "clock: 24.000000"), printed("getExposure: 30000\n"),
            exposure({30000, 3994, 3992, 3194, 30000}), // 800 lines of 37.5 us
            frameLength(99900, 2664), exposure({30000, 2662, 2660, 1862, 30000}),
            store(0xFF211004, 2397600), // 24 clocks a microsecond
        }));
    EXPECT_EQ(result, 0);
    int index = -1;
    EXPECT_EQ(board().getClockSetting(index), 0);
    EXPECT_EQ(index, 0);
    EXPECT_DOUBLE_EQ(head().sensorState().clockMhz, 24.0);
    EXPECT_TRUE(head().violations().empty());
}

TEST_F(Clock, BackAtThirtySixMegahertz) {
    makeReadyBoard();
    ASSERT_EQ(board().setClockSetting(0), 0);
    int result = -1;
    tsTrace off = switchedOff(0x80000002);
    off[3] = load(0xFF215000, 0x80000001);
    EXPECT_EQ(seen([&] { result = board().setClockSetting(1); }),
              text({
                  off,
                  store(0xFF204300, 0x0F0F),
                  store(0xFF204000, 1),
                  pulsesOn(),
                  quickLink(0x00000002),
                  sensorThenPulsesOff(),
                  slept(5000),
                  spi(0xD8, 0x2D90F),
                  status(6, "clock: 36.000000"),
                  printed("getExposure: 30000\n"),
                  exposure({30000, 2662, 2660, 1462, 30000}),
                  frameLength(99900, 3996),
                  exposure({30000, 3994, 3992, 2794, 30000}),
                  store(0xFF211004, 3596400),
              }));
    EXPECT_EQ(result, 0);
}

TEST_F(Clock, UnknownIndexIsRefusedAfterTheLinkIsBackAtTheOldClock) {
    makeReadyBoard();
    for (const int index : {2, -1, 0x7FFFFFFF}) {
        tsTrace off = switchedOff(0x80000002);
        if (index != 2) { // the pipeline is still held
            off[3] = load(0xFF215000, 0x80000001);
        }
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().setClockSetting(index); }), text({
                                                                              off,
                                                                              pulsesOn(),
                                                                              quickLink(0x00000002),
                                                                              sensorThenPulsesOff(),
                                                                              slept(5000),
                                                                          }));
        EXPECT_EQ(result, 3);
        int current = -1;
        EXPECT_EQ(board().getClockSetting(current), 0);
        EXPECT_EQ(current, 1);
    }
}

TEST_F(Clock, ATrainingThatThrowsEndsAsALinkThatDoesNotComeBack) {
    makeReadyBoard();
    tsTrace off = switchedOff(0x80000002);
    const auto endsWith = [&](const std::function<void()>& fail, const std::string& told) {
        const tcFailingOutput output(std::cout, "Status: ", fail);
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().setClockSetting(0); }),
                  text({
                      off,
                      store(0xFF204300, 0x1617),
                      store(0xFF204000, 1),
                      pulsesOn(),
                      load(0xFF210000, 0x00000002),
                      store(0xFF210000, 0x80000002),
                      tsTrace(4, load(0xFF210004, 0x00000007)),
                      status(4, told),
                      sensorThenPulsesOff(),
                      status(4, "PLL/DPA lock failed. rv=6"),
                  }));
        EXPECT_EQ(result, 6);
        off[3] = load(0xFF215000, 0x80000001); // the pipeline is held already
    };
    endsWith([] { throw std::runtime_error("no room"); }, "no room");
    endsWith([] { throw 42; }, "unknown exception");
    EXPECT_EQ(board().setClockSetting(0), 0);
}

TEST_F(Clock, TimingThatCannotBePrintedIsReportedAndLeavesTheNewClock) {
    makeReadyBoard();
    const tcFailingOutput output(std::cout, "getExposure",
                                 [] { throw std::runtime_error("full"); });
    int result = -1;
    tsTrace lines = trace([&] { result = board().setClockSetting(0); });
    EXPECT_EQ(result, 0);
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], status(6, "clock: 24.000000"));
    EXPECT_EQ(lines.back(), status(4, "full"));
}

TEST_F(Clock, RefusalsOfExposureAndIntervalAreNotItsResult) {
    makeReadyBoard();
    board().setExposureMode(tc3U5MGXS::eExposureRolling); // has no exposure arithmetic: 4
    const auto refused = [](int stored) {
        const std::string time = std::to_string(stored);
        return tsTrace{status(6, "setExposure " + time + " uS"),
                       word(0x3A004, static_cast<std::uint32_t>(stored)),
                       status(6, "setExposure updated to " + time + " uS")};
    };
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setClockSetting(0), 0); }),
              text({
                  switchedOff(0x80000002),
                  store(0xFF204300, 0x1617),
                  store(0xFF204000, 1),
                  pulsesOn(),
                  quickLink(0x00000002),
                  sensorThenPulsesOff(),
                  slept(5000),
                  spi(0xD8, 0x4B90F),
                  status(6, "clock: 24.000000"),
                  printed("getExposure: 30000\n"),
                  refused(30000),
                  frameLength(99900, 2664),
                  refused(30000),
                  store(0xFF211004, 2397600),
              }));

    board().setExposureMode(tc3U5MGXS::eExposureSingle);
    ASSERT_EQ(board().setFrameInterval(0), 3); // the pulses cannot have it, then nor now
    tsTrace off = switchedOff(0x80000002);
    off[3] = load(0xFF215000, 0x80000001);
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().setClockSetting(1), 0); }),
              text({
                  off,
                  store(0xFF204300, 0x0F0F),
                  store(0xFF204000, 1),
                  pulsesOn(),
                  quickLink(0x00000002),
                  sensorThenPulsesOff(),
                  slept(5000),
                  spi(0xD8, 0x2D90F),
                  status(6, "clock: 36.000000"),
                  printed("getExposure: 37\n"), // a line of 24 MHz
                  exposure({37, 65534, 65532, 65533, 25}),
                  frameLength(0, 0),
                  status(6, "setFrameInterval: Exposure higher than frame interval. Interval 0 uS, "
                            "Exposure 25 uS"),
                  exposure({0, 65534, 65532, 65533, 25, -1, 65534}),
                  status(4, "tcPwm at 0xFF211000: a period of 0 us is 0 clocks; it takes 2 to "
                            "4294967295"),
              }));
}

TEST_F(Clock, WhileCapturingNothingIsTouched) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    for (const int index : {0, 1, 2}) {
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().setClockSetting(index); }),
                  text({status(4, "Can't change clock while running")}));
        EXPECT_EQ(result, 5);
    }
    int index = -1;
    EXPECT_EQ(board().getClockSetting(index), 0);
    EXPECT_EQ(index, 1);
}

TEST_F(Clock, ALinkThatDoesNotComeBackLeavesTheFpgaAtTheNewClockAndTheDriverAtTheOld) {
    useHead(aQuickHead().withStuckLane(0));
    useShippedFiles();
    makeBoard();
    ASSERT_EQ(board().initialize(), -2);
    int result = -1;
    const auto seenLines =
        trace([&] { result = board().setClockSetting(0); },
              sim::teEventKind::spi | sim::teEventKind::write | sim::teEventKind::sleep);
    tsTrace waits;
    for (int tries = 0; tries < 10; ++tries) {
        waits.push_back(slept(10000));
    }
    EXPECT_EQ(shown(seenLines), text({
                                    store(0xFF217000, 0x80000000),
                                    store(0xFF215000, 0x80000001),
                                    store(0xFF210000, 0x00000002),
                                    store(0xFF204300, 0x1617),
                                    store(0xFF204000, 1),
                                    spi(0x10, 4),
                                    store(0xFF211000, 0x80000001),
                                    store(0xFF210000, 0x80000002),
                                    store(0xFF21002C, 0),
                                    store(0xFF210028, 0xFFF),
                                    store(0xFF210028, 0xFFF000),
                                    store(0xFF210028, 0),
                                    waits,
                                    spi(0x10, 0),
                                    store(0xFF211000, 0x00000001),
                                }));
    EXPECT_EQ(result, 6);
    EXPECT_EQ(head().lines(sim::teEventKind::note).back(), status(4, "PLL/DPA lock failed. rv=-2"));
    int index = -1;
    board().getClockSetting(index);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(head().sensorRegister(0xD8), 0x2D90FU);
    EXPECT_EQ(seen([&] { board().setExposure(30000); }),
              text({exposure({30000, 3994, 3992, 2794, 30000})})); // lines of 25 us still
    EXPECT_EQ(seen([&] { board().setFrameInterval(99900); }, sim::teEventKind::write),
              text({store(0xFF211004, 2397600)})); // pulses by the new clock
}

TEST_F(Clock, APllThatDoesNotComeBackIsReportedWithItsCode) {

    useHead(aQuickHead().withPllAfter(sim::kNever));
    useShippedFiles();
    makeBoard();
    ASSERT_EQ(board().initialize(), -1);
    EXPECT_EQ(board().setClockSetting(1), 6);
    EXPECT_EQ(head().lines(sim::teEventKind::note).back(), status(4, "PLL/DPA lock failed. rv=-1"));
}

TEST_F(Clock, AFailedLinkOutweighsAnUnknownIndex) {
    useHead(aQuickHead().withStuckLane(11));
    useShippedFiles();
    makeBoard();
    ASSERT_EQ(board().initialize(), -2);
    EXPECT_EQ(board().setClockSetting(2), 6);
}

TEST_F(Clock, MissingPulseGeneratorIsReportedAndDoesNotEndTheSetting) {
    useHead(aQuickHead().withSilentCore(sim::teCore::pwm));
    useShippedFiles();
    makeBoard();
    ASSERT_EQ(board().initialize(), 4);
    board().setClockSetting(0);
    int reports = 0;
    for (const std::string& line : head().lines(sim::teEventKind::note)) {
        reports += line == status(4, "tcPwm at 0xFF211000: enableCore: the core is not there");
    }
    EXPECT_EQ(reports, 2); // on and off
    int index = -1;
    board().getClockSetting(index);
    EXPECT_EQ(index, 0);
}

TEST_F(Clock, GetClockSettingIsThirtySixMegahertzAfterConstruction) {
    makeBoard();
    int index = -1;
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().getClockSetting(index), 0); }), "");
    EXPECT_EQ(index, 1);
}

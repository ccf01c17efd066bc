// Clients' writes to the sensor's two words of the register file.

#include "plugin/board.h"
#include "tests/plugin/handler_test.h"
#include "tests/plugin/plugin_test.h"

using Varnox::tc3U5MGXSSensorBoard;
using Varnox::tsUpdate;

namespace {

class Observer : public tcPluginTest {
protected:
    /// Hands an update straight to an observer of the board. \return the update, marked or not
    tsUpdate send(std::uint32_t address, std::uint32_t value, int kind = 1) {
        tc3U5MGXSSensorBoard::tcRegFileObs observer(board());
        return sendUpdate(observer, address, value, kind);
    }
};

} // namespace

TEST_F(Observer, ExposureModeReachesTheBoard) {
    makeReadyBoard();
    Varnox::tsWriteResult result;
    EXPECT_EQ(seen([&] { result = registerFile().write_word(0x3D000, 1); }),
              text({
                  printed("tcRegFileObs::update register: 249856\n"),
                  printed("getFrameReadoutTime(): 54200 uS\n"),
                  printed("getFrameReadoutTime(): 54200 uS\n"),
                  word(0x3C020, 54200),
                  status(6, "setExposure 30000 uS"),
                  spi(0x14, 0x3FFF),
                  spi(0x15, 0x3FFF),
                  spi(0x1A, 0),
                  spi(0x3B, 0x3FFF),
                  spi(0x1C, 3994),
                  printed("tc3U5MGXS::setExposure: hd_prd: 899, gs_pos2: 3994, acc_fpos: 2794\n"),
                  spi(0x19, 2794),
                  spi(0x1B, 3394),
                  spi(0x16, 3392),
                  printed("tc3U5MGXS::setExposure: gs_pos1: 3394, gres_pos: 3392\n"),
                  printed("tc3U5MGXS::setExposure after: 30000\n"),
                  word(0x3A004, 30000),
                  status(6, "setExposure updated to 30000 uS"),
              }));
    EXPECT_TRUE(result.handled);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(registerFile().read_word(0x3D000), 1U);
}

TEST_F(Observer, AnExposureModeThatTheBoardRefusesIsMarked) {
    makeReadyBoard();
    ASSERT_EQ(board().setFrameInterval(20000), 0); // will be raised, and then there is no exposure
    const tsUpdate update = send(0x3D000, 2);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0x8FFF);
    EXPECT_EQ(update.value, 2U);
}

TEST_F(Observer, DigitalGainReachesTheBoard) {
    makeReadyBoard();
    for (const std::uint32_t gain : {3U, 2U, 1U, 0U}) {
        Varnox::tsWriteResult result;
        EXPECT_EQ(seen([&] { result = registerFile().write_word(0x3D004, gain); }),
                  text({
                      printed("tcRegFileObs::update register: 249860\n"),
                      spi(0x42, gain),
                  }));
        EXPECT_TRUE(result.handled);
        EXPECT_EQ(result.status, 0);
    }
}

TEST_F(Observer, DigitalGainAboveThreeFailsWithoutACall) {
    makeReadyBoard();
    board().setDGain(tc3U5MGXS::eDGain2);
    for (const std::uint32_t gain : {4U, 0x80000000U, 0xFFFFFFFFU}) {
        tsUpdate update;
        EXPECT_EQ(seen([&] { update = send(0x3D004, gain); }),
                  text({printed("tcRegFileObs::update register: 249860\n")}));
        EXPECT_TRUE(update.handled);
        EXPECT_EQ(update.status, 0x8FFF);
        EXPECT_EQ(board().getDGain(), 2U);
    }
}

TEST_F(Observer, OtherWordsArePrintedAndLeftUnmarked) {
    makeReadyBoard();
    for (const auto& word : std::map<std::uint32_t, std::string>{
             {0x3A000, "237568"},
             {0x3CFFF, "249855"},
             {0x3D001, "249857"},
             {0x3D008, "249864"},
             {0, "0"},
             {0xFFFFFFFF, "4294967295"},
         }) {
        tsUpdate update;
        EXPECT_EQ(seen([&] { update = send(word.first, 1); }),
                  text({printed("tcRegFileObs::update register: " + word.second + "\n")}));
        EXPECT_FALSE(update.handled);
        EXPECT_EQ(update.status, 0);
    }
}

TEST_F(Observer, OtherKindsArePrintedAndLeftUnmarked) {
    makeReadyBoard();
    for (const int kind : {0, 2, -1}) {
        tsUpdate update;
        EXPECT_EQ(seen([&] { update = send(0x3D004, 1, kind); }),
                  text({printed("tcRegFileObs::update register: 249860\n")}));
        EXPECT_FALSE(update.handled);
        EXPECT_EQ(seen([&] { update = send(0x3D000, 1, kind); }),
                  text({printed("tcRegFileObs::update register: 249856\n")}));
        EXPECT_FALSE(update.handled);
        EXPECT_EQ(update.status, 0);
    }
}

TEST_F(Observer, MarksOfEarlierObserversStay) {
    makeReadyBoard();
    tc3U5MGXSSensorBoard::tcRegFileObs observer(board());
    tsUpdate update{1, 0x3A000, 1, true, 0x1234};
    observer.update(update);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0x1234);
}

TEST_F(Observer, IsNotRegisteredBeforeInitialize) {
    useShippedFiles();
    makeBoard();
    EXPECT_EQ(seen([&] { EXPECT_FALSE(registerFile().write_word(0x3D004, 1).handled); }), "");
}

TEST_F(Observer, IsRegisteredEvenWhenThePowerUpFails) {
    useHead(aQuickHead().withoutSpiDevice());
    makeBoard();
    ASSERT_EQ(board().initialize(), 6);
    EXPECT_TRUE(registerFile().write_word(0x3D004, 1).handled);
}

TEST_F(Observer, IsNotifiedOnceHoweverOftenTheBoardIsInitialized) {
    makeReadyBoard();
    ASSERT_EQ(board().initialize(), 0);
    EXPECT_EQ(seen([&] { registerFile().write_word(0x3D004, 1); }),
              text({
                  printed("tcRegFileObs::update register: 249860\n"),
                  spi(0x42, 1),
              }));
}

TEST_F(Observer, IsGoneWithTheBoard) {
    makeReadyBoard();
    destroyBoard();
    EXPECT_EQ(seen([&] { EXPECT_FALSE(registerFile().write_word(0x3D004, 1).handled); }), "");
}

TEST_F(Observer, StandardOutputIsLeftAsItWasFound) {
    makeReadyBoard();
    std::cout << std::hex;
    send(0x3D004, 1);
    EXPECT_TRUE(std::cout.flags() & std::ios::hex);
    std::cout.flags(std::ios::dec | std::ios::skipws);
    EXPECT_THAT(out().text(), testing::HasSubstr("tcRegFileObs::update register: 249860\n"));
}

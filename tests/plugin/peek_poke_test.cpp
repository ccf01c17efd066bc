// Raw access to the sensor's registers.

#include <chrono>
#include <future>
#include <limits>

#include "tests/plugin/plugin_test.h"

namespace {

class PeekPoke : public tcPluginTest {};

} // namespace

TEST_F(PeekPoke, PokeReportsAndWrites) {
    makeReadyBoard();
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().poke(0xD8, 0x4B90F); }),
              text({
                  status(6, "Poke: Register 0x0D8: Value: 0x4B90F"),
                  "SPI 0F B9 04 36",
              }));
    EXPECT_EQ(result, 0);
}

TEST_F(PeekPoke, PokeShowsSmallNumbersPadded) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { board().poke(1, 2); }),
              text({
                  status(6, "Poke: Register 0x001: Value: 0x0002"),
                  spi(1, 2),
              }));
}

TEST_F(PeekPoke, PokeOfTheLastRegisterIsTruncatedOnTheWire) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().poke(0xFFFF, -1), 0); }),
              text({
                  status(6, "Poke: Register 0xFFFF: Value: 0xFFFFFFFF"),
                  "SPI FF FF FF FF",
              }));
    int value = 0;
    EXPECT_EQ(board().peek(0xFFFF, &value), 0);
    EXPECT_EQ(value, -1); // the driver's copy keeps all 32 bits
}

TEST_F(PeekPoke, PokeBeyondTheRegistersShowsTheValueThenTheRefusal) {
    makeReadyBoard();
    for (const int reg : {0x10000, 0x7FFFFFFF}) {
        int result = -1;
        const std::string number = reg == 0x10000 ? "0x10000" : "0x7FFFFFFF";
        EXPECT_EQ(seen([&] { result = board().poke(reg, 1); }),
                  text({
                      status(6, "Poke: Register " + number + ": Value: 0x0001"),
                      status(6, "Poke: Register " + number + " too large"),
                  }));
        EXPECT_EQ(result, 3);
    }
}

TEST_F(PeekPoke, PokeOfANegativeRegisterLosesItsUpperBits) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().poke(-65470, 0x12), 0); }), // 0xFFFF0042
              text({
                  status(6, "Poke: Register 0xFFFF0042: Value: 0x0012"),
                  spi(0x42, 0x12),
              }));
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().poke(std::numeric_limits<int>::min(), 1), 0); }),
              text({
                  status(6, "Poke: Register 0x80000000: Value: 0x0001"),
                  spi(0, 1),
              }));
}

TEST_F(PeekPoke, PokeIgnoresAFailedTransfer) {
    useHead(aQuickHead().withoutSpiDevice());
    makeBoard();
    EXPECT_EQ(board().poke(0x300, 7), 0);
    int value = 0;
    EXPECT_EQ(board().peek(0x300, &value), 0);
    EXPECT_EQ(value, 7);
}

TEST_F(PeekPoke, NeitherWaitsForTheBoardMutex) {
    makeReadyBoard();
    noteBoardLocks();
    EXPECT_EQ(seen([&] {
                  tcMutex& mutex = boardMutexOf(board());
                  mutex.lock();
                  auto other = std::async(std::launch::async, [&] {
                      int value = 0;
                      EXPECT_EQ(board().poke(0x123, 0x55), 0);
                      EXPECT_EQ(board().peek(0x123, &value), 0);
                      EXPECT_EQ(value, 0x55);
                  });
                  EXPECT_EQ(other.wait_for(std::chrono::seconds(30)), std::future_status::ready);
                  mutex.unlock();
              }),
              text({
                  locked(), // by the test
                  status(6, "Poke: Register 0x123: Value: 0x0055"),
                  spi(0x123, 0x55),
                  status(6, "Peek: Register 0x123: Value: 0x0055"),
                  unlocked(),
              }));
}

TEST_F(PeekPoke, PeekAnswersFromTheDriversCopyWithoutTraffic) {
    makeReadyBoard();
    int value = -1;
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().peek(0x12, &value); }),
              text({status(6, "Peek: Register 0x012: Value: 0x0F9C")}));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(value, 0xF9C);
}

TEST_F(PeekPoke, PeekDoesNotSeeWhatTheSensorLost) {
    makeReadyBoard();
    board().poke(0x123, 0x55);
    head().setFpgaWord(0xFF211004, 0); // something else happens to the head
    int value = -1;
    EXPECT_EQ(board().peek(0x123, &value), 0);
    EXPECT_EQ(value, 0x55);
    EXPECT_EQ(head().sensorRegister(0x123), 0x55U);
}

TEST_F(PeekPoke, PeekOfAnUnknownRegisterReportsItAndTheUnchangedValue) {
    makeReadyBoard();
    int value = 0x2A;
    int result = -1;
    for (int again = 0; again < 2; ++again) { // asking does not make it known
        EXPECT_EQ(seen([&] { result = board().peek(0x123, &value); }),
                  text({
                      status(6, "Peek: Register 0x123 not found"),
                      status(6, "Peek: Register 0x123: Value: 0x002A"),
                  }));
        EXPECT_EQ(result, 3);
        EXPECT_EQ(value, 0x2A);
    }
}

TEST_F(PeekPoke, PeekBeyondTheRegistersTouchesNothing) {
    makeReadyBoard();
    int value = 0x2A;
    int result = -1;
    EXPECT_EQ(seen([&] { result = board().peek(0x10000, &value); }),
              text({status(6, "Peek: Register 0x10000 too large")}));
    EXPECT_EQ(result, 3);
    EXPECT_EQ(value, 0x2A);
    EXPECT_EQ(board().peek(0x7FFFFFFF, nullptr), 3);
}

TEST_F(PeekPoke, PeekOfTheLastRegisterIsInRange) {
    makeReadyBoard();
    int value = 0;
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().peek(0xFFFF, &value), 3); }),
              text({
                  status(6, "Peek: Register 0xFFFF not found"),
                  status(6, "Peek: Register 0xFFFF: Value: 0x0000"),
              }));
}

TEST_F(PeekPoke, PeekOfANegativeRegisterLosesItsUpperBits) {
    makeReadyBoard();
    int value = 0;
    EXPECT_EQ(seen([&] { EXPECT_EQ(board().peek(-65518, &value), 0); }), // 0xFFFF0012
              text({status(6, "Peek: Register 0xFFFF0012: Value: 0x0F9C")}));
    EXPECT_EQ(value, 0xF9C);
}

TEST_F(PeekPoke, AddressesAboveTheWiresTenBitsAreKeptApartInTheDriversCopy) {
    makeReadyBoard();
    board().poke(0x412, 0x77);
    int value = 0;
    EXPECT_EQ(board().peek(0x12, &value), 0);
    EXPECT_EQ(value, 0xF9C);
    EXPECT_EQ(board().peek(0x412, &value), 0);
    EXPECT_EQ(value, 0x77);
}

// How long bringing the head up takes: its pauses, and nothing else but bits on wires.

#include <chrono>
#include <cstdint>

#include "tests/support/board_fixture.h"

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

namespace {

class Pauses : public tcBoardFixture {};

TEST_F(Pauses, InitializeWaitsForNothingButItsPauses) {
    useHead(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns));
    useShippedFiles();
    makeBoard();
    head().clearLog();
    const nanoseconds before = head().now();
    ASSERT_EQ(board().initialize(), 0);
    const nanoseconds took = head().now() - before;

    nanoseconds slept{0};
    for (const sim::tsEvent& event : head().log(sim::teEventKind::sleep)) {
        slept += nanoseconds(event.value);
    }
    // 1.2 V supply 1 ms, 3.3 V supplies 1 us and 300 ms, reset 10 ms, ADC 5 ms; the shipped
    // settings file pauses twice, 0x3E8 and 0x2710 us.
    EXPECT_EQ(slept, 1ms + 1us + 300ms + 10ms + 5ms + 1ms + 10ms);

    // The rest is 32 bits of 100 ns for each register write, and four conversions on I2C.
    const auto frames = static_cast<std::int64_t>(head().log(sim::teEventKind::spi).size());
    const nanoseconds onWire = took - slept - frames * 3200ns;
    EXPECT_GT(onWire, 0ns);
    EXPECT_LT(onWire, 4 * 600us); // 5 bytes of 9 bits at 100 kHz, with room for starts and stops
    EXPECT_TRUE(head().violations().empty());
}

} // namespace

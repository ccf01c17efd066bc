#include "common/pause.h"

#include <cerrno>

#include "tests/sensor/sensor_fixture.h"

using std::chrono::microseconds;
using testing::ElementsAre;

namespace {

class Pause : public tcSensorFixture {};

TEST_F(Pause, IsOneCallWithItsDuration) {
    EXPECT_THAT(trace([] {
                    pauseFor(microseconds(1));
                    pauseFor(microseconds(300000));
                    pauseFor(microseconds(999999));
                    pauseFor(microseconds(1000000));
                    pauseFor(microseconds(4294967295));
                }),
                ElementsAre("SLEEP 1000 ns", "SLEEP 300000000 ns", "SLEEP 999999000 ns",
                            "SLEEP 1000000000 ns", "SLEEP 4294967295000 ns"));
}

TEST_F(Pause, OfZeroIsACallAsWell) {
    EXPECT_THAT(trace([] { pauseFor(microseconds(0)); }), ElementsAre("SLEEP 0 ns"));
}

TEST_F(Pause, GoesOnWithTheRestWhenASignalInterruptsIt) {
    const auto start = head().now();
    head().failCall(sim::teCall::sleep, "clock", head().calls(sim::teCall::sleep, "clock") + 1,
                    EINTR);
    EXPECT_THAT(trace([] { pauseFor(microseconds(1000)); }),
                ElementsAre("SLEEP 1000000 ns failed EINTR", "SLEEP 500000 ns"));
    EXPECT_EQ(head().now() - start, microseconds(1000));
}

} // namespace

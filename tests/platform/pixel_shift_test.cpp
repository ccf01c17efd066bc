#include <varnox/pixel_shift.h>

#include <cerrno>

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/platform/captured.h"

using sim::aVirtualHead;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t kShift = 0xFF217000;

} // namespace

TEST(PixelShift, AsksTheCoreWhoItIsAndNothingElse) {
    const auto head = aVirtualHead().build();
    const tcPixelShift shift(kShift);
    EXPECT_TRUE(shift.initialized());
    EXPECT_THAT(head.lines(sim::kHardwareEvents), ElementsAre("READ 0xFF217200 0x50534831"));
}

TEST(PixelShift, SetsDirectionAndAmountInOneWrite) {
    auto head = aVirtualHead().build();
    tcPixelShift shift(kShift);
    shift.reset(false);
    head.clearLog();
    EXPECT_TRUE(shift.setShift(1, 4));
    EXPECT_TRUE(shift.setShift(0, 15));
    EXPECT_TRUE(shift.setShift(0, 0));
    EXPECT_THAT(head.lines(),
                ElementsAre("READ 0xFF217000 0x00000000", "WRITE 0xFF217000 0x00000014",
                            "READ 0xFF217000 0x00000014", "WRITE 0xFF217000 0x0000000F",
                            "READ 0xFF217000 0x0000000F", "WRITE 0xFF217000 0x00000000"));
}

TEST(PixelShift, KeepsResetAndShiftApart) {
    auto head = aVirtualHead().build();
    tcPixelShift shift(kShift);
    shift.reset(true);
    EXPECT_TRUE(shift.setShift(1, 4));
    EXPECT_EQ(head.fpgaWord(kShift), 0x80000014U);
    shift.reset(false);
    EXPECT_EQ(head.fpgaWord(kShift), 0x00000014U);
    shift.reset(true);
    EXPECT_EQ(head.fpgaWord(kShift), 0x80000014U);
}

TEST(PixelShift, RefusesWhatIsOutOfRangeAndWritesNothing) {
    auto head = aVirtualHead().build();
    tcPixelShift shift(kShift);
    head.clearLog();
    EXPECT_FALSE(shift.setShift(2, 0));
    EXPECT_FALSE(shift.setShift(-1, 0));
    EXPECT_FALSE(shift.setShift(0, 16));
    EXPECT_FALSE(shift.setShift(0, -1));
    EXPECT_THAT(head.lines(), IsEmpty());
}

TEST(PixelShift, NeverTouchesACoreThatIsNotThereAndReportsItOnce) {
    for (auto* builder :
         {+[] { return aVirtualHead().withSilentCore(sim::teCore::pixelShift).build(); },
          +[] { return aVirtualHead().withMapFailing(kShift, EPERM).build(); }}) {
        auto head = builder();
        testing::internal::CaptureStderr();
        tcPixelShift shift(kShift);
        testing::internal::GetCapturedStderr();
        EXPECT_FALSE(shift.initialized());
        head.clearLog();
        EXPECT_EQ(stderrOf([&] {
                      EXPECT_FALSE(shift.setShift(1, 4));
                      shift.reset(true);
                  }),
                  "tcPixelShift at 0xFF217000: setShift: the core is not there\n");
        EXPECT_THAT(head.lines(), IsEmpty());
    }
}

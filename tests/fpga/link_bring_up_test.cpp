// Serial-link bring-up: limits, outputs, register accesses and pauses of every end.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <tuple>

#include "fpga/canon_3u5mgxs_frame_ctrl.h"
#include "sensor/sensor.h"
#include "tests/fpga/fpga_fixture.h"
#include "tests/support/temporary_directory.h"
#include "varnox/pwm.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

constexpr auto kSeen = sim::teEventKind::read | sim::teEventKind::write | sim::teEventKind::sleep |
                       sim::teEventKind::note;

/// The lines that the core reads, writes, prints and waits, put together from their kinds.
class tcExpected {
public:
    tcExpected& read(const std::string& what, int times = 1) {
        for (int i = 0; i < times; ++i) {
            m_lines.push_back("READ " + what);
        }
        return *this;
    }
    tcExpected& write(const std::string& what) { return add("WRITE " + what); }
    tcExpected& out(const std::string& text) { return add("NOTE OUT " + text + "\\n"); }
    tcExpected& err(const std::string& text) { return add("NOTE ERR " + text + "\\n"); }
    tcExpected& sleep(const std::string& nanoseconds) {
        return add("SLEEP " + nanoseconds + " ns");
    }
    [[nodiscard]] const std::vector<std::string>& lines() const { return m_lines; }

private:
    tcExpected& add(std::string line) {
        m_lines.push_back(std::move(line));
        return *this;
    }
    std::vector<std::string> m_lines;
};

class LinkBringUp : public tcFpgaFixture {
protected:
    /// A head whose sensor drives its lanes and gets frame starts, and the core on it.
    void makeLink(sim::tcVirtualHeadBuilder& builder) {
        useHead(builder);
        m_directory.write("3U5MGXS_12bit.txt", "10 0\nB0 383\n12 FA0\n94 201800\n95 1AF000\n");
        m_sensor = std::make_unique<tc3U5MGXS>("/dev/spidev1.0");
        ASSERT_EQ(m_sensor->powerUp(), 0);
        m_pwm = std::make_unique<tcPwm>(0xFF211000U, 36.0, "");
        m_pwm->setInvertPulse(true);
        m_pwm->setDutyClks(10);
        m_pwm->setPeriodFreq(30);
        m_core = std::make_unique<tcCanon3U5MGXSFrameCtrl>(0xFF210000U);
        m_core->setLaneInversion(0x5D9);
        m_sensor->setFrameState(tc3U5MGXS::eFrameLanesOn);
        m_pwm->enableCore(true);
        out().clear();
        err().clear();
    }

    std::vector<std::string> bringUp(int expectedResult) {
        return trace([&] { EXPECT_EQ(m_core->enableCore(true), expectedResult); }, kSeen);
    }

    tcCanon3U5MGXSFrameCtrl& core() { return *m_core; }

private:
    tcTemporaryDirectory m_directory;
    std::unique_ptr<tc3U5MGXS> m_sensor;
    std::unique_ptr<tcPwm> m_pwm;
    std::unique_ptr<tcCanon3U5MGXSFrameCtrl> m_core;
};

tcExpected enabled() {
    tcExpected expected;
    expected.read("0xFF210000 0x00000000").write("0xFF210000 0x80000000");
    return expected;
}

void expectDpaReset(tcExpected& expected) {
    expected.write("0xFF21002C 0x00000000")
        .write("0xFF210028 0x00000FFF")
        .write("0xFF210028 0x00FFF000")
        .write("0xFF210028 0x00000000");
}

TEST_F(LinkBringUp, ALinkLockedAndAlignedAtOncePrintsThreeLines) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns));
    tcExpected expected = enabled();
    expected.read("0xFF210004 0x00000007", 4);
    expected.out("Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1");
    expectDpaReset(expected);
    expected.read("0xFF210030 0x00000FFF").out("DPA Lock: fff");
    expected.write("0xFF210028 0x00000000").write("0xFF21002C 0x00000FFF");
    expected.read("0xFF210004 0x0000000F", 4);
    expected.out("Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1");
    EXPECT_THAT(bringUp(0), ElementsAreArray(expected.lines()));
    EXPECT_EQ(err().text(), "");
    EXPECT_EQ(out().textWithFlushes(), "Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1\n<flush>"
                                       "DPA Lock: fff\n<flush>"
                                       "Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1\n<flush>");
    EXPECT_EQ(head().fpgaWord(0xFF210000), 0x80000000U);
    EXPECT_EQ(head().fpgaWord(0xFF210028), 0U);
    EXPECT_EQ(head().fpgaWord(0xFF21002C), 0xFFFU);
    EXPECT_TRUE(head().violations().empty());
}

TEST_F(LinkBringUp, ALinkThatTakesItsTimeIsPolledAndPrintsEveryTry) {
    makeLink(sim::aVirtualHead()
                 .withPllAfter(15ms)
                 .withLanesAfter(5ms)
                 .withLaneAfter(3, 12ms)
                 .withAlignmentAfter(50ms));
    tcExpected expected = enabled();
    for (const char* tries : {" tries: 0", " tries: 1"}) {
        expected.read("0xFF210004 0x00000000", 4);
        expected.out("Status: Aligned 0 Locked 0 rgLocked 0 gbLocked 0").out(tries);
        expected.sleep("10000000");
    }
    expected.read("0xFF210004 0x00000007", 4);
    expected.out("Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1");
    expectDpaReset(expected);
    expected.read("0xFF210030 0x00000000").out("DPA Lock: 0 tries: 0").sleep("10000000");
    expected.read("0xFF210030 0x00000FF7").out("DPA Lock: ff7 tries: 1").sleep("10000000");
    expected.read("0xFF210030 0x00000FFF").out("DPA Lock: fff");
    expected.write("0xFF210028 0x00000000").write("0xFF21002C 0x00000FFF");
    for (const char* tries : {" tries: 0", " tries: 1"}) {
        expected.read("0xFF210004 0x00000007", 4);
        expected.out("Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1").out(tries);
        expected.sleep("40000000");
    }
    expected.read("0xFF210004 0x0000000F", 4);
    expected.out("Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1");
    EXPECT_THAT(bringUp(0), ElementsAreArray(expected.lines()));
    EXPECT_TRUE(head().violations().empty());
}

TEST_F(LinkBringUp, OneMissingPllFlagEndsAfterTenPauses) {
    for (const auto& [flag, word, text] :
         {std::tuple{sim::tePllFlag::gbLocked, "0xFF210004 0x00000006",
                     "Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 0"},
          std::tuple{sim::tePllFlag::rgLocked, "0xFF210004 0x00000005",
                     "Status: Aligned 0 Locked 1 rgLocked 0 gbLocked 1"},
          std::tuple{sim::tePllFlag::locked, "0xFF210004 0x00000003",
                     "Status: Aligned 0 Locked 0 rgLocked 1 gbLocked 1"}}) {
        SCOPED_TRACE(text);
        makeLink(sim::aVirtualHead().withPllAfter(0ns).withPllFlagAfter(flag, sim::kNever));
        tcExpected expected = enabled();
        for (int tries = 0; tries < 10; ++tries) {
            expected.read(word, 4).out(text).out(" tries: " + std::to_string(tries));
            expected.sleep("10000000");
        }
        expected.read(word, 4).out(text).err("PLL failed to lock");
        const auto before = head().now();
        EXPECT_THAT(bringUp(-1), ElementsAreArray(expected.lines()));
        EXPECT_EQ(head().now() - before, 100ms);
        EXPECT_EQ(err().text(), "PLL failed to lock\n");
        EXPECT_EQ(head().fpgaWord(0xFF210000), 0x80000000U); // stays enabled
    }
}

TEST_F(LinkBringUp, APllThatLocksWithTheEleventhReadIsInTime) {
    makeLink(sim::aVirtualHead().withPllAfter(100ms).withLanesAfter(0ns).withAlignmentAfter(0ns));
    const auto lines = bringUp(0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "SLEEP 10000000 ns"), 10);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "NOTE OUT  tries: 9\\n"), 1);
    EXPECT_EQ(err().text(), "");
}

TEST_F(LinkBringUp, ADeadLaneEndsAfterTenPauses) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withStuckLane(0));
    tcExpected expected = enabled();
    expected.read("0xFF210004 0x00000007", 4);
    expected.out("Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1");
    expectDpaReset(expected);
    for (int tries = 0; tries < 10; ++tries) {
        expected.read("0xFF210030 0x00000FFE");
        expected.out("DPA Lock: ffe tries: " + std::to_string(tries)).sleep("10000000");
    }
    expected.read("0xFF210030 0x00000FFE").out("DPA Lock: ffe").err("DPA failed to lock");
    EXPECT_THAT(bringUp(-2), ElementsAreArray(expected.lines()));
    EXPECT_EQ(err().text(), "DPA failed to lock\n");
    EXPECT_EQ(head().fpgaWord(0xFF210000), 0x80000000U);
    EXPECT_EQ(head().fpgaWord(0xFF210028), 0U);
    EXPECT_EQ(head().fpgaWord(0xFF21002C), 0U); // no hold
}

TEST_F(LinkBringUp, EveryLaneCounts) {
    for (unsigned lane = 0; lane < 12; ++lane) {
        SCOPED_TRACE(lane);
        makeLink(sim::aVirtualHead().withStuckLane(lane));
        bringUp(-2);
        EXPECT_EQ(core().readDPALock(), 0xFFFU & ~(1U << lane));
    }
}

TEST_F(LinkBringUp, LanesThatLockWithTheEleventhReadAreInTime) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(100ms).withAlignmentAfter(0ns));
    const auto lines = bringUp(0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "SLEEP 10000000 ns"), 10);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "NOTE OUT DPA Lock: 0 tries: 9\\n"), 1);
}

TEST_F(LinkBringUp, AFrameThatNeverAlignsEndsAfterTenLongPauses) {
    makeLink(
        sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(sim::kNever));
    tcExpected expected = enabled();
    expected.read("0xFF210004 0x00000007", 4);
    expected.out("Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1");
    expectDpaReset(expected);
    expected.read("0xFF210030 0x00000FFF").out("DPA Lock: fff");
    expected.write("0xFF210028 0x00000000").write("0xFF21002C 0x00000FFF");
    for (int tries = 0; tries < 10; ++tries) {
        expected.read("0xFF210004 0x00000007", 4);
        expected.out("Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1");
        expected.out(" tries: " + std::to_string(tries)).sleep("40000000");
    }
    expected.read("0xFF210004 0x00000007", 4);
    expected.out("Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1");
    expected.err("Frame failed to align");
    const auto before = head().now();
    EXPECT_THAT(bringUp(-1), ElementsAreArray(expected.lines()));
    EXPECT_EQ(head().now() - before, 400ms);
    EXPECT_EQ(err().text(), "Frame failed to align\n");
    EXPECT_EQ(head().fpgaWord(0xFF210000), 0x80000000U);
    EXPECT_EQ(head().fpgaWord(0xFF21002C), 0xFFFU);
}

TEST_F(LinkBringUp, AFrameThatAlignsWithTheEleventhReadIsInTime) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(400ms));
    const auto lines = bringUp(0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "SLEEP 40000000 ns"), 10);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "NOTE OUT  tries: 9\\n"), 1);
    EXPECT_EQ(err().text(), "");
}

TEST_F(LinkBringUp, EnablingKeepsTheOtherControlBits) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns));
    head().setFpgaWord(0xFF210000, 0x00000002);
    const auto lines = bringUp(0);
    EXPECT_EQ(lines[0], "READ 0xFF210000 0x00000002");
    EXPECT_EQ(lines[1], "WRITE 0xFF210000 0x80000002");
}

TEST_F(LinkBringUp, ProgressAndFailuresAreFlushedLineByLine) {
    makeLink(sim::aVirtualHead().withPllAfter(5ms).withLanesAfter(0ns).withStuckLane(11));
    std::cerr << std::nounitbuf; // else every piece is flushed anyway
    bringUp(-2);
    EXPECT_EQ(err().textWithFlushes(), "DPA failed to lock\n<flush>");
    EXPECT_THAT(out().textWithFlushes(),
                testing::StartsWith("Status: Aligned 0 Locked 0 rgLocked 0 gbLocked 0\n<flush>"
                                    " tries: 0\n<flush>"
                                    "Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1\n<flush>"
                                    "DPA Lock: 7ff tries: 0\n<flush>"));
    makeLink(sim::aVirtualHead().withPllAfter(sim::kNever));
    bringUp(-1);
    EXPECT_EQ(err().textWithFlushes(), "PLL failed to lock\n<flush>");
    makeLink(
        sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(sim::kNever));
    bringUp(-1);
    std::cerr << std::unitbuf;
    EXPECT_EQ(err().textWithFlushes(), "Frame failed to align\n<flush>");
}

TEST_F(LinkBringUp, BitsBesideFlagsAndLanesHaveNoMeaning) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns));
    head().setFpgaWord(0xFF210004, 0xFFFFFFF0);
    head().setFpgaWord(0xFF210030, 0xABCDE000);
    tcExpected expected = enabled();
    expected.read("0xFF210004 0xFFFFFFF7", 4);
    expected.out("Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1");
    expectDpaReset(expected);
    expected.read("0xFF210030 0xABCDEFFF").out("DPA Lock: fff");
    expected.write("0xFF210028 0x00000000").write("0xFF21002C 0x00000FFF");
    expected.read("0xFF210004 0xFFFFFFFF", 4);
    expected.out("Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1");
    EXPECT_THAT(bringUp(0), ElementsAreArray(expected.lines()));
    EXPECT_EQ(core().readDPALock(), 0xFFFU);
}

// Lanes are printed in hexadecimal, and standard output is in decimal again from there on.
TEST_F(LinkBringUp, StandardOutputIsInDecimalOnceTheLanesWereTried) {
    const auto flagsAfter = [&](sim::tcVirtualHeadBuilder& builder, int expectedResult) {
        makeLink(builder);
        std::cout.flags(std::ios::hex | std::ios::showbase | std::ios::boolalpha);
        bringUp(expectedResult);
        const auto flags = std::cout.flags();
        std::cout.copyfmt(std::ios(nullptr));
        return flags;
    };
    const auto kFound = std::ios::showbase | std::ios::boolalpha;
    EXPECT_EQ(
        flagsAfter(
            sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns), 0),
        kFound | std::ios::dec);
    EXPECT_EQ(
        flagsAfter(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withStuckLane(3), -2),
        kFound | std::ios::dec);
    EXPECT_EQ(flagsAfter(sim::aVirtualHead().withPllAfter(sim::kNever), -1),
              kFound | std::ios::hex);
}

TEST_F(LinkBringUp, TheDumpShowsALinkThatIsUp) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns));
    bringUp(0);
    out().clear();
    core().dumpRegisters();
    EXPECT_THAT(out().text(), testing::HasSubstr("Core enabled:\t1\n"));
    EXPECT_THAT(out().text(),
                testing::HasSubstr("Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1\n"));
    EXPECT_THAT(out().text(), testing::EndsWith("DPA Reset:\t0x0\n"
                                                "DPA Fifo Reset:\t0x0\n"
                                                "DPA Hold:\t0xfff\n"
                                                "DPA Lock:\t0xfff\n"));
}

TEST_F(LinkBringUp, ALinkThatIsUpIsSwitchedOffWithOneBit) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns));
    bringUp(0);
    EXPECT_THAT(trace([&] { EXPECT_EQ(core().enableCore(false), 0); }),
                ElementsAre("READ 0xFF210000 0x80000000", "WRITE 0xFF210000 0x00000000"));
}

TEST_F(LinkBringUp, ALaterCallRepeatsTheWholeSequence) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(0ns));
    bringUp(0);
    // The enable bit is set already and is written once more.
    tcExpected expected;
    expected.read("0xFF210000 0x80000000").write("0xFF210000 0x80000000");
    expected.read("0xFF210004 0x0000000F", 4);
    expected.out("Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1");
    expectDpaReset(expected);
    expected.read("0xFF210030 0x00000FFF").out("DPA Lock: fff");
    expected.write("0xFF210028 0x00000000").write("0xFF21002C 0x00000FFF");
    expected.read("0xFF210004 0x0000000F", 4);
    expected.out("Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1");
    EXPECT_THAT(bringUp(0), ElementsAreArray(expected.lines()));
}

TEST_F(LinkBringUp, SwitchingOffClearsBit31AndNothingElse) {
    auto healthy = sim::aVirtualHead();
    makeLink(healthy);
    head().setFpgaWord(0xFF210000, 0x80000002);
    EXPECT_THAT(trace([&] { EXPECT_EQ(core().enableCore(false), 0); }),
                ElementsAre("READ 0xFF210000 0x80000002", "WRITE 0xFF210000 0x00000002"));
    // Whatever state the link is in.
    EXPECT_THAT(trace([&] { EXPECT_EQ(core().enableCore(false), 0); }),
                ElementsAre("READ 0xFF210000 0x00000002", "WRITE 0xFF210000 0x00000002"));
}

TEST_F(LinkBringUp, AnInterruptedPauseGoesOnWithWhatIsLeft) {
    makeLink(sim::aVirtualHead().withPllAfter(3ms).withLanesAfter(0ns).withAlignmentAfter(0ns));
    head().failCall(sim::teCall::sleep, "clock", head().calls(sim::teCall::sleep, "clock") + 1,
                    EINTR);
    const auto lines =
        trace([&] { EXPECT_EQ(core().enableCore(true), 0); }, sim::teEventKind::sleep);
    EXPECT_THAT(lines, ElementsAre("SLEEP 10000000 ns failed EINTR", "SLEEP 5000000 ns"));
}

TEST_F(LinkBringUp, AnInterruptedAlignmentPauseGoesOnToo) {
    makeLink(sim::aVirtualHead().withPllAfter(0ns).withLanesAfter(0ns).withAlignmentAfter(30ms));
    head().failCall(sim::teCall::sleep, "clock", head().calls(sim::teCall::sleep, "clock") + 1,
                    EINTR);
    const auto lines =
        trace([&] { EXPECT_EQ(core().enableCore(true), 0); }, sim::teEventKind::sleep);
    EXPECT_THAT(lines, ElementsAre("SLEEP 40000000 ns failed EINTR", "SLEEP 20000000 ns"));
}

} // namespace

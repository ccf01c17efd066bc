// The event log, the counters, calls that fail, and the life of a head.

#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teCall;
using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;

TEST(Log, NotesStandInOrderWithTheHardware) {
    auto head = sim::aVirtualHead().build();
    const tcDescriptor chip = openDevice("/dev/gpiochip0");
    head.note("before");
    const tcDescriptor line = requestOutput(chip.get(), lines::kTrigger, 1);
    head.note("after");
    EXPECT_THAT(head.lines(), ElementsAre("OPEN /dev/gpiochip0", "NOTE before",
                                          "GPIO EXT_TRIG_EN out 1", "NOTE after"));
}

TEST(Log, ATimedLineHasSecondsAndNanoseconds) {
    auto head = sim::aVirtualHead().build();
    head.advance(12s + 34567ns);
    head.note("here");
    EXPECT_THAT(head.timedLines(), ElementsAre("[   12.000034567] NOTE here"));
}

TEST(Log, AnEventHasItsParts) {
    const auto head = sim::aVirtualHead().build();
    const tcRegisters base(0xFF200000);
    static_cast<void>(base.read(1));
    const auto events = head.log(teEventKind::read);
    ASSERT_THAT(events, SizeIs(1));
    EXPECT_EQ(events[0].kind, teEventKind::read);
    EXPECT_EQ(events[0].address, 0xFF200004U);
    EXPECT_EQ(events[0].value, 0x10203U);
    EXPECT_EQ(events[0].error, 0);
    EXPECT_EQ(events[0].text, "READ 0xFF200004 0x00010203");
    EXPECT_EQ(head.log(teEventKind::device)[0].subject, "/dev/mem");
}

TEST(Log, ALongNoteIsKeptWhole) {
    auto head = sim::aVirtualHead().build();
    for (const std::size_t length : {0U, 35U, 36U, 37U, 99U, 100U, 101U, 164U, 165U, 1000U}) {
        head.note(std::string(length, 'x'));
    }
    const auto lines = head.lines();
    ASSERT_THAT(lines, SizeIs(10));
    EXPECT_EQ(lines[0], "NOTE ");
    EXPECT_EQ(lines[2], "NOTE " + std::string(36, 'x'));
    EXPECT_EQ(lines[3], "NOTE " + std::string(37, 'x'));
    EXPECT_EQ(lines[9], "NOTE " + std::string(1000, 'x'));
}

TEST(Log, AMillionOperationsFitWithClearing) {
    auto head = sim::aVirtualHead().withQuietViolations().build();
    tcPort port;
    port.configure();
    for (int round = 0; round < 10; ++round) {
        head.clearLog();
        for (int word = 0; word < 100'000; ++word) {
            port.send({0, 0, 0, 0});
        }
        ASSERT_THAT(head.log(teEventKind::spi), SizeIs(100'000));
    }
    EXPECT_EQ(head.calls(teCall::ioctl, "/dev/spidev1.0"), 1'000'003U);
}

TEST(Log, AFullLogIsAViolation) {
    auto head = sim::aVirtualHead().withLogCapacity(3).withQuietViolations().build();
    for (int note = 0; note < 5; ++note) {
        head.note("x");
    }
    EXPECT_THAT(head.lines(), SizeIs(3));
    ASSERT_THAT(head.violations(), SizeIs(1));
    EXPECT_EQ(head.violations()[0].rule, "log-full");
    head.clearLog();
    head.note("again");
    EXPECT_THAT(head.lines(), ElementsAre("NOTE again"));
}

TEST(Log, AViolationIsAnEventToo) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcRegisters base(0xFF200000);
    static_cast<void>(base.read(5));
    EXPECT_THAT(head.lines(teEventKind::read | teEventKind::violation),
                ElementsAre("READ 0xFF200014 0xDEADBEEF",
                            "VIOLATION fpga-unmodelled: a load from 0xFF200014"));
    EXPECT_EQ(head.log(teEventKind::violation)[0].subject, "fpga-unmodelled");
}

TEST(Log, ARuleIsPrintedOnceWithItsDetails) {
    testing::internal::CaptureStderr();
    {
        const auto head = sim::aVirtualHead().build();
        const tcRegisters base(0xFF200000);
        static_cast<void>(base.read(5));
        static_cast<void>(base.read(6));
        EXPECT_EQ(head.violationCount(), 2U);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "virtual head: violation of the rule \"fpga-unmodelled\" at 0.000000000 s\n"
              "  what happened: a load from 0xFF200014\n"
              "  rule: Only registers that exist are accessed.\n"
              "  reason: Nobody answers: the bus hangs or returns whatever it held. Reads give "
              "0xDEADBEEF here.\n"
              "  remedy: See the register reference.\n");
}

TEST(Log, ClearedViolationsAreForgotten) {
    auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcRegisters base(0xFF200000);
    static_cast<void>(base.read(5));
    head.clearViolations();
    EXPECT_EQ(head.violationCount(), 0U);
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Calls, AreCountedByKindAndDevice) {
    const auto head = sim::aVirtualHead().build();
    {
        tcUser user;
        user.powerUp();
    }
    EXPECT_EQ(head.calls(teCall::open, "/dev/spidev1.0"), 1U);
    EXPECT_EQ(head.calls(teCall::open, "/dev/mem"), 3U);
    EXPECT_EQ(head.calls(teCall::mmap, "/dev/mem"), 3U);
    EXPECT_EQ(head.calls(teCall::munmap, "/dev/mem"), 3U);
    EXPECT_EQ(head.calls(teCall::close, "/dev/mem"), 3U);
    EXPECT_EQ(head.calls(teCall::ioctl, "/dev/spidev1.0"), 3U);
    EXPECT_EQ(head.calls(teCall::ioctl, "/dev/gpiochip0"), 9U); // four requests, five levels
    EXPECT_EQ(head.calls(teCall::close, "/dev/gpiochip0"), 5U);
    EXPECT_EQ(head.calls(teCall::write, "/dev/i2c-1"), 4U);
    EXPECT_EQ(head.calls(teCall::read, "/dev/i2c-1"), 4U);
    EXPECT_EQ(head.calls(teCall::sleep, "clock"), 4U);
    EXPECT_THROW(static_cast<void>(head.calls(teCall::open, "/dev/null")), std::invalid_argument);
}

TEST(Calls, TheNthFailsAndNoOther) {
    auto head = sim::aVirtualHead().build();
    head.failCall(teCall::open, "/dev/mem", 2, EMFILE);
    EXPECT_TRUE(openDevice("/dev/mem").valid());
    EXPECT_FALSE(openDevice("/dev/mem").valid());
    EXPECT_EQ(errno, EMFILE);
    EXPECT_TRUE(openDevice("/dev/mem").valid());
    EXPECT_THROW(head.failCall(teCall::open, "/dev/null", 1, EIO), std::invalid_argument);
}

TEST(Calls, AllFailFromTheNthOn) {
    auto head = sim::aVirtualHead().build();
    head.failCallsFrom(teCall::open, "/dev/i2c-1", 2, EIO);
    EXPECT_TRUE(openDevice("/dev/i2c-1").valid());
    EXPECT_FALSE(openDevice("/dev/i2c-1").valid());
    EXPECT_FALSE(openDevice("/dev/i2c-1").valid());
}

TEST(Calls, EveryKindFailsAsAskedFor) {
    auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    const auto next = [&head](teCall kind, const char* device) {
        return head.calls(kind, device) + 1;
    };
    head.failCall(teCall::ioctl, "/dev/spidev1.0", next(teCall::ioctl, "/dev/spidev1.0"), EIO);
    EXPECT_EQ(user.port.writeRegister(0x20, 1), -EIO);
    EXPECT_EQ(head.sensorRegister(0x20), std::nullopt);

    head.failCall(teCall::ioctl, "/dev/gpiochip0", next(teCall::ioctl, "/dev/gpiochip0"), ENODEV);
    EXPECT_EQ(setLevel(user.reset, 0), ENODEV);
    EXPECT_EQ(head.line("RESET_B"), 1);

    head.failCall(teCall::write, "/dev/i2c-1", next(teCall::write, "/dev/i2c-1"), ETIMEDOUT);
    EXPECT_EQ(user.monitor.command(0x8C), -ETIMEDOUT);
    head.failCall(teCall::read, "/dev/i2c-1", next(teCall::read, "/dev/i2c-1"), EREMOTEIO);
    EXPECT_EQ(user.monitor.convert(), -EREMOTEIO);

    head.failCall(teCall::mmap, "/dev/mem", next(teCall::mmap, "/dev/mem"), EAGAIN);
    const tcRegisters unmapped(0xFF200000);
    EXPECT_FALSE(unmapped.mapped());

    const int memory = open("/dev/mem", O_RDWR | O_SYNC);
    void* pages = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, memory, fileOffset(0xFF200000));
    head.failCall(teCall::close, "/dev/mem", next(teCall::close, "/dev/mem"), EINTR);
    EXPECT_EQ(close(memory), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(fcntl(memory, F_GETFD), -1); // closed all the same
    head.failCall(teCall::munmap, "/dev/mem", next(teCall::munmap, "/dev/mem"), EINVAL);
    EXPECT_EQ(munmap(pages, 4096), -1);
    EXPECT_EQ(*static_cast<volatile std::uint32_t*>(pages), 0x3505U); // still mapped
    EXPECT_EQ(munmap(pages, 4096), 0);
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Head, ThereIsAtMostOne) {
    const auto head = sim::aVirtualHead().build();
    EXPECT_THROW(static_cast<void>(sim::aVirtualHead().build()), std::logic_error);
}

TEST(Head, AfterItTheDevicesAreTheKernels) {
    { const auto head = sim::aVirtualHead().build(); }
    EXPECT_FALSE(openDevice("/dev/spidev1.0").valid());
    { const auto head = sim::aVirtualHead().build(); }
    const auto second = sim::aVirtualHead().build();
    EXPECT_TRUE(openDevice("/dev/spidev1.0").valid());
}

TEST(Head, OtherFilesAreUntouched) {
    const auto head = sim::aVirtualHead().build();
    const tcDescriptor null(open("/dev/null", O_RDWR));
    ASSERT_TRUE(null.valid());
    EXPECT_EQ(write(null.get(), "x", 1), 1);
    const tcDescriptor self(open("/proc/self/comm", O_RDONLY));
    char byte = 0;
    EXPECT_EQ(read(self.get(), &byte, 1), 1);
    EXPECT_THAT(head.lines(), IsEmpty());
}

TEST(Head, ADescriptorKeepsItsMeaningWhenItIsDuplicated) {
    const auto head = sim::aVirtualHead().build();
    const int first = open("/dev/spidev1.0", O_RDWR);
    const int second = dup2(first, 123);
    close(first);
    std::uint8_t bits = 0;
    EXPECT_EQ(ioctl(second, SPI_IOC_RD_BITS_PER_WORD, &bits), 0);
    EXPECT_EQ(bits, 8);
    close(second);
}

TEST(Head, ManyOpensAndClosesLeaveNothingBehind) {
    const auto head = sim::aVirtualHead().build();
    for (int round = 0; round < 2000; ++round) {
        ASSERT_TRUE(openDevice("/dev/mem").valid());
    }
    EXPECT_LT(openDevice("/dev/mem").get(), 50);
}

TEST(Head, ItsSummarySaysWhatItSaw) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    user.configure();
    EXPECT_EQ(user.bringUp(), 0);
    EXPECT_EQ(head.summary(),
              "what the virtual head saw\n"
              "  supplies: VDD1.2 1.200 V, VDD3.3AVDDH 3.300 V, VDD3.3SVDD 3.300 V\n"
              "  sensor: alive, frame state 0, image 2592 x 2056, 7 registers written\n"
              "  delivered picture: 2592 x 2056 from x 0 y 0\n"
              "  link now: enabled yes, locked no, rgLocked no, gbLocked no, aligned no\n"
              "  link at its best: enabled yes, locked yes, rgLocked yes, gbLocked yes, "
              "aligned yes\n"
              "  lanes that locked: 0 1 2 3 4 5 6 7 8 9 10 11\n"
              "  master clock: 36.000 MHz\n"
              "  sensor register writes: 8\n"
              "  FPGA loads: 10, stores: 12\n"
              "  frames: 0\n"
              "  violations: none\n");
}

TEST(Head, NamesThatNoHeadHasAreRefused) {
    EXPECT_THROW(sim::aVirtualHead().withRail("VDD5", 5), std::invalid_argument);
    EXPECT_THROW(sim::aVirtualHead().withRail("VDD1.2", -1), std::invalid_argument);
    EXPECT_THROW(sim::aVirtualHead().withStuckLane(12), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(
                     sim::aVirtualHead().withFailingCall(teCall::open, "/dev/tty", 1, EIO).build()),
                 std::invalid_argument);
    auto head = sim::aVirtualHead().build();
    EXPECT_THROW(static_cast<void>(head.rail("VDD5")), std::invalid_argument);
    EXPECT_THROW(static_cast<void>(head.fpgaWord(0xFF200008)), std::invalid_argument);
    EXPECT_THROW(head.setFpgaWord(0x12000000, 1), std::invalid_argument);
}

} // namespace

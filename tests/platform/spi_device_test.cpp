#include <varnox/spi_device.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <thread>

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/platform/captured.h"

using sim::aVirtualHead;
using sim::teCall;
using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kDevice = "/dev/spidev1.0";
constexpr std::array<std::uint8_t, 4> kFrame = {0x0F, 0xB9, 0x04, 0x36};

/// The sensor sleeps in these tests, which the head's checker complains about.
sim::tcVirtualHeadBuilder aQuietHead() {
    return std::move(aVirtualHead().withQuietViolations());
}

constexpr tsSPIConfiguration kConfiguration{0, 0x2000, 10'000'000};

} // namespace

TEST(SpiConfiguration, DiffersInEveryField) {
    EXPECT_EQ(kConfiguration, (tsSPIConfiguration{0, 0x2000, 10'000'000}));
    EXPECT_FALSE(kConfiguration != kConfiguration);
    EXPECT_NE(kConfiguration, (tsSPIConfiguration{1, 0x2000, 10'000'000}));
    EXPECT_NE(kConfiguration, (tsSPIConfiguration{0, 0x2001, 10'000'000}));
    EXPECT_NE(kConfiguration, (tsSPIConfiguration{0, 0x2000, 9'999'999}));
}

TEST(SpiDevice, OpensItsDevice) {
    const auto head = aVirtualHead().build();
    EXPECT_EQ(stderrOf([] {
                  const tcSPIDevice device(kDevice);
                  EXPECT_TRUE(device.isOpen());
              }),
              "");
    EXPECT_THAT(head.lines(), ElementsAre("OPEN /dev/spidev1.0", "CLOSE /dev/spidev1.0"));
}

TEST(SpiDevice, TellsThatItsDeviceIsMissing) {
    const auto head = aVirtualHead().withoutSpiDevice().build();
    EXPECT_EQ(stderrOf([] {
                  const tcSPIDevice device(kDevice);
                  EXPECT_FALSE(device.isOpen());
              }),
              "tcSPIDevice: /dev/spidev1.0: open: No such file or directory (errno 2)\n");
}

TEST(SpiDevice, GoesOnWithoutItsDevice) {
    const auto head = aVirtualHead().withoutSpiDevice().build();
    stderrOf([] {
        tcSPIDevice device(kDevice);
        EXPECT_EQ(device.getConfiguration(), (tsSPIConfiguration{0, 0, 0}));
        EXPECT_FALSE(device.setConfiguration(kConfiguration));
        EXPECT_EQ(device.write(kFrame.data(), kFrame.size()), -1);
    });
}

TEST(SpiDevice, SetsModeBitOrderBitsAndClockInThisOrder) {
    const auto head = aVirtualHead().build();
    tcSPIDevice device(kDevice);
    EXPECT_TRUE(device.setConfiguration(kConfiguration));
    EXPECT_THAT(head.lines(teEventKind::spiSetting),
                ElementsAre("SPI-MODE 0", "SPI-LSB 0", "SPI-BITS 32", "SPI-HZ 10000000"));
    EXPECT_EQ(head.calls(teCall::ioctl, kDevice), 4U);
}

TEST(SpiDevice, ReadsBackWhatWasSet) {
    const auto head = aQuietHead().build();
    tcSPIDevice device(kDevice);
    constexpr tsSPIConfiguration kOther{3, 0x1001, 250'000};
    EXPECT_TRUE(device.setConfiguration(kConfiguration));
    EXPECT_EQ(device.getConfiguration(), kConfiguration);
    EXPECT_TRUE(device.setConfiguration(kOther));
    const tsSPIConfiguration read = device.getConfiguration();
    EXPECT_EQ(read.mode & 3, 3U); // the kernel shows the bit order in the mode as well
    EXPECT_EQ(read.lsbFirstAndBits, 0x1001);
    EXPECT_EQ(read.speedHz, 250'000U);
}

TEST(SpiDevice, TellsThatItsSettingsAreRefused) {
    const auto head = aVirtualHead().withSpiSettingsRefused().build();
    tcSPIDevice device(kDevice);
    EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(device.setConfiguration(kConfiguration)); }),
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_WR_MODE: Invalid argument (errno 22)\n");
}

TEST(SpiDevice, FallsBackToTheModeOfEightBits) {
    // A kernel that does not know the 32-bit request.
    const auto head = aVirtualHead().withFailingCall(teCall::ioctl, kDevice, 1, ENOTTY).build();
    tcSPIDevice device(kDevice);
    EXPECT_EQ(stderrOf([&] { EXPECT_TRUE(device.setConfiguration(kConfiguration)); }), "");
    EXPECT_THAT(head.lines(teEventKind::spiSetting),
                ElementsAre("SPI-MODE 0 failed ENOTTY", "SPI-MODE 0", "SPI-LSB 0", "SPI-BITS 32",
                            "SPI-HZ 10000000"));
    EXPECT_EQ(head.calls(teCall::ioctl, kDevice), 5U);
}

TEST(SpiDevice, ReadsTheModeOfEightBitsWhereThereIsNoOther) {
    const auto head = aVirtualHead().withFailingCall(teCall::ioctl, kDevice, 5, ENOTTY).build();
    tcSPIDevice device(kDevice);
    ASSERT_TRUE(device.setConfiguration(kConfiguration));
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(device.getConfiguration(), kConfiguration); }), "");
}

TEST(SpiDevice, DoesNotFallBackWithAModeThatEightBitsCannotHold) {
    const auto head =
        aVirtualHead().withFailingCallsFrom(teCall::ioctl, kDevice, 1, EINVAL).build();
    tcSPIDevice device(kDevice);
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_FALSE(device.setConfiguration({0x100, 0x0800, 1'000'000}));
              }),
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_WR_MODE32: Invalid argument (errno 22)\n");
    EXPECT_EQ(head.calls(teCall::ioctl, kDevice), 1U);
}

TEST(SpiDevice, StopsAtTheFirstSettingThatIsRefused) {
    struct tsCase {
        std::uint64_t nth;
        const char* text;
    };
    for (const tsCase& refused :
         {tsCase{1,
                 "tcSPIDevice: /dev/spidev1.0: SPI_IOC_WR_MODE32: Input/output error (errno 5)\n"},
          tsCase{2, "tcSPIDevice: /dev/spidev1.0: SPI_IOC_WR_LSB_FIRST: Input/output error "
                    "(errno 5)\n"},
          tsCase{3, "tcSPIDevice: /dev/spidev1.0: SPI_IOC_WR_BITS_PER_WORD: Input/output error "
                    "(errno 5)\n"},
          tsCase{4, "tcSPIDevice: /dev/spidev1.0: SPI_IOC_WR_MAX_SPEED_HZ: Input/output error "
                    "(errno 5)\n"}}) {
        const auto head =
            aVirtualHead().withFailingCall(teCall::ioctl, kDevice, refused.nth, EIO).build();
        tcSPIDevice device(kDevice);
        EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(device.setConfiguration(kConfiguration)); }),
                  refused.text);
        EXPECT_EQ(head.calls(teCall::ioctl, kDevice), refused.nth);
    }
}

TEST(SpiDevice, ReadsZerosWhereTheKernelDoesNotTell) {
    const auto head = aVirtualHead().withFailingCallsFrom(teCall::ioctl, kDevice, 1, EIO).build();
    tcSPIDevice device(kDevice);
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(device.getConfiguration(), (tsSPIConfiguration{0, 0, 0}));
              }),
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_RD_MODE32: Input/output error (errno 5)\n"
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_RD_LSB_FIRST: Input/output error (errno 5)\n"
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_RD_BITS_PER_WORD: Input/output error "
              "(errno 5)\n"
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_RD_MAX_SPEED_HZ: Input/output error "
              "(errno 5)\n");
}

TEST(SpiDevice, SendsAFrameInOneMessageAndNothingElse) {
    auto head = aQuietHead().build();
    tcSPIDevice device(kDevice);
    ASSERT_TRUE(device.setConfiguration(kConfiguration));
    head.clearLog();
    const std::uint64_t before = head.calls(teCall::ioctl, kDevice);
    EXPECT_EQ(device.write(kFrame.data(), kFrame.size()), 4);
    EXPECT_THAT(head.lines(sim::kHardwareEvents | teEventKind::device | teEventKind::sleep),
                ElementsAre("SPI 0F B9 04 36"));
    EXPECT_EQ(head.calls(teCall::ioctl, kDevice), before + 1);
    EXPECT_EQ(head.calls(teCall::write, kDevice), 0U);
}

TEST(SpiDevice, ReportsAFailedFrameOnce) {
    const auto head = aQuietHead().withSpiTransfersFailing(1, EIO).build();
    tcSPIDevice device(kDevice);
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(device.write(kFrame.data(), kFrame.size()), -1);
                  EXPECT_EQ(device.write(kFrame.data(), kFrame.size()), -1);
              }),
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_MESSAGE: Input/output error (errno 5)\n");
}

TEST(SpiDevice, ReportsAFrameThatWasCutShortOnce) {
    const auto head = aQuietHead()
                          .withFailingCall(teCall::ioctl, kDevice, 1, sim::kShort)
                          .withFailingCall(teCall::ioctl, kDevice, 2, sim::kShort)
                          .build();
    tcSPIDevice device(kDevice);
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(device.write(kFrame.data(), kFrame.size()), -1);
                  EXPECT_EQ(device.write(kFrame.data(), kFrame.size()), -1);
                  EXPECT_EQ(device.write(kFrame.data(), kFrame.size()), 4);
              }),
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_MESSAGE: Input/output error (errno 5)\n");
    EXPECT_THAT(head.lines(teEventKind::spi),
                ElementsAre("SPI 0F B9 04 36 failed short", "SPI 0F B9 04 36 failed short",
                            "SPI 0F B9 04 36"));
}

TEST(SpiDevice, SendsNothingWithoutAFailure) {
    const auto head = aQuietHead().build();
    tcSPIDevice device(kDevice);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(device.write(kFrame.data(), 0), 0); }), "");
}

TEST(SpiDevice, RefusesWhatIsNoBuffer) {
    const auto head = aQuietHead().build();
    tcSPIDevice device(kDevice);
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(device.write(nullptr, 4), -1);
                  EXPECT_EQ(device.write(kFrame.data(), std::size_t{0x80000000}), -1);
              }),
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_MESSAGE: Bad address (errno 14)\n"
              "tcSPIDevice: /dev/spidev1.0: SPI_IOC_MESSAGE: Message too long (errno 90)\n");
    EXPECT_THAT(head.lines(teEventKind::spi), IsEmpty());
    EXPECT_EQ(head.calls(teCall::ioctl, kDevice), 0U);
}

TEST(SpiDevice, ServesSeveralThreads) {
    constexpr int kRounds = 200;
    const auto head = aQuietHead().build();
    tcSPIDevice device(kDevice);
    ASSERT_TRUE(device.setConfiguration(kConfiguration));
    const auto sending = [&] {
        for (int i = 0; i < kRounds; ++i)
            EXPECT_EQ(device.write(kFrame.data(), kFrame.size()), 4);
    };
    std::thread other(sending);
    sending();
    other.join();
    EXPECT_EQ(head.lines(teEventKind::spi).size(), 400U);
}

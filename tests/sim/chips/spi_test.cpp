// The sensor's SPI port.

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using namespace std::chrono_literals;

std::uint64_t addressOf(const void* pointer) {
    std::uintptr_t address = 0;
    std::memcpy(&address, &pointer, sizeof address);
    return address;
}

TEST(Spi, APortStartsInMode0With8BitsAnd1MHz) {
    const auto head = sim::aVirtualHead().build();
    const tcPort port;
    std::uint32_t mode = 99;
    std::uint8_t lsbFirst = 99;
    std::uint8_t bits = 99;
    std::uint32_t speed = 99;
    ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_RD_MODE32, &mode), 0);
    ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_RD_LSB_FIRST, &lsbFirst), 0);
    ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_RD_BITS_PER_WORD, &bits), 0);
    ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_RD_MAX_SPEED_HZ, &speed), 0);
    EXPECT_EQ(mode, 0U);
    EXPECT_EQ(lsbFirst, 0);
    EXPECT_EQ(bits, 8);
    EXPECT_EQ(speed, 1'000'000U);
}

TEST(Spi, EachSettingIsOneLineAndIsReadBack) {
    const auto head = sim::aVirtualHead().build();
    tcPort port;
    EXPECT_EQ(port.setMode(SPI_MODE_3), 0);
    EXPECT_EQ(port.setLsbFirst(1), 0);
    EXPECT_EQ(port.setBits(32), 0);
    EXPECT_EQ(port.setSpeed(10'000'000), 0);
    EXPECT_THAT(head.lines(teEventKind::spiSetting),
                ElementsAre("SPI-MODE 3", "SPI-LSB 1", "SPI-BITS 32", "SPI-HZ 10000000"));
    std::uint8_t mode = 0;
    std::uint8_t bits = 0;
    ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_RD_MODE, &mode), 0);
    ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_RD_BITS_PER_WORD, &bits), 0);
    EXPECT_EQ(mode, 0x0B); // mode 3 and LSB first
    EXPECT_EQ(bits, 32);
}

TEST(Spi, SettingsThatNoPortHasAreRefused) {
    const auto head = sim::aVirtualHead().build();
    tcPort port;
    EXPECT_EQ(port.setBits(33), EINVAL);
    EXPECT_EQ(port.setSpeed(0), EINVAL);
    EXPECT_EQ(port.setMode(0x8000'0000), EINVAL);
    EXPECT_THAT(head.lines(teEventKind::spiSetting),
                ElementsAre("SPI-BITS 33 failed EINVAL", "SPI-HZ 0 failed EINVAL",
                            "SPI-MODE 2147483648 failed EINVAL"));
}

TEST(Spi, AWordReachesTheSensorAsAddressAndValue) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    EXPECT_EQ(user.port.send({0x0F, 0xB9, 0x04, 0x36}), 4);
    EXPECT_THAT(head.lines(teEventKind::spi), ElementsAre("SPI 0F B9 04 36"));
    EXPECT_EQ(head.sensorRegister(0x0D8), 0x4B90FU);
    EXPECT_EQ(head.sensorRegister(0x0D9), std::nullopt);
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Spi, TenAddressBitsAndTwentyTwoValueBitsArrive) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    user.port.send({0xFF, 0xFF, 0xFF, 0xFF});
    user.port.send({0x01, 0x00, 0x40, 0x00});
    EXPECT_THAT(head.sensorRegisters(),
                ElementsAre(Pair(0x001, 0x000001U), Pair(0x3FF, 0x3FFFFFU)));
}

TEST(Spi, AMessageTakesItsTimeOnTheWire) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    const auto before = head.now();
    user.port.writeRegister(0x300, 0);
    EXPECT_EQ(head.now() - before, 3200ns); // 32 bits at 10 MHz
    user.port.setSpeed(4'000'000);
    user.port.writeRegister(0x300, 0);
    EXPECT_EQ(head.now() - before, 11200ns); // and 32 bits at 4 MHz
}

TEST(Spi, EveryTransferOfAMessageIsALineAndAWord) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    const std::uint8_t first[] = {0x05, 0x00, 0x40, 0x00};
    const std::uint8_t second[] = {0x06, 0x00, 0x80, 0x00};
    std::uint8_t received[4] = {1, 2, 3, 4};
    spi_ioc_transfer transfers[2]{};
    transfers[0].tx_buf = addressOf(first);
    transfers[0].len = 4;
    transfers[0].cs_change = 1;
    transfers[0].delay_usecs = 7;
    transfers[1].tx_buf = addressOf(second);
    transfers[1].rx_buf = addressOf(received);
    transfers[1].len = 4;
    const auto before = head.now();
    EXPECT_EQ(ioctl(user.port.descriptor(), SPI_IOC_MESSAGE(2), transfers), 8);
    EXPECT_EQ(head.now() - before, 13400ns); // two words and 7 us
    EXPECT_THAT(head.lines(teEventKind::spi), ElementsAre("SPI 05 00 40 00", "SPI 06 00 80 00"));
    EXPECT_EQ(head.sensorRegister(1), 5U);
    EXPECT_EQ(head.sensorRegister(2), 6U);
    EXPECT_THAT(received, ElementsAre(0, 0, 0, 0)); // the sensor sends nothing
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Spi, WriteIsAMessageOfOneTransfer) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    const std::uint8_t bytes[] = {0x09, 0x00, 0x40, 0x00};
    EXPECT_EQ(write(user.port.descriptor(), bytes, 4), 4);
    EXPECT_THAT(head.lines(teEventKind::spi), ElementsAre("SPI 09 00 40 00"));
    EXPECT_EQ(head.sensorRegister(1), 9U);
}

TEST(Spi, ReadIsAMessageOfZeroes) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    ASSERT_EQ(user.port.setSpeed(10'000'000), 0);
    const auto before = head.now();
    std::uint8_t bytes[] = {1, 2, 3, 4};
    EXPECT_EQ(read(user.port.descriptor(), bytes, 4), 4);
    EXPECT_THAT(bytes, ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(head.now() - before, std::chrono::nanoseconds(3200)); // 32 bits at 10 MHz
    EXPECT_EQ(head.sensorRegister(0), 0U);                 // the sensor cannot tell it from a write
    EXPECT_EQ(read(user.port.descriptor(), bytes, 3), -1); // no whole word
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(head.violations().empty());
}

TEST(Spi, ReadHasTheLengthOfABuffer) {
    const auto head = sim::aVirtualHead().build();
    const tcPort port;
    std::vector<std::uint8_t> bytes(4097, 1);
    EXPECT_EQ(read(port.descriptor(), bytes.data(), 4097), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_THAT(head.lines(teEventKind::spi), IsEmpty());
}

TEST(Spi, TheLastCloseGivesTheClockBack) {
    const auto head = sim::aVirtualHead().build();
    const auto speedOf = [](int descriptor) {
        std::uint32_t speed = 0;
        EXPECT_EQ(ioctl(descriptor, SPI_IOC_RD_MAX_SPEED_HZ, &speed), 0);
        return speed;
    };
    const std::uint32_t fast = 10'000'000;
    const std::uint8_t bits = 32;
    {
        const tcPort port;
        ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_WR_MAX_SPEED_HZ, &fast), 0);
        ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_WR_BITS_PER_WORD, &bits), 0);
        { EXPECT_EQ(speedOf(tcPort().descriptor()), fast); } // somebody else comes and goes
        EXPECT_EQ(speedOf(port.descriptor()), fast);
    }
    const tcPort again;
    EXPECT_EQ(speedOf(again.descriptor()), 1'000'000U);
    std::uint8_t kept = 0; // the other settings stay
    ASSERT_EQ(ioctl(again.descriptor(), SPI_IOC_RD_BITS_PER_WORD, &kept), 0);
    EXPECT_EQ(kept, 32);
}

TEST(Spi, ALongTransferIsLoggedToTheLastByte) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    std::vector<std::uint8_t> bytes(200, 0x11);
    bytes.back() = 0x99;
    EXPECT_EQ(user.port.send(bytes), 200);
    const auto events = head.log(teEventKind::spi);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].bytes, bytes);
    EXPECT_EQ(events[0].text.size(), 3U + 200U * 3U);
    EXPECT_EQ(events[0].text.substr(597), " 11 99");
}

TEST(Spi, MessagesThatThePortCannotSendAreRefused) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    EXPECT_EQ(user.port.send({1, 2, 3}), -EINVAL); // not a multiple of 32-bit words
    EXPECT_EQ(user.port.send(std::vector<std::uint8_t>(5000)), -EMSGSIZE);
    EXPECT_THAT(head.sensorRegisters(), IsEmpty());
    EXPECT_EQ(head.lines(teEventKind::spi)[0], "SPI 01 02 03 failed EINVAL");
}

TEST(Spi, FailingTransfersFailFromTheChosenOneOn) {
    const auto head = sim::aVirtualHead().withSpiTransfersFailing(2, EIO).build();
    tcUser user;
    user.powerUp();
    EXPECT_EQ(user.port.writeRegister(0x20, 1), 4);
    EXPECT_EQ(user.port.writeRegister(0x20, 2), -EIO);
    EXPECT_EQ(user.port.writeRegister(0x20, 3), -EIO);
    EXPECT_THAT(
        head.lines(teEventKind::spi),
        ElementsAre("SPI 01 00 00 08", "SPI 02 00 00 08 failed EIO", "SPI 03 00 00 08 failed EIO"));
    EXPECT_EQ(head.sensorRegister(0x20), 1U);
}

TEST(Spi, AShortMessageGivesHalfAndSendsNothing) {
    auto head = sim::aVirtualHead()
                    .withFailingCall(sim::teCall::write, "/dev/spidev1.0", 1, sim::kShort)
                    .build();
    tcUser user;
    user.powerUp();
    head.failCall(sim::teCall::ioctl, "/dev/spidev1.0",
                  head.calls(sim::teCall::ioctl, "/dev/spidev1.0") + 2, sim::kShort);
    EXPECT_EQ(user.port.writeRegister(0x20, 1), 4);
    EXPECT_EQ(user.port.writeRegister(0x20, 2), 2);
    const std::array<std::uint8_t, 8> two{1, 0, 0, 8, 2, 0, 0, 8};
    EXPECT_EQ(write(user.port.descriptor(), two.data(), two.size()), 4);
    EXPECT_EQ(user.port.send({1, 2, 3}), -EINVAL);
    EXPECT_THAT(head.lines(teEventKind::spi),
                ElementsAre("SPI 01 00 00 08", "SPI 02 00 00 08 failed short",
                            "SPI 01 00 00 08 02 00 00 08 failed short",
                            "SPI 01 02 03 failed EINVAL"));
    EXPECT_EQ(head.log(teEventKind::spi)[1].error, sim::kShort);
    EXPECT_EQ(head.sensorRegister(0x20), 1U);
    EXPECT_EQ(head.compareShadow({{0x20, 2}})[0].why, "lost: the SPI transfer failed");
}

TEST(Spi, ASettingHasNoLength) {
    const auto head = sim::aVirtualHead()
                          .withFailingCall(sim::teCall::ioctl, "/dev/spidev1.0", 1, sim::kShort)
                          .build();
    tcPort port;
    EXPECT_EQ(port.setMode(SPI_MODE_1), 0);
    EXPECT_THAT(head.lines(teEventKind::spiSetting), ElementsAre("SPI-MODE 1"));
}

TEST(Spi, RefusedSettingsChangeNothing) {
    const auto head = sim::aVirtualHead().withSpiSettingsRefused().build();
    tcPort port;
    EXPECT_EQ(port.setMode(SPI_MODE_1), EINVAL);
    EXPECT_EQ(port.setSpeed(5'000'000), EINVAL);
    std::uint32_t speed = 0;
    ASSERT_EQ(ioctl(port.descriptor(), SPI_IOC_RD_MAX_SPEED_HZ, &speed), 0);
    EXPECT_EQ(speed, 1'000'000U);
}

TEST(Spi, AnUnknownIoctlIsAViolation) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcPort port;
    int argument = 0;
    EXPECT_EQ(ioctl(port.descriptor(), _IOW('k', 77, int), &argument), -1);
    EXPECT_EQ(errno, ENOTTY);
    ASSERT_EQ(head.violations().size(), 1U);
    EXPECT_EQ(head.violations()[0].rule, "device-call");
}

TEST(Spi, TheDeviceCanHaveAnotherPathOrBeAbsent) {
    {
        const auto head = sim::aVirtualHead().withSpiDevice("/dev/spidev0.1").build();
        EXPECT_TRUE(openDevice("/dev/spidev0.1").valid());
        EXPECT_FALSE(openDevice("/dev/spidev1.0").valid());
        EXPECT_EQ(errno, ENOENT);
    }
    const auto head = sim::aVirtualHead().withoutSpiDevice().build();
    EXPECT_FALSE(openDevice("/dev/spidev1.0").valid());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(head.lines(teEventKind::device), ElementsAre("OPEN /dev/spidev1.0 failed ENOENT"));
}

struct tsWrongSetting {
    const char* name;
    std::uint32_t mode;
    std::uint8_t lsbFirst;
    std::uint8_t bits;
    std::uint32_t speed;
    const char* rule;
    std::optional<std::uint32_t> arrives; // register 0x20
};

class WrongSpiSetting : public testing::TestWithParam<tsWrongSetting> {};

TEST_P(WrongSpiSetting, MakesTheWordArriveWrong) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    tcUser user;
    user.powerUp();
    user.port.setMode(GetParam().mode);
    user.port.setLsbFirst(GetParam().lsbFirst);
    user.port.setBits(GetParam().bits);
    user.port.setSpeed(GetParam().speed);
    user.port.writeRegister(0x20, 0x1234);
    EXPECT_EQ(head.sensorRegister(0x20), GetParam().arrives);
    ASSERT_FALSE(head.violations().empty());
    EXPECT_EQ(head.violations()[0].rule, GetParam().rule);
}

INSTANTIATE_TEST_SUITE_P(
    EachSetting, WrongSpiSetting,
    testing::Values(tsWrongSetting{"Mode1", 1, 0, 32, 10'000'000, "spi-mode", std::nullopt},
                    tsWrongSetting{"NoChipSelect", SPI_NO_CS, 0, 32, 10'000'000, "spi-mode",
                                   std::nullopt},
                    tsWrongSetting{"LsbFirst", 0, 1, 32, 10'000'000, "spi-word", std::nullopt},
                    tsWrongSetting{"EightBits", 0, 0, 8, 10'000'000, "spi-word", std::nullopt},
                    tsWrongSetting{"TooFast", 0, 0, 32, 10'000'001, "spi-clock", std::nullopt}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(Spi, EightBitWordsArriveInTheOrderOfTheBytes) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    tcUser user;
    user.powerUp();
    user.port.setBits(8);
    user.port.send({0x08, 0x00, 0x12, 0x34}); // 0x08001234: register 0x20
    EXPECT_EQ(head.sensorRegister(0x20), 0x1234U);
}

TEST(Spi, ARestOfFewerThan32BitsIsDropped) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    tcUser user;
    user.powerUp();
    user.port.setBits(16);
    user.port.send({0x00, 0x08});
    EXPECT_THAT(head.sensorRegisters(), IsEmpty());
    ASSERT_EQ(head.violations().size(), 1U);
    EXPECT_EQ(head.violations()[0].rule, "spi-word");
    EXPECT_EQ(head.violations()[0].text, "a rest of 16 bits was dropped");
}

} // namespace

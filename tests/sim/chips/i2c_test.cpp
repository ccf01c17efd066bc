// The I2C bus and the supply monitor on it.

#include <array>
#include <cerrno>
#include <gmock/gmock.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr auto kAdcKinds = teEventKind::adc | teEventKind::adcCommand;

TEST(Adc, TheSuppliesReadThroughTheirDividers) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    EXPECT_THAT(head.lines(kAdcKinds),
                ElementsAre("ADC-COMMAND 0x8C", "ADC 0 0xFFF", // the reference settles
                            "ADC-COMMAND 0x8C", "ADC 0 0x7AE", // 1.2 V of 2.5 V
                            "ADC-COMMAND 0xCC", "ADC 1 0xA8F", // 1.65 V
                            "ADC-COMMAND 0xAC", "ADC 4 0xA8F"));
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Adc, AnotherVoltageIsAnotherReading) {
    const auto head = sim::aVirtualHead()
                          .withRail("VDD1.2", 1.0)
                          .withRailOffset("VDD3.3AVDDH", -0.3)
                          .withRail("VDD3.3SVDD", 6.0)
                          .build();
    tcUser user;
    user.powerUp();
    EXPECT_EQ(user.monitor.measure(0), 0x666); // 1.0 V
    EXPECT_EQ(user.monitor.measure(1), 0x99A); // 1.5 V
    EXPECT_EQ(user.monitor.measure(4), 0xFFF); // 3.0 V is above the reference
    EXPECT_DOUBLE_EQ(head.rail("VDD3.3AVDDH"), 3.0);
}

TEST(Adc, SuppliesThatAreOffReadZero) {
    const auto head = sim::aVirtualHead().build();
    tcMonitor monitor;
    monitor.measure(0);
    usleep(5000);
    EXPECT_EQ(monitor.measure(0), 0);
    EXPECT_EQ(monitor.measure(1), 0);
    EXPECT_DOUBLE_EQ(head.rail("VDD1.2"), 0.0);
    EXPECT_THAT(head.violations(), IsEmpty());
}

// As a look whether there is a chip does it: nothing is to be converted, so that the reference may
// be off, or on its way up, and is not disturbed.
TEST(Adc, AByteWithoutACommandIsNoReading) {
    const auto head = sim::aVirtualHead().build();
    tcMonitor monitor;
    std::uint8_t byte = 0;
    EXPECT_EQ(read(monitor.descriptor(), &byte, 1), 1);
    EXPECT_EQ(byte & 0xF0, 0);
    EXPECT_THAT(head.lines(kAdcKinds), ElementsAre("ADC 0 0xFFF"));
    monitor.measure(0); // switches the reference on
    usleep(4000);
    EXPECT_EQ(read(monitor.descriptor(), &byte, 1), 1);
    usleep(1000);
    EXPECT_EQ(monitor.measure(0), 0) << "5 ms later the reference stands";
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Adc, AByteOrTwoAfterACommandAreAReading) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcMonitor monitor;
    std::array<std::uint8_t, 2> bytes{};
    EXPECT_EQ(read(monitor.descriptor(), bytes.data(), 2), 2);
    std::uint8_t command = 0x80; // channel 0, the reference off
    std::array<i2c_msg, 2> messages{{{0x49, 0, 1, &command}, {0x49, I2C_M_RD, 1, bytes.data()}}};
    i2c_rdwr_ioctl_data data{messages.data(), 2};
    EXPECT_EQ(ioctl(monitor.descriptor(), I2C_RDWR, &data), 2);
    const std::string text = "VIOLATION adc-reference: channel 0 was converted with the internal "
                             "reference off";
    EXPECT_THAT(head.lines(teEventKind::violation), ElementsAre(text, text));
}

TEST(Adc, EveryChannelOfTheCommandByteIsAddressed) {
    const auto head = sim::aVirtualHead().build();
    tcMonitor monitor;
    // C2 C1 C0 count the even channels first, then the odd ones.
    for (const int command : {0x8C, 0x9C, 0xAC, 0xBC, 0xCC, 0xDC, 0xEC, 0xFC}) {
        monitor.command(static_cast<std::uint8_t>(command));
        monitor.convert();
        usleep(5000);
    }
    std::vector<std::uint32_t> channels;
    for (const sim::tsEvent& event : head.log(teEventKind::adc)) {
        channels.push_back(event.address);
    }
    EXPECT_THAT(channels, ElementsAre(0, 2, 4, 6, 1, 3, 5, 7));
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Adc, ADifferentialConversionSubtractsTheNeighbour) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    user.monitor.command(0x0C); // +CH0 -CH1: 1.2 V - 1.65 V
    EXPECT_EQ(user.monitor.convert(), 0);
    user.monitor.command(0x4C); // +CH1 -CH0: 0.45 V
    EXPECT_EQ(user.monitor.convert(), 0x2E1);
}

TEST(Adc, TransfersTakeTheirTimeOnTheBus) {
    const auto head = sim::aVirtualHead().build();
    tcMonitor monitor;
    monitor.command(0x8C);
    EXPECT_EQ(head.now(), 180us); // address and command, nine bits each at 100 kHz
    monitor.convert();
    EXPECT_EQ(head.now(), 450us); // address and two bytes
}

TEST(Adc, ACombinedTransferIsTheSame) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    std::uint8_t command = 0xCC;
    std::uint8_t result[2] = {};
    i2c_msg messages[2] = {{0x49, 0, 1, &command}, {0x49, I2C_M_RD, 2, result}};
    i2c_rdwr_ioctl_data transfer{messages, 2};
    EXPECT_EQ(ioctl(user.monitor.descriptor(), I2C_RDWR, &transfer), 2);
    EXPECT_THAT(result, ElementsAre(0x0A, 0x8F));
}

TEST(Adc, ACombinedTransferOfNothingIsRefused) {
    const auto head = sim::aVirtualHead().build();
    tcUser user;
    i2c_msg message{0x49, I2C_M_RD, 0, nullptr};
    for (i2c_rdwr_ioctl_data transfer :
         {i2c_rdwr_ioctl_data{&message, 0}, i2c_rdwr_ioctl_data{nullptr, 1},
          i2c_rdwr_ioctl_data{&message, I2C_RDWR_IOCTL_MAX_MSGS + 1}}) {
        errno = 0;
        EXPECT_EQ(ioctl(user.monitor.descriptor(), I2C_RDWR, &transfer), -1) << transfer.nmsgs;
        EXPECT_EQ(errno, EINVAL) << transfer.nmsgs;
    }
    EXPECT_TRUE(head.violations().empty());
}

TEST(Adc, AShortTransferLeavesItsLastMessageAway) {
    auto head = sim::aVirtualHead().build();
    tcUser user;
    user.powerUp();
    head.clearLog();
    const auto before = head.now();
    head.failCall(sim::teCall::ioctl, "/dev/i2c-1",
                  head.calls(sim::teCall::ioctl, "/dev/i2c-1") + 1, sim::kShort);
    std::uint8_t command = 0xCC;
    std::uint8_t result[2] = {0x55, 0x66};
    i2c_msg messages[2] = {{0x49, 0, 1, &command}, {0x49, I2C_M_RD, 2, result}};
    i2c_rdwr_ioctl_data transfer{messages, 2};
    EXPECT_EQ(ioctl(user.monitor.descriptor(), I2C_RDWR, &transfer), 1);
    EXPECT_THAT(result, ElementsAre(0x55, 0x66));
    EXPECT_THAT(head.lines(kAdcKinds), ElementsAre("ADC-COMMAND 0xCC", "ADC 1 failed short"));
    EXPECT_EQ(head.now() - before, 180us); // address and command alone
}

TEST(Adc, AShortReadOrWriteGivesHalf) {
    const auto head =
        sim::aVirtualHead()
            .withFailingCall(sim::teCall::write, "/dev/i2c-1", 1, sim::kShort)
            .withFailingCall(sim::teCall::read, "/dev/i2c-1", 1, sim::kShort)
            .withFailingCall(sim::teCall::ioctl, "/dev/i2c-1", 2, sim::kShort) // has no length
            .build();
    const tcMonitor monitor; // sets the address
    const std::uint8_t command = 0x8C;
    std::uint8_t result[2] = {};
    EXPECT_EQ(write(monitor.descriptor(), &command, 1), 0);
    EXPECT_EQ(read(monitor.descriptor(), result, 2), 1);
    unsigned long functions = 0;
    EXPECT_EQ(ioctl(monitor.descriptor(), I2C_FUNCS, &functions), 0);
    EXPECT_EQ(functions, 0x7F0001U);
    EXPECT_THAT(head.lines(kAdcKinds),
                ElementsAre("ADC-COMMAND 0x8C failed short", "ADC 0 failed short"));
    EXPECT_EQ(head.now(), 0ns);
}

TEST(Adc, OnlyTransfersCanBeShort) {
    EXPECT_THROW(
        static_cast<void>(sim::aVirtualHead()
                              .withFailingCall(sim::teCall::open, "/dev/i2c-1", 1, sim::kShort)
                              .build()),
        std::invalid_argument);
    EXPECT_THROW(
        static_cast<void>(sim::aVirtualHead()
                              .withFailingCall(sim::teCall::ioctl, "/dev/gpiochip0", 1, sim::kShort)
                              .build()),
        std::invalid_argument);
}

TEST(Adc, NobodyAnswersAtAnotherAddress) {
    const auto head = sim::aVirtualHead().build();
    tcMonitor monitor;
    ASSERT_EQ(ioctl(monitor.descriptor(), I2C_SLAVE, 0x48), 0);
    EXPECT_EQ(monitor.command(0x8C), -ENXIO);
    EXPECT_THAT(head.lines(kAdcKinds), ElementsAre("ADC-COMMAND 0x8C failed ENXIO"));
    EXPECT_EQ(ioctl(monitor.descriptor(), I2C_SLAVE, 0x80), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Adc, AMissingAdcDoesNotAnswer) {
    const auto head = sim::aVirtualHead().withoutAdc().build();
    tcMonitor monitor;
    EXPECT_EQ(monitor.command(0x8C), -ENXIO);
    EXPECT_EQ(monitor.convert(), -ENXIO);
    EXPECT_THAT(head.lines(kAdcKinds),
                ElementsAre("ADC-COMMAND 0x8C failed ENXIO", "ADC 0 failed ENXIO"));
}

TEST(Adc, AMissingBusCannotBeOpened) {
    const auto head = sim::aVirtualHead().withoutI2cBus().build();
    EXPECT_FALSE(openDevice("/dev/i2c-1").valid());
    EXPECT_EQ(errno, ENOENT);
}

// --- SMBus ---

struct tsSmbusResult {
    int error = 0;
    unsigned value = 0; // of the data, as it was before or has become
};

// \param size I2C_SMBUS_QUICK and so on \param value handed over
tsSmbusResult smbus(const tcMonitor& monitor, bool reads, std::uint8_t command, std::uint32_t size,
                    std::uint16_t value = 0) {
    i2c_smbus_data data{};
    data.word = value;
    i2c_smbus_ioctl_data transaction{};
    transaction.read_write = reads ? I2C_SMBUS_READ : I2C_SMBUS_WRITE;
    transaction.command = command;
    transaction.size = size;
    transaction.data = &data;
    const int error = ioctl(monitor.descriptor(), I2C_SMBUS, &transaction) == 0 ? 0 : errno;
    return {error, data.word};
}

constexpr bool kReads = true;
constexpr bool kWrites = false;

TEST(Smbus, IsAnnouncedAsFarAsTheBusKnowsIt) {
    const auto head = sim::aVirtualHead().build();
    const tcMonitor monitor;
    unsigned long functions = 0;
    ASSERT_EQ(ioctl(monitor.descriptor(), I2C_FUNCS, &functions), 0);
    EXPECT_EQ(functions, 0x007F0001UL); // I2C; quick, byte, byte data, word data, both ways
}

TEST(Smbus, WordDataIsACommandAndTwoBytesTheFirstOneTheLower) {
    const auto head = sim::aVirtualHead().withStateEvents().build();
    const tcMonitor monitor;
    EXPECT_EQ(smbus(monitor, kReads, 0x8C, I2C_SMBUS_WORD_DATA).value, 0xFF0FU);
    EXPECT_THAT(head.timedLines(kAdcKinds | teEventKind::state),
                ElementsAre("[    0.000000000] ADC-COMMAND 0x8C",
                            "[    0.000000000] STATE I2C 0x49 W ack 8C",
                            "[    0.000180000] ADC 0 0xFFF",
                            "[    0.000180000] STATE I2C 0x49 R ack 0F FF",
                            "[    0.000450000] STATE I2C-STOP"));
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Smbus, ReadsOneByteWithACommandOrWithout) {
    const auto head = sim::aVirtualHead().withRail("VDD1.2", 1.2).build();
    tcUser user;
    user.powerUp();
    EXPECT_EQ(smbus(user.monitor, kReads, 0x8C, I2C_SMBUS_BYTE_DATA).value, 0x07U); // of 0x7AE
    EXPECT_EQ(smbus(user.monitor, kReads, 0xCC, I2C_SMBUS_BYTE_DATA).value, 0x0AU); // of 0xA8F
    EXPECT_EQ(smbus(user.monitor, kReads, 0x00, I2C_SMBUS_BYTE).value, 0x0AU); // the same channel
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Smbus, WritesTheCommandAndWhatFollows) {
    const auto head = sim::aVirtualHead().build();
    const tcMonitor monitor;
    EXPECT_EQ(smbus(monitor, kWrites, 0x8C, I2C_SMBUS_BYTE).error, 0);
    EXPECT_EQ(smbus(monitor, kWrites, 0x8C, I2C_SMBUS_BYTE_DATA, 0xCC).error, 0);
    EXPECT_EQ(smbus(monitor, kWrites, 0x8C, I2C_SMBUS_WORD_DATA, 0xACCC).error, 0);
    EXPECT_THAT(head.lines(kAdcKinds),
                ElementsAre("ADC-COMMAND 0x8C", "ADC-COMMAND 0x8C", "ADC-COMMAND 0xCC",
                            "ADC-COMMAND 0x8C", "ADC-COMMAND 0xCC", "ADC-COMMAND 0xAC"));
}

TEST(Smbus, QuickLooksForAChipAndConvertsNothing) {
    const auto head = sim::aVirtualHead().withStateEvents().build();
    const tcMonitor monitor;
    EXPECT_EQ(smbus(monitor, kWrites, 0, I2C_SMBUS_QUICK).error, 0);
    EXPECT_EQ(smbus(monitor, kReads, 0, I2C_SMBUS_QUICK).error, 0);
    ASSERT_EQ(ioctl(monitor.descriptor(), I2C_SLAVE, 0x48), 0);
    EXPECT_EQ(smbus(monitor, kWrites, 0, I2C_SMBUS_QUICK).error, ENXIO);
    EXPECT_THAT(
        head.timedLines(kAdcKinds | teEventKind::state),
        ElementsAre("[    0.000000000] STATE I2C 0x49 W ack", "[    0.000090000] STATE I2C-STOP",
                    "[    0.000090000] STATE I2C 0x49 R ack", "[    0.000180000] STATE I2C-STOP",
                    "[    0.000180000] STATE I2C 0x48 W nack", "[    0.000270000] STATE I2C-STOP"));
    EXPECT_THAT(head.violations(), IsEmpty());
}

TEST(Smbus, RefusesWhatTheKernelRefuses) {
    const auto head = sim::aVirtualHead().build();
    const tcMonitor monitor;
    i2c_smbus_ioctl_data transaction{};
    transaction.read_write = I2C_SMBUS_READ;
    transaction.size = I2C_SMBUS_WORD_DATA; // and no place for the word
    EXPECT_EQ(ioctl(monitor.descriptor(), I2C_SMBUS, &transaction), -1);
    EXPECT_EQ(errno, EINVAL);
    transaction.size = 9;
    EXPECT_EQ(ioctl(monitor.descriptor(), I2C_SMBUS, &transaction), -1);
    EXPECT_EQ(errno, EINVAL);
    transaction.size = I2C_SMBUS_QUICK;
    transaction.read_write = 2;
    EXPECT_EQ(ioctl(monitor.descriptor(), I2C_SMBUS, &transaction), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_THAT(head.lines(kAdcKinds), IsEmpty());
}

TEST(Smbus, KnowsNoCallsAndNoBlocks) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcMonitor monitor;
    EXPECT_EQ(smbus(monitor, kReads, 0x8C, I2C_SMBUS_PROC_CALL).error, EOPNOTSUPP);
    EXPECT_EQ(smbus(monitor, kReads, 0x8C, I2C_SMBUS_I2C_BLOCK_DATA).error, EOPNOTSUPP);
    EXPECT_THAT(head.lines(teEventKind::violation),
                ElementsAre("VIOLATION device-call: SMBus transaction 0x4 on /dev/i2c-1",
                            "VIOLATION device-call: SMBus transaction 0x8 on /dev/i2c-1"));
}

TEST(Smbus, FailsAsItIsTold) {
    const auto head = sim::aVirtualHead()
                          .withFailingCall(sim::teCall::ioctl, "/dev/i2c-1", 2, ETIMEDOUT)
                          .withFailingCall(sim::teCall::ioctl, "/dev/i2c-1", 3, sim::kShort)
                          .build();
    const tcMonitor monitor; // the first call: its address
    EXPECT_EQ(smbus(monitor, kReads, 0x8C, I2C_SMBUS_WORD_DATA).error, ETIMEDOUT);
    EXPECT_EQ(smbus(monitor, kReads, 0x8C, I2C_SMBUS_WORD_DATA).error, EIO);
    EXPECT_THAT(head.lines(kAdcKinds), ElementsAre("ADC-COMMAND 0x8C failed ETIMEDOUT",
                                                   "ADC-COMMAND 0x8C", "ADC 0 failed short"));
}

} // namespace

#include <pellum/ads7828.h>

#include <cerrno>
#include <cmath>

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/platform/captured.h"
#include <pellum/gpio.h>

using Pellum::tcADS7828;
using sim::aVirtualHead;
using sim::teCall;
using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kBus = "/dev/i2c-1";
constexpr int kAddress = 0x49;
constexpr sim::tcKinds kAdc = teEventKind::adc | teEventKind::adcCommand;

/// Holds a supply on for as long as it lives.
class tcSupply {
public:
    tcSupply(sim::tcVirtualHead& head, const char* enable)
        : m_line(static_cast<unsigned int>(Pellum::tcGpio::GetPinFromDTName(enable))) {
        m_line.SetDirection(1, 1);
        head.advance(std::chrono::milliseconds(500));
    }

private:
    Pellum::tcGpioSingle m_line;
};

} // namespace

TEST(Ads7828, OpensItsBusAndTalksToNobody) {
    const auto head = aVirtualHead().build();
    EXPECT_EQ(stderrOf([] { const tcADS7828 adc(1, kAddress, 2.5F); }), "");
    EXPECT_THAT(head.lines(), ElementsAre("OPEN /dev/i2c-1", "CLOSE /dev/i2c-1"));
}

TEST(Ads7828, SwitchesItsReferenceOnAtOnce) {
    auto head = aVirtualHead().build();
    tcADS7828 adc(1, kAddress, 2.5F);
    adc.SetPowerDown(false);
    EXPECT_THAT(head.lines(kAdc), IsEmpty());
    adc.SetInternalReference(true);
    EXPECT_THAT(head.lines(kAdc), ElementsAre("ADC-COMMAND 0x8C"));
}

TEST(Ads7828, SendsTheCommandByteOfTheDataSheet) {
    struct tsCase {
        int channel;
        bool singleEnded;
        const char* command;
    };
    constexpr tsCase kCases[] = {{0, true, "ADC-COMMAND 0x80"},  {1, true, "ADC-COMMAND 0xC0"},
                                 {2, true, "ADC-COMMAND 0x90"},  {3, true, "ADC-COMMAND 0xD0"},
                                 {4, true, "ADC-COMMAND 0xA0"},  {5, true, "ADC-COMMAND 0xE0"},
                                 {6, true, "ADC-COMMAND 0xB0"},  {7, true, "ADC-COMMAND 0xF0"},
                                 {0, false, "ADC-COMMAND 0x00"}, {1, false, "ADC-COMMAND 0x40"},
                                 {2, false, "ADC-COMMAND 0x10"}, {7, false, "ADC-COMMAND 0x70"}};
    auto head = aVirtualHead().withQuietViolations().build();
    tcADS7828 adc(1, kAddress, 2.5F);
    for (const tsCase& conversion : kCases) {
        head.clearLog();
        float volts = -1.0F;
        adc.Volts(conversion.channel, volts, conversion.singleEnded);
        EXPECT_THAT(head.lines(teEventKind::adcCommand), ElementsAre(conversion.command));
    }
}

TEST(Ads7828, PutsThePowerBitsIntoEveryCommand) {
    auto head = aVirtualHead().withQuietViolations().build();
    tcADS7828 adc(1, kAddress, 2.5F);
    float volts = -1.0F;
    const auto command = [&] {
        head.clearLog();
        adc.Volts(0, volts, true);
        return head.lines(teEventKind::adcCommand);
    };
    adc.SetPowerDown(false);
    EXPECT_THAT(command(), ElementsAre("ADC-COMMAND 0x84"));
    adc.SetInternalReference(true);
    EXPECT_THAT(command(), ElementsAre("ADC-COMMAND 0x8C"));
    adc.SetPowerDown(true);
    EXPECT_THAT(command(), ElementsAre("ADC-COMMAND 0x88"));
    adc.SetInternalReference(false);
    EXPECT_THAT(command(), ElementsAre("ADC-COMMAND 0x80"));
}

TEST(Ads7828, MeasuresInOneTransfer) {
    auto head = aVirtualHead().build();
    const tcSupply supply(head, "PS_1.2V_EN");
    tcADS7828 adc(1, kAddress, 2.5F);
    adc.SetPowerDown(false);
    adc.SetInternalReference(true);
    head.advance(std::chrono::milliseconds(10));
    head.clearLog();
    const std::uint64_t before = head.calls(teCall::ioctl, kBus);
    float volts = 0.0F;
    EXPECT_TRUE(adc.Volts(0, volts, true));
    EXPECT_EQ(head.calls(teCall::ioctl, kBus), before + 1);
    EXPECT_THAT(head.lines(kAdc), ElementsAre("ADC-COMMAND 0x8C", "ADC 0 0x7AE"));
    EXPECT_EQ(volts, 0x7AE / 4096.0F * 2.5F);
    EXPECT_NEAR(volts, 1.2, 0.001);
}

TEST(Ads7828, ScalesWithItsReference) {
    auto head = aVirtualHead().withQuietViolations().build();
    const tcSupply supply(head, "PS_1.2V_EN");
    tcADS7828 adc(1, kAddress, 5.0F);
    adc.SetInternalReference(true);
    head.advance(std::chrono::milliseconds(10));
    float volts = 0.0F;
    EXPECT_TRUE(adc.Volts(0, volts, true));
    EXPECT_NEAR(volts, 2.4, 0.002); // half the counts that this reference would give
}

TEST(Ads7828, RefusesWhatIsNoChannel) {
    const auto head = aVirtualHead().build();
    tcADS7828 adc(1, kAddress, 2.5F);
    EXPECT_EQ(stderrOf([&] {
                  for (const int channel : {-1, 8}) {
                      float volts = 4.0F;
                      EXPECT_FALSE(adc.Volts(channel, volts, true));
                      EXPECT_EQ(volts, 0.0F);
                  }
              }),
              "tcADS7828: /dev/i2c-1: Volts: Invalid argument (errno 22)\n");
    EXPECT_THAT(head.lines(kAdc), IsEmpty());
}

TEST(Ads7828, ReadsZeroWhereNobodyAnswers) {
    const auto head = aVirtualHead().withoutAdc().build();
    EXPECT_EQ(stderrOf([] {
                  tcADS7828 adc(1, kAddress, 2.5F);
                  adc.SetInternalReference(true);
                  for (int i = 0; i < 2; ++i) {
                      float volts = 4.0F;
                      EXPECT_FALSE(adc.Volts(0, volts, true));
                      EXPECT_EQ(volts, 0.0F);
                  }
              }),
              "tcADS7828: /dev/i2c-1: I2C_RDWR: No such device or address (errno 6)\n");
}

TEST(Ads7828, ReadsZeroWithoutItsBus) {
    const auto head = aVirtualHead().withoutI2cBus().build();
    EXPECT_EQ(stderrOf([] {
                  tcADS7828 adc(1, kAddress, 2.5F);
                  adc.SetPowerDown(false);
                  adc.SetInternalReference(true);
                  float volts = 4.0F;
                  EXPECT_FALSE(adc.Volts(0, volts, true));
                  EXPECT_EQ(volts, 0.0F);
              }),
              "tcADS7828: /dev/i2c-1: open: No such file or directory (errno 2)\n");
}

TEST(Ads7828, ReadsZeroAfterATransferThatWasCutShort) {
    auto head = aVirtualHead().withQuietViolations().build();
    const tcSupply supply(head, "PS_1.2V_EN");
    tcADS7828 adc(1, kAddress, 2.5F);
    adc.SetInternalReference(true);
    head.advance(std::chrono::milliseconds(10));
    head.clearLog();
    const std::uint64_t before = head.calls(teCall::ioctl, kBus);
    head.failCall(teCall::ioctl, kBus, before + 1, sim::kShort);
    head.failCall(teCall::ioctl, kBus, before + 2, sim::kShort);
    float volts = 4.0F;
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_FALSE(adc.Volts(0, volts, true));
                  EXPECT_FALSE(adc.Volts(0, volts, true));
              }),
              "tcADS7828: /dev/i2c-1: I2C_RDWR: Input/output error (errno 5)\n");
    EXPECT_EQ(volts, 0.0F);
    EXPECT_THAT(head.lines(kAdc), ElementsAre("ADC-COMMAND 0x88", "ADC 0 failed short",
                                              "ADC-COMMAND 0x88", "ADC 0 failed short"));
    EXPECT_TRUE(adc.Volts(0, volts, true));
    EXPECT_GT(volts, 1.0F);
}

TEST(Ads7828, TellsThatItsReferenceWasNotSwitchedOn) {
    auto head = aVirtualHead().withFailingCall(teCall::ioctl, kBus, 1, sim::kShort).build();
    tcADS7828 adc(1, kAddress, 2.5F);
    EXPECT_EQ(stderrOf([&] { adc.SetInternalReference(true); }),
              "tcADS7828: /dev/i2c-1: I2C_RDWR: Input/output error (errno 5)\n");
    EXPECT_THAT(head.lines(kAdc), ElementsAre("ADC-COMMAND 0x88 failed short"));
}

TEST(Ads7828, ReadsZeroAfterAFailedTransferAndThenGoesOn) {
    auto head = aVirtualHead().withQuietViolations().build();
    const tcSupply supply(head, "PS_1.2V_EN");
    tcADS7828 adc(1, kAddress, 2.5F);
    adc.SetInternalReference(true);
    head.advance(std::chrono::milliseconds(10));
    head.failCall(teCall::ioctl, kBus, head.calls(teCall::ioctl, kBus) + 1, ETIMEDOUT);
    float volts = 4.0F;
    EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(adc.Volts(0, volts, true)); }),
              "tcADS7828: /dev/i2c-1: I2C_RDWR: Connection timed out (errno 110)\n");
    EXPECT_EQ(volts, 0.0F);
    EXPECT_TRUE(adc.Volts(0, volts, true));
    EXPECT_GT(volts, 1.0F);
}

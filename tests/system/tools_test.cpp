// The distribution's own SPI and I2C tools on the head: programs that know nothing of this project.

#include <gmock/gmock.h>

#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Tools : public testing::Test {
protected:
    tsOutcome onHead(const std::string& program) {
        return runOnHead("--log " + m_log.string() + " --summary /dev/null", program);
    }
    tcTemporaryDirectory m_folder;
    std::filesystem::path m_log = m_folder.path() / "log";
};

TEST_F(Tools, I2cTransferReadsAConversion) {
    const tsOutcome result = onHead(I2C_TRANSFER " -y 1 w1@0x49 0x8c r2");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "0x0f 0xff\n"); // the reference has just been switched on
    EXPECT_THAT(linesOf(contentOf(m_log)),
                ElementsAre("[    0.000000000] OPEN /dev/i2c-1",
                            "[    0.000000000] ADC-COMMAND 0x8C", "[    0.000180000] ADC 0 0xFFF",
                            "[    0.000450000] CLOSE /dev/i2c-1"));
}

TEST_F(Tools, I2cTransferHearsNobodyAtAnotherAddress) {
    const tsOutcome result = onHead(I2C_TRANSFER " -y 1 w1@0x48 0x8c");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "Error: Sending messages failed: No such device or address\n");
}

TEST_F(Tools, I2cGetReadsWordsAndBytes) {
    const tsOutcome word = onHead(I2C_GET " -y 1 0x49 0x8c w");
    EXPECT_EQ(word.status, 0);
    EXPECT_EQ(word.output, "0xff0f\n"); // the first byte is the lower one
    EXPECT_THAT(linesOf(contentOf(m_log)),
                ElementsAre("[    0.000000000] OPEN /dev/i2c-1",
                            "[    0.000000000] ADC-COMMAND 0x8C", "[    0.000180000] ADC 0 0xFFF",
                            "[    0.000450000] CLOSE /dev/i2c-1"));
    EXPECT_EQ(onHead(I2C_GET " -y 1 0x49 0x8c").output, "0x0f\n");
    EXPECT_EQ(onHead(I2C_GET " -y 1 0x49 0x8c c").output, "0x0f\n");
    const tsOutcome nobody = onHead(I2C_GET " -y 1 0x48 0x8c w");
    EXPECT_EQ(nobody.status, 2);
    EXPECT_EQ(nobody.output, "Error: Read failed\n");
}

TEST_F(Tools, I2cDetectFindsTheMonitorAndNothingElse) {
    const tsOutcome result = onHead(I2C_DETECT " -y 1");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(linesOf(result.output),
                ElementsAre("     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f",
                            "00:                         -- -- -- -- -- -- -- -- ",
                            "10: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- ",
                            "20: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- ",
                            "30: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- ",
                            "40: -- -- -- -- -- -- -- -- -- 49 -- -- -- -- -- -- ",
                            "50: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- ",
                            "60: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- ",
                            "70: -- -- -- -- -- -- -- --                         "));
}

TEST_F(Tools, I2cGetIsAnsweredFromARecording) {
    const std::string recording = (m_folder.path() / "recording").string();
    const std::string program = I2C_GET " -y 1 0x49 0x8c w";
    EXPECT_EQ(runOnHead("--summary /dev/null --record " + recording, program).output, "0xff0f\n");
    EXPECT_THAT(contentOf(recording), HasSubstr("I2C_SMBUS 0x3 command 0x8C read = 0 | 0F FF\n"));
    const tsOutcome replayed = runOnHead("--summary /dev/null --replay " + recording, program);
    EXPECT_EQ(replayed.status, 0);
    EXPECT_EQ(replayed.output, "0xff0f\n");
}

TEST_F(Tools, SpiConfigShowsThePortsSettings) {
    const tsOutcome result = onHead(SPI_CONFIG " -d /dev/spidev1.0 -q");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "/dev/spidev1.0: mode=0, lsb=0, bits=8, speed=1000000, spiready=0\n");
}

TEST_F(Tools, SpiPipeSendsBytesThatASleepingSensorDoesNotHear) {
    const tsOutcome result = onHead("sh -c 'printf \"\\017\\271\\004\\066\" | " SPI_PIPE
                                    " -d /dev/spidev1.0 -s 10000000 "
                                    "-b 4 -n 1 | od -An -tx1'");
    EXPECT_EQ(result.status, 9); // words of eight bits, and no power
    EXPECT_THAT(result.output, HasSubstr(" 00 00 00 00\n"));
    EXPECT_THAT(contentOf(m_log), HasSubstr("] SPI 0F B9 04 36\n"));
    EXPECT_THAT(contentOf(m_log), HasSubstr("] VIOLATION sensor-asleep: register 0x3E"));
}

} // namespace

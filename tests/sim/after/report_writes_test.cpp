// What the page about a run says became of each register write, on a head that is really written.

#include <cerrno>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>

#include <linux/spi/spi.h>

#include "sim/after/report.h"
#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using testing::ElementsAre;

sim::tcVirtualHeadBuilder aWatchedHead() {
    auto builder = sim::aVirtualHead();
    builder.withStateEvents().withQuietViolations();
    return builder;
}

// Rows of the table of writes since the log was cleared, without their times: chip, register,
// fields, old, new, fate.
std::vector<std::string> writesOf(const std::vector<sim::tsTraceLine>& trace) {
    const std::string page = sim::report(trace);
    const std::size_t table = page.find("<table id=\"writes\">");
    const std::string text = page.substr(table, page.find("</table>", table) - table);
    const std::regex rowForm("<tr[^>]*>(<td>.*</td>)</tr>");
    const std::regex cellForm("<td>([^<]*)</td>");
    std::vector<std::string> rows;
    for (auto row = std::sregex_iterator(text.begin(), text.end(), rowForm);
         row != std::sregex_iterator(); ++row) {
        const std::string cells = (*row)[1].str();
        std::string joined;
        auto cell = std::sregex_iterator(cells.begin(), cells.end(), cellForm);
        for (++cell; cell != std::sregex_iterator(); ++cell) {
            joined += (joined.empty() ? "" : "|") + (*cell)[1].str();
        }
        rows.push_back(joined);
    }
    return rows;
}

std::vector<std::string> writesOf(const sim::tcVirtualHead& head) {
    return writesOf(sim::parseTrace(head.timedLines()));
}

TEST(ReportedWrite, ShowsWhatTheRegisterHeldBefore) {
    auto head = aWatchedHead().build();
    tcUser user;
    user.powerUp();
    head.clearLog();
    user.port.writeRegister(0x12, 4000);
    user.port.writeRegister(0x12, 3996);
    user.frameControl.write(2, 0x5D9);
    user.clock.write(0xC0, 0x1617);
    user.clock.write(0, 1); // nobody can say what a write-only register holds
    EXPECT_THAT(writesOf(head),
                ElementsAre("sensor|0x012|hd_max 4000||0x000FA0|",
                            "sensor|0x012|hd_max 4000 to 3996|0x000FA0|0x000F9C|",
                            "FPGA|0xFF210008|lane_inversion 0 to 1497|0x00000000|0x000005D9|",
                            "FPGA|0xFF204300|pll_counter 3855 to 5655|0x00000F0F|0x00001617|",
                            "FPGA|0xFF204000|pll_update 1||0x00000001|"));
}

TEST(ReportedWrite, OfASleepingSensorIsLostAndLeavesTheOldValue) {
    auto head = aWatchedHead().build();
    tcUser user;
    user.port.writeRegister(0x12, 4000);
    user.powerUp();
    head.clearLog();
    user.port.writeRegister(0x12, 4000);
    setLevel(user.reset, 0);
    setLevel(user.reset, 1);
    user.port.writeRegister(0x12, 3996); // it needs 10 ms
    EXPECT_THAT(writesOf(head),
                ElementsAre("sensor|0x012|hd_max 4000||0x000FA0|",
                            "sensor|0x012|hd_max 3996||0x000F9C|lost: the sensor was asleep"));
}

TEST(ReportedWrite, OfAStuckRegisterIsLostAndLeavesTheOldValue) {
    auto head =
        aWatchedHead()
            .withFault(
                {.name = "stuck", .what = "word 0xFF210008 stuck", .after = "WRITE 0xFF210008"})
            .build();
    tcUser user;
    head.clearLog();
    user.frameControl.write(2, 0x5D9);
    head.advance(std::chrono::milliseconds(1));
    user.frameControl.write(2, 0xFFF);
    user.frameControl.write(2, 0xFFE);
    EXPECT_THAT(writesOf(head),
                ElementsAre("FPGA|0xFF210008|lane_inversion 0 to 1497|0x00000000|0x000005D9|",
                            "FPGA|0xFF210008|lane_inversion 4095|0x000005D9|0x00000FFF|lost: the "
                            "register is stuck",
                            "FPGA|0xFF210008|lane_inversion 4094|0x000005D9|0x00000FFE|lost: the "
                            "register is stuck"));
}

TEST(ReportedWrite, SaysWhyAPortThatIsSetWronglyLosesOrChangesWords) {
    auto head = aWatchedHead().build();
    tcUser user;
    user.powerUp();
    head.clearLog();
    user.port.setMode(SPI_NO_CS);
    user.port.writeRegister(0x12, 4000);
    user.port.configure();
    user.port.setSpeed(10'000'001);
    user.port.writeRegister(0x12, 4000);
    user.port.configure();
    user.port.setMode(1); // each bit comes one place late
    user.port.writeRegister(0x12, 1000);
    user.port.configure();
    user.port.setBits(8);
    user.port.send({0x04, 0x80, 0x0F, 0x9C}); // bytes in the order of the wire
    EXPECT_THAT(writesOf(head),
                ElementsAre("sensor|0x012|hd_max 4000||0x000FA0|lost: the port's mode does not "
                            "select the sensor",
                            "sensor|0x012|hd_max 4000||0x000FA0|lost: the port's clock is too "
                            "fast for the sensor",
                            "sensor|0x024|||0x0007D0|taken, but not as sent: the port was not in "
                            "SPI mode 0",
                            "sensor|0x012|hd_max 3996||0x000F9C|taken, but not as sent: the port "
                            "had another word size or bit order"));
}

TEST(ReportedWrite, IsEachWordOfAMessageAndWhatIsLeftOfIt) {
    auto head = aWatchedHead().build();
    tcUser user;
    user.powerUp();
    head.clearLog();
    user.port.send({0xA0, 0x0F, 0x80, 0x04, 0x0F, 0xB9, 0x04, 0x36});
    user.port.setBits(8);
    user.port.send({0x04, 0x80, 0x0F});
    EXPECT_THAT(writesOf(head),
                ElementsAre("sensor|0x012|hd_max 4000||0x000FA0|",
                            "sensor|0x0D8|clock_range 309519||0x04B90F|",
                            "sensor||24 bits 0x04800F|||lost: no whole word of 32 bits"));
}

TEST(ReportedWrite, OfAFailedTransferIsLostAndLeavesTheOldValue) {
    auto head = aWatchedHead().build();
    tcUser user;
    user.powerUp();
    head.clearLog();
    user.port.writeRegister(0x12, 4000);
    head.failCallsFrom(sim::teCall::ioctl, "/dev/spidev1.0",
                       head.calls(sim::teCall::ioctl, "/dev/spidev1.0") + 1, EIO);
    user.port.writeRegister(0x12, 3996);
    user.port.send({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08});
    EXPECT_THAT(writesOf(head),
                ElementsAre("sensor|0x012|hd_max 4000||0x000FA0|",
                            "sensor|0x012|hd_max 3996|0x000FA0|0x000F9C|lost: the SPI transfer "
                            "failed",
                            "sensor||8 bytes 01 02 03 04 05 06 07 08|||lost: the SPI transfer "
                            "failed"));
}

TEST(ReportedWrite, SaysWhichFpgaRegistersCannotBeWritten) {
    auto head = aWatchedHead().build();
    tcUser user;
    head.clearLog();
    user.frameControl.write(1, 0x8);         // status
    user.frameControl.write(3, 0x1);         // between two registers
    user.frameControl.write(2, 0x0001'05D9); // lanes there are none of
    user.frameControl.write(2, 0x0000'05D8);
    const volatile void* const words = user.frameControl.words();
    *const_cast<volatile std::uint16_t*>(static_cast<const volatile std::uint16_t*>(words) + 4) = 7;
    EXPECT_THAT(
        writesOf(head),
        ElementsAre("FPGA|0xFF210004|aligned 1, locked 0, rg_locked 0, gb_locked "
                    "0|0x00000000|0x00000008|lost: the register is read-only",
                    "FPGA|0xFF21000C|||0x00000001|lost: there is no such register",
                    "FPGA|0xFF210008|lane_inversion 0 to 1497|0x00000000|0x000105D9|taken without "
                    "the reserved bits",
                    "FPGA|0xFF210008|lane_inversion 1497 to 1496|0x000005D9|0x000005D8|",
                    "FPGA|0xFF210008|lane_inversion 7|0x000005D8|0x00000007|lost: not one aligned "
                    "store of 32 bits"));
}

// A row of the register reference, told apart by nothing but the reference's own text.
struct tsListed {
    std::uint32_t block = 0; // 0: the sensor
    std::uint32_t address = 0;
    unsigned low = 0;  // bit
    unsigned high = 0; // bit
    std::string field;
};

std::vector<tsListed> listedRegisters() {
    std::vector<tsListed> rows;
    std::istringstream lines(sim::registersMarkdown());
    const std::regex title("## .*, (0x[0-9A-F]{8})");
    const std::regex row(R"(\| (0x[0-9A-F]+) \| ([0-9]+)(:([0-9]+))? \| `(\w+)` \|.*)");
    std::uint32_t block = 0;
    for (std::string line; std::getline(lines, line);) {
        std::smatch part;
        if (std::regex_match(line, part, title)) {
            block = static_cast<std::uint32_t>(std::stoul(part[1], nullptr, 16));
        } else if (std::regex_match(line, part, row)) {
            const auto place = static_cast<std::uint32_t>(std::stoul(part[1], nullptr, 16));
            const auto high = static_cast<unsigned>(std::stoul(part[2]));
            const auto low = part[4].matched ? static_cast<unsigned>(std::stoul(part[4])) : high;
            rows.push_back({block, block + place, low, high, part[5]});
        }
    }
    return rows;
}

std::string fieldsFor(const tsListed& listed, std::uint32_t value) {
    std::array<char, 120> text{};
    std::snprintf(text.data(), text.size(), "[    0.001000000] STATE %s 0x%08X - 0x%08X taken",
                  listed.block == 0 ? "SENSOR-WORD" : "FPGA-WORD", listed.address, value);
    return writesOf(sim::parseTrace(std::string_view(text.data()))).at(0);
}

TEST(ReportedWrite, NamesEveryFieldOfTheRegisterReference) {
    std::size_t sensor = 0;
    const std::vector<tsListed> all = listedRegisters();
    for (const tsListed& listed : all) {
        // All ones in this field and nothing else: neighbours read 0.
        const std::uint64_t ones = (std::uint64_t{2} << (listed.high - listed.low)) - 1;
        const auto value = static_cast<std::uint32_t>(ones << listed.low);
        EXPECT_THAT(
            fieldsFor(listed, value),
            testing::ContainsRegex("[ |]" + listed.field + " " + std::to_string(ones) + "[,|]"));
        sensor += listed.block == 0 ? 1U : 0U;
    }
    EXPECT_EQ(sensor, 30U);
    EXPECT_EQ(all.size(), 89U);
}

TEST(ReportedWrite, NamesEveryReadoutArea) {
    const auto area = [](std::uint32_t address, std::uint32_t value) {
        return fieldsFor({0, address, 0, 0, ""}, value);
    };
    EXPECT_EQ(area(0x094, 0x201800), "sensor|0x094|area 0: row_start 0, row_end 1027||0x201800|");
    EXPECT_EQ(area(0x095, 0x1AF000), "sensor|0x095|area 0: col_start 0, col_end 431||0x1AF000|");
    EXPECT_EQ(area(0x096, 0x3FFFFF), "sensor|0x096|area 1: row_start 2047, row_end "
                                     "2047||0x3FFFFF|");
    EXPECT_EQ(area(0x099, 0x1FF1FF), "sensor|0x099|area 2: col_start 511, col_end "
                                     "511||0x1FF1FF|");
    EXPECT_EQ(area(0x0A2, 0x000801), "sensor|0x0A2|area 7: row_start 1, row_end 1||0x000801|");
    EXPECT_EQ(area(0x0A3, 0x001002), "sensor|0x0A3|area 7: col_start 2, col_end 1||0x001002|");
    EXPECT_EQ(area(0x0A4, 0x000801), "sensor|0x0A4|||0x000801|");
    EXPECT_EQ(area(0x093, 0x000801), "sensor|0x093|||0x000801|");
}

TEST(ReportedWrite, NamesEveryEntryOfTheTableOfBadPixels) {
    const auto word = [](std::uint32_t address, std::uint32_t value) {
        return fieldsFor({0xFF213000, address, 0, 0, ""}, value);
    };
    EXPECT_EQ(word(0xFF213000, 0x00C80064), "FPGA|0xFF213000|pixel 0: y 200, x 100||0x00C80064|");
    EXPECT_EQ(word(0xFF213008, 0x08070A1F), "FPGA|0xFF213008|pixel 2: y 2055, x "
                                            "2591||0x08070A1F|");
    EXPECT_EQ(word(0xFF213FFC, 0x00010002), "FPGA|0xFF213FFC|pixel 1023: y 1, x 2||0x00010002|");
    EXPECT_EQ(word(0xFF214000, 0x00010002), "FPGA|0xFF214000|||0x00010002|");
}

TEST(ReportedWrite, OfAnUnknownFateIsNoTraceOfAHead) {
    EXPECT_THROW((void)sim::report(sim::parseTrace(
                     std::string_view("[    0.001000000] STATE SENSOR-WORD 0x012 - 0x000FA0 odd"))),
                 std::runtime_error);
    EXPECT_THROW((void)sim::report(sim::parseTrace(
                     std::string_view("[    0.001000000] STATE SENSOR-WORD 0x012 taken"))),
                 std::runtime_error);
}

} // namespace

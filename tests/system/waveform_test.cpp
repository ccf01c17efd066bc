// The value-change dump of a run, read by the distribution's logic analyzer.

#include <gmock/gmock.h>
#include <sstream>

#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;

// The dump's idle times are cut short, so that the analyzer need not step through every nanosecond
// of a second; what happens on the wires stays as it is.
std::string decoded(const std::filesystem::path& dump, const std::string& decoder,
                    const std::string& annotations) {
    const tsOutcome result = runCommand("sigrok-cli -I vcd:compress=100000 -i " + dump.string() +
                                        " -P " + decoder + " -A " + annotations);
    EXPECT_EQ(result.status, 0) << result.output;
    return result.output;
}

// Bytes of every transfer, as the log has them.
std::vector<std::vector<unsigned>> transfersIn(const std::string& log) {
    std::vector<std::vector<unsigned>> result;
    for (const std::string& line : linesOf(log)) {
        const std::string start = "] SPI ";
        const std::size_t at = line.find(start);
        if (at == std::string::npos) {
            continue;
        }
        std::istringstream bytes(line.substr(at + start.size()));
        result.emplace_back();
        for (unsigned byte = 0; bytes >> std::hex >> byte;) {
            result.back().push_back(byte);
        }
    }
    return result;
}

// The analyzer puts 32 bits together, first bit highest; the driver's buffer has the lowest byte
// first.
std::vector<std::vector<unsigned>> wordsAsBytes(const std::string& annotations) {
    std::vector<std::vector<unsigned>> result;
    for (const std::string& line : linesOf(annotations)) {
        const unsigned long word = std::stoul(line.substr(line.find(": ") + 2), nullptr, 16);
        result.push_back(
            {static_cast<unsigned>(word & 0xFF), static_cast<unsigned>(word >> 8 & 0xFF),
             static_cast<unsigned>(word >> 16 & 0xFF), static_cast<unsigned>(word >> 24 & 0xFF)});
    }
    return result;
}

// One transaction as the analyzer sees it: a command, and without a stop between the two bytes.
std::string conversion(const std::string& command, const std::string& high,
                       const std::string& low) {
    return "S W 49 " + command + " S R 49 " + high + " " + low + "- P ";
}

// Starts S, stops P, direction, bytes; "-" after a byte that was not acknowledged.
std::string summary(const std::string& annotations) {
    std::string result;
    for (const std::string& line : linesOf(annotations)) {
        const std::string what = line.substr(line.find(": ") + 2);
        if (what.starts_with("Start")) {
            result += "S ";
        } else if (what == "Stop") {
            result += "P ";
        } else if (what == "Write" || what == "Read") {
            result += what.substr(0, 1) + " ";
        } else if (what == "NACK") {
            result.insert(result.size() - 1, "-");
        } else if (what != "ACK") {
            result += what.substr(what.find(": ") + 2) + " ";
        }
    }
    return result;
}

class Waveform : public testing::Test {
protected:
    void initialize(const std::string& options = "") {
        const tsOutcome result =
            runOnHead("--vcd " + m_dump.string() + " --log " + m_log.string() + " " + options,
                      camhostCommand("-c init"));
        ASSERT_EQ(result.status, 0) << result.output;
    }
    tcTemporaryDirectory m_folder;
    std::filesystem::path m_dump = m_folder.path() / "run.vcd";
    std::filesystem::path m_log = m_folder.path() / "log";
};

// In virtual time a message takes its time on the wire; in real time it is over when it is over.
class WaveformInTime : public Waveform, public testing::WithParamInterface<const char*> {};

TEST_P(WaveformInTime, AnAnalyzerReadsBackEveryByteOfAnInitialization) {
    initialize(GetParam());
    const auto sent = transfersIn(contentOf(m_log));
    ASSERT_THAT(sent, SizeIs(testing::Gt(80U)));
    EXPECT_THAT(sent.front(), ElementsAre(0x00, 0x00, 0x00, 0x04));
    const std::string annotations =
        decoded(m_dump, "spi:clk=SPI-CLK:mosi=SPI-MOSI:cs=SPI-CS:wordsize=32", "spi=mosi-data");
    EXPECT_EQ(wordsAsBytes(annotations), sent);
}

TEST_P(WaveformInTime, AnAnalyzerSeesOneChipSelectAMessage) {
    initialize(GetParam());
    const std::string transfers =
        decoded(m_dump, "spi:clk=SPI-CLK:mosi=SPI-MOSI:cs=SPI-CS:wordsize=32", "spi=mosi-transfer");
    EXPECT_EQ(linesOf(transfers).size(), transfersIn(contentOf(m_log)).size());
}

TEST_P(WaveformInTime, AnAnalyzerReadsTheMonitorsConversions) {
    initialize(GetParam());
    const std::string text = decoded(m_dump, "i2c:scl=I2C-SCL:sda=I2C-SDA",
                                     "i2c=address-read:address-write:data-read:data-write:start:"
                                     "repeat-start:stop:ack:nack");
    // The first command switches the reference on; then 1.2 V once to throw away, 1.2 V, 3.3 V / 2
    // AVDDH and 3.3 V / 2 SVDD, each in steps of 2.5 V / 4096.
    const std::string referenceOn = "S W 49 8C P ";
    EXPECT_EQ(summary(text), referenceOn + conversion("8C", "07", "AE") +
                                 conversion("8C", "07", "AE") + conversion("CC", "0A", "8F") +
                                 conversion("AC", "0A", "8F"));
}

INSTANTIATE_TEST_SUITE_P(Virtual, WaveformInTime, testing::Values("--time virtual"));
INSTANTIATE_TEST_SUITE_P(Real, WaveformInTime, testing::Values("--time real"));

// Levels of a wire of one bit: "TIME LEVEL", in nanoseconds.
std::vector<std::string> levelsOf(const std::string& dump, const std::string& wire) {
    std::string code;
    std::string time;
    std::vector<std::string> levels;
    for (const std::string& line : linesOf(dump)) {
        if (line.starts_with("$var wire 1 ") && line.ends_with(" " + wire + " $end")) {
            code = line.substr(12, line.find(' ', 12) - 12);
        } else if (line.starts_with("#")) {
            time = line.substr(1);
        } else if (!code.empty() && line.size() > 1 && line.substr(1) == code) {
            levels.push_back(time + " " + line.substr(0, 1));
        }
    }
    return levels;
}

TEST_F(Waveform, ShowsLanesThatAreLostWhilePicturesAreTaken) {
    const std::string scenario =
        std::string(HEAD_SOURCE_DIRECTORY) + "/data/scenarios/lanes-lost.ini";
    const tsOutcome result = runOnHead("--scenario " + scenario + " --vcd " + m_dump.string() +
                                           " --log " + m_log.string(),
                                       camhostCommand("-c init -c start -c stop"));
    ASSERT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(contentOf(m_log),
                testing::HasSubstr("[    0.397486600] NOTE fault lanes lost begins\n"));
    EXPECT_THAT(contentOf(m_log),
                testing::HasSubstr("[    0.417486600] NOTE fault lanes lost ends\n"));
    const std::string dump = contentOf(m_dump);
    EXPECT_THAT(levelsOf(dump, "LANE3-LOCK"), ElementsAre("0 0", "343272200 1", "397486600 0"));
    EXPECT_THAT(levelsOf(dump, "LANE7-LOCK"), ElementsAre("0 0", "343272200 1", "397486600 0"));
    EXPECT_THAT(levelsOf(dump, "LANE4-LOCK"), ElementsAre("0 0", "343272200 1"));
}

class DrawnWaveform : public Waveform {
protected:
    // The picture that "--draw" makes of the dump.
    std::string drawn() {
        const std::filesystem::path picture = m_folder.path() / "run.svg";
        const tsOutcome result = runCommand(std::string(HEAD_LAUNCHER) + " --draw " +
                                            m_dump.string() + " " + picture.string());
        EXPECT_EQ(result.status, 0) << result.output;
        return contentOf(picture);
    }
    static std::string documented(const std::string& name) {
        return contentOf(std::string(HEAD_SOURCE_DIRECTORY) + "/docs/" + name);
    }
};

TEST_F(DrawnWaveform, IsThePictureOfTheDocuments) {
    initialize();
    const std::string picture = drawn();
    EXPECT_THAT(picture, testing::HasSubstr(">LANE0-LOCK to LANE11-LOCK</text>"));
    EXPECT_THAT(picture, testing::Not(testing::HasSubstr("#b00020")));
    EXPECT_EQ(picture, documented("power-up.svg"))
        << "docs/power-up.svg is out of date; make it anew as docs/waveforms.md says";
}

TEST_F(DrawnWaveform, ShowsADeadLaneInRed) {
    const tsOutcome result = runOnHead("--scenario " + std::string(HEAD_SOURCE_DIRECTORY) +
                                           "/data/scenarios/dead-lane.ini --vcd " + m_dump.string(),
                                       camhostCommand("-c init"));
    ASSERT_EQ(result.status, 5) << result.output;
    const std::string picture = drawn();
    EXPECT_THAT(picture, testing::HasSubstr(">LANE0-LOCK to LANE2-LOCK</text>"));
    EXPECT_THAT(picture,
                testing::HasSubstr("fill=\"#b00020\" font-weight=\"bold\">LANE3-LOCK</text>"));
    EXPECT_THAT(picture, testing::HasSubstr(">LANE4-LOCK to LANE11-LOCK</text>"));
    EXPECT_EQ(picture, documented("dead-lane.svg"))
        << "docs/dead-lane.svg is out of date; make it anew as docs/waveforms.md says";
}

// Every scope and every wire, in their order.
std::vector<std::string> wiresOf(const std::string& dump) {
    std::vector<std::string> wires;
    for (const std::string& line : linesOf(dump)) {
        std::istringstream words(line);
        std::string what;
        std::string type;
        std::string bits;
        std::string code;
        std::string name;
        words >> what >> type >> bits;
        if (what == "$scope") {
            wires.push_back("scope " + bits);
        } else if (what == "$var" && words >> code >> name) {
            wires.push_back(type + " " + bits + " " + name);
        }
    }
    return wires;
}

// GTKWave's own readers and writers: a dump that it opens is the same after the way there and back.
TEST_F(Waveform, StaysWhatItIsInTheFormatOfGtkWave) {
    initialize();
    const std::filesystem::path fast = m_folder.path() / "run.fst";
    const std::filesystem::path back = m_folder.path() / "back.vcd";
    tsOutcome result = runCommand("vcd2fst " + m_dump.string() + " " + fast.string());
    ASSERT_EQ(result.status, 0) << result.output;
    result = runCommand("fst2vcd -o " + back.string() + " " + fast.string());
    ASSERT_EQ(result.status, 0) << result.output;
    const std::string before = contentOf(m_dump);
    const std::string after = contentOf(back);
    EXPECT_THAT(wiresOf(before), SizeIs(75 + 8)); // with the scopes
    EXPECT_EQ(wiresOf(after), wiresOf(before));
    EXPECT_THAT(levelsOf(after, "RESET_B"), ElementsAre("0 0", "301181000 1"));
    EXPECT_THAT(levelsOf(after, "ALIGNED"), ElementsAre("0 0", "374272200 1", "389272200 0"));
    EXPECT_EQ(levelsOf(after, "FRAME-START"), levelsOf(before, "FRAME-START"));
    EXPECT_THAT(levelsOf(after, "SPI-CLK"), SizeIs(testing::Gt(5000U)));
    EXPECT_EQ(levelsOf(after, "SPI-CLK"), levelsOf(before, "SPI-CLK"));
    EXPECT_EQ(levelsOf(after, "I2C-SDA"), levelsOf(before, "I2C-SDA"));
}

TEST_F(Waveform, SaysWhatCannotBeWrittenOrDrawn) {
    tsOutcome result = runOnHead("--vcd /no/such/folder/run.vcd", "true");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "virtual-head: /no/such/folder/run.vcd: cannot be written\n");
    result = runCommand(std::string(HEAD_LAUNCHER) + " --draw /no/such/dump /dev/null");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "virtual-head: /no/such/dump: cannot be read\n");
}

} // namespace

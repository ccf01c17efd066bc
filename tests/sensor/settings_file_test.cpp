// Register settings files, line by line.

#include <exception>
#include <filesystem>
#include <typeinfo>

#include "tests/sensor/sensor_fixture.h"
#include "tests/support/fed_pipe.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SettingsFile : public tcSensorFixture {
protected:
    SettingsFile() { makeSensor(); }

    /// \return what a file with this text does; it must be accepted
    std::vector<std::string> load(std::string_view text, sim::tcKinds kinds = kSeen) {
        directory().write("settings.txt", text);
        return trace([&] { EXPECT_EQ(sensor().writeRegistersFromFile("settings.txt"), 0); }, kinds);
    }

    /// \return what a file with this text does; it must be refused
    std::vector<std::string> refuse(std::string_view text,
                                    const std::string& name = "settings.txt") {
        directory().write(name, text);
        return trace([&] {
            try {
                sensor().writeRegistersFromFile(name);
                ADD_FAILURE() << "no exception";
            } catch (const std::exception& error) {
                EXPECT_EQ(typeid(error), typeid(std::exception));
            }
        });
    }
};

// ---- Files

TEST_F(SettingsFile, IsSentInFileOrder) {
    EXPECT_THAT(
        load("21 1\n10 3\n300 70000\n21 2\n"),
        ElementsAre("SPI 01 00 40 08", "SPI 03 00 00 04", "SPI 00 00 07 C0", "SPI 02 00 40 08"));
    EXPECT_EQ(shadow(0x21), 2U);
    EXPECT_EQ(shadow(0x10), 3U);
    EXPECT_EQ(shadow(0x300), 0x70000U);
    EXPECT_EQ(out().text(), "");
    EXPECT_EQ(err().text(), "");
}

TEST_F(SettingsFile, AMissingFileIsSilent) {
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().writeRegistersFromFile("missing.txt"), 0); },
                      sim::tcKinds::all()),
                IsEmpty());
}

TEST_F(SettingsFile, AnEmptyNameIsSilent) {
    EXPECT_THAT(
        trace([&] { EXPECT_EQ(sensor().writeRegistersFromFile(""), 0); }, sim::tcKinds::all()),
        IsEmpty());
}

TEST_F(SettingsFile, AFolderIsSilent) {
    std::filesystem::create_directory("folder");
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().writeRegistersFromFile("folder"), 0); },
                      sim::tcKinds::all()),
                IsEmpty());
}

TEST_F(SettingsFile, APipeIsReadLikeAnyFile) {
    const tcFedPipe pipe("pipe", "10 3\n");
    EXPECT_EQ(sensor().writeRegistersFromFile("pipe"), 0);
    EXPECT_EQ(shadow(0x10), 3U);
}

TEST_F(SettingsFile, ALinkToAFileIsRead) {
    directory().write("file.txt", "10 3\n");
    std::filesystem::create_symlink("file.txt", "link.txt");
    EXPECT_EQ(sensor().writeRegistersFromFile("link.txt"), 0);
    EXPECT_EQ(shadow(0x10), 3U);
}

TEST_F(SettingsFile, AnEmptyFileWritesNothing) {
    EXPECT_THAT(load("", sim::tcKinds::all()), IsEmpty());
}

TEST_F(SettingsFile, AFileOfCommentsWritesNothing) {
    EXPECT_THAT(load("#\n# 21 1\n#21 1\n##", sim::tcKinds::all()), IsEmpty());
}

TEST_F(SettingsFile, TheLastLineNeedsNoLineEnd) {
    EXPECT_THAT(load("21 1\n22 2"), ElementsAre("SPI 01 00 40 08", "SPI 02 00 80 08"));
}

TEST_F(SettingsFile, IsFoundInTheWorkingDirectoryOrByPath) {
    directory().write("sub/settings.txt", "21 5\n");
    EXPECT_THAT(trace([&] { sensor().writeRegistersFromFile("sub/settings.txt"); }),
                ElementsAre("SPI 05 00 40 08"));
    EXPECT_THAT(trace([&] {
                    sensor().writeRegistersFromFile(
                        (directory().path() / "sub/settings.txt").string());
                }),
                ElementsAre("SPI 05 00 40 08"));
}

// ---- Accepted lines

struct tsLine {
    const char* name;
    const char* text;
    const char* line;
};

class AcceptedLine : public SettingsFile, public testing::WithParamInterface<tsLine> {};

TEST_P(AcceptedLine, IsOneWrite) {
    EXPECT_THAT(load(GetParam().text), ElementsAre(GetParam().line));
    EXPECT_EQ(err().text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Form, AcceptedLine,
    testing::Values(tsLine{"Plain", "21 1\n", "SPI 01 00 40 08"},
                    tsLine{"Prefixed", "0x21 0x1\n", "SPI 01 00 40 08"},
                    tsLine{"PrefixedInCapitals", "0X21 0X1\n", "SPI 01 00 40 08"},
                    tsLine{"NotDecimal", "10 16\n", "SPI 16 00 00 04"},
                    tsLine{"NotOctal", "010 017\n", "SPI 17 00 00 04"},
                    tsLine{"LowerCase", "d8 4b90f\n", "SPI 0F B9 04 36"},
                    tsLine{"UpperCase", "D8 4B90F\n", "SPI 0F B9 04 36"},
                    tsLine{"LeadingBlanks", "  \t21 1\n", "SPI 01 00 40 08"},
                    tsLine{"Tabs", "21\t\t1\n", "SPI 01 00 40 08"},
                    tsLine{"ManyBlanks", "21      1\n", "SPI 01 00 40 08"},
                    tsLine{"TrailingBlank", "21 1 \n", "SPI 01 00 40 08"},
                    tsLine{"TrailingText", "21 1 what it does\n", "SPI 01 00 40 08"},
                    tsLine{"TrailingComment", "21 1 # comment\n", "SPI 01 00 40 08"},
                    tsLine{"TextRightBehindTheValue", "21 1zz\n", "SPI 01 00 40 08"},
                    tsLine{"CarriageReturn", "21 1\r\n", "SPI 01 00 40 08"},
                    tsLine{"ThirdNumber", "21 1 2\n", "SPI 01 00 40 08"},
                    tsLine{"LeadingZeros", "000000021 000000000001\n", "SPI 01 00 40 08"},
                    tsLine{"WidestAddress", "FFFF 0\n", "SPI 00 00 C0 FF"},
                    tsLine{"WidestValue", "0 FFFFFFFF\n", "SPI FF FF 3F 00"},
                    tsLine{"AddressBesidePause", "401 1\n", "SPI 01 00 40 00"},
                    tsLine{"AddressBelowPause", "3FF 1\n", "SPI 01 00 C0 FF"}),
    [](const auto& line) { return line.param.name; });

TEST_F(SettingsFile, KeepsAddressAndValueWholeInTheShadowCopy) {
    load("FFFF FFFFFFFF\n");
    EXPECT_EQ(shadow(0xFFFF), 0xFFFFFFFFU);
}

// ---- Pauses

TEST_F(SettingsFile, Address400IsAPauseInMicrosecondsAndWritesNothing) {
    EXPECT_THAT(load("400 2710\n", sim::tcKinds::all()), ElementsAre("SLEEP 10000000 ns"));
    EXPECT_EQ(shadow(0x400), std::nullopt);
}

TEST_F(SettingsFile, APauseStandsInItsPlaceBetweenWrites) {
    EXPECT_THAT(load("21 1\n0x400 0x1\n22 2\n"),
                ElementsAre("SPI 01 00 40 08", "SLEEP 1000 ns", "SPI 02 00 80 08"));
}

TEST_F(SettingsFile, TwoPausesAreTwoSleeps) {
    EXPECT_THAT(load("400 3E8\n400 3E8\n"), ElementsAre("SLEEP 1000000 ns", "SLEEP 1000000 ns"));
}

TEST_F(SettingsFile, APauseOfZeroIsASleepOfZero) {
    EXPECT_THAT(load("400 0\n"), ElementsAre("SLEEP 0 ns"));
}

TEST_F(SettingsFile, APauseMayBeLongerThanASecond) {
    EXPECT_THAT(load("400 16E361\n"), ElementsAre("SLEEP 1500001000 ns"));
}

TEST_F(SettingsFile, TheLongestPauseIsMoreThanAnHour) {
    EXPECT_THAT(load("400 FFFFFFFF\n"), ElementsAre("SLEEP 4294967295000 ns"));
}

// ---- Lines without numbers

TEST_F(SettingsFile, ABlankFirstLineWritesZeroToRegisterZero) {
    EXPECT_THAT(load("\n"), ElementsAre("SPI 00 00 00 00"));
    EXPECT_EQ(shadow(0), 0U);
}

TEST_F(SettingsFile, ABlankLineRepeatsTheLineBeforeIt) {
    EXPECT_THAT(load("21 1\n\n22 2\n"),
                ElementsAre("SPI 01 00 40 08", "SPI 01 00 40 08", "SPI 02 00 80 08"));
}

TEST_F(SettingsFile, ALineOfBlanksRepeatsTheLineBeforeIt) {
    EXPECT_THAT(load("21 1\n \t \n"), ElementsAre("SPI 01 00 40 08", "SPI 01 00 40 08"));
}

TEST_F(SettingsFile, ABlankLineAfterAPauseSleepsAgain) {
    EXPECT_THAT(load("400 3E8\n\n"), ElementsAre("SLEEP 1000000 ns", "SLEEP 1000000 ns"));
}

TEST_F(SettingsFile, ACommentBetweenChangesNothingForABlankLine) {
    EXPECT_THAT(load("21 1\n#22 2\n\n"), ElementsAre("SPI 01 00 40 08", "SPI 01 00 40 08"));
}

TEST_F(SettingsFile, ALineWithAnAddressAloneTakesTheValueBeforeIt) {
    EXPECT_THAT(load("21 7\n22\n23 \n"),
                ElementsAre("SPI 07 00 40 08", "SPI 07 00 80 08", "SPI 07 00 C0 08"));
}

TEST_F(SettingsFile, AFirstLineWithAnAddressAloneWritesZero) {
    EXPECT_THAT(load("22"), ElementsAre("SPI 00 00 80 08"));
}

TEST_F(SettingsFile, APauseWithoutANumberSleepsTheValueBeforeIt) {
    EXPECT_THAT(load("21 A\n400\n"), ElementsAre("SPI 0A 00 40 08", "SLEEP 10000 ns"));
}

TEST_F(SettingsFile, AValueTooLargeAtTheEndOfALineIsTheLargest) {
    EXPECT_THAT(load("21 100000000\n"), ElementsAre("SPI FF FF 7F 08"));
    EXPECT_EQ(shadow(0x21), 0xFFFFFFFFU);
}

TEST_F(SettingsFile, AnAddressTooLargeAtTheEndOfALineIsTheLargest) {
    EXPECT_THAT(load("21 5\n10000\n"), ElementsAre("SPI 05 00 40 08", "SPI 05 00 C0 FF"));
    EXPECT_EQ(shadow(0xFFFF), 5U);
}

TEST_F(SettingsFile, APrefixAloneAtTheEndOfALineIsZero) {
    EXPECT_THAT(load("21 5\n22 0x\n"), ElementsAre("SPI 05 00 40 08", "SPI 00 00 80 08"));
}

TEST_F(SettingsFile, NothingIsLeftFromOneFileToTheNext) {
    load("21 7\n");
    EXPECT_THAT(load("\n"), ElementsAre("SPI 00 00 00 00"));
}

// ---- Malformed lines

struct tsBadLine {
    const char* name;
    const char* line;
    const char* flags;
};

class MalformedLine : public SettingsFile, public testing::WithParamInterface<tsBadLine> {};

TEST_P(MalformedLine, IsReportedAndEndsTheFile) {
    const std::string line = GetParam().line;
    EXPECT_THAT(refuse("21 1\n" + line + "\n22 2\n"),
                ElementsAre("SPI 01 00 40 08",
                            "NOTE ERR \\nError writing registers: settings.txt 2: " + line + "\\n",
                            std::string("NOTE ERR ") + GetParam().flags + "\\n"));
    EXPECT_EQ(shadow(0x21), 1U);
    EXPECT_EQ(shadow(0x22), std::nullopt);
    EXPECT_EQ(out().text(), "");
}

constexpr const char* kFailed = "eof: 0 good: 0 fail: 1 bad: 0";

INSTANTIATE_TEST_SUITE_P(
    Form, MalformedLine,
    testing::Values(
        tsBadLine{"LateComment", " #21 1", kFailed}, tsBadLine{"Word", "nonsense", kFailed},
        tsBadLine{"BadAddress", "G1 1", kFailed}, tsBadLine{"BadValue", "21 g", kFailed},
        tsBadLine{"Comma", "21,1", kFailed}, tsBadLine{"Equals", "21 = 1", kFailed},
        tsBadLine{"AddressTooLarge", "10000 1", kFailed},
        tsBadLine{"ValueTooLarge", "21 100000000 x", kFailed},
        tsBadLine{"ValueTooLargeBeforeABlank", "21 100000000 ", kFailed},
        tsBadLine{"HugeAddress", "123456789ABCDEF01 1", kFailed},
        tsBadLine{"AddressGluedToText", "21x 1", kFailed},
        tsBadLine{"OtherComment", "; 21 1", kFailed}, tsBadLine{"PrefixAlone", "0x 1", kFailed}),
    [](const auto& line) { return line.param.name; });

TEST_F(SettingsFile, TheReportStartsWithALineEnd) {
    refuse("nonsense\n");
    EXPECT_EQ(err().text(), "\nError writing registers: settings.txt 1: nonsense\n"
                            "eof: 0 good: 0 fail: 1 bad: 0\n");
    EXPECT_TRUE(err().textWithFlushes().ends_with("<flush>"));
}

TEST_F(SettingsFile, TheReportCountsCommentsAndBlankLines) {
    EXPECT_THAT(refuse("# one\n21 1\n# three\n\n#\n400 1\nnonsense\n", "other.txt"),
                ElementsAre("SPI 01 00 40 08", "SPI 01 00 40 08", "SLEEP 1000 ns",
                            "NOTE ERR \\nError writing registers: other.txt 7: nonsense\\n",
                            "NOTE ERR eof: 0 good: 0 fail: 1 bad: 0\\n"));
}

TEST_F(SettingsFile, TheReportShowsALongLineWhole) {
    const std::string line = "oops " + std::string(1000, 'z') + " end";
    refuse(line);
    EXPECT_EQ(err().text(), "\nError writing registers: settings.txt 1: " + line +
                                "\neof: 0 good: 0 fail: 1 bad: 0\n");
}

TEST_F(SettingsFile, AMalformedLastLineWithoutALineEndIsReportedToo) {
    EXPECT_THAT(refuse("21 1\nxyz"),
                ElementsAre("SPI 01 00 40 08",
                            "NOTE ERR \\nError writing registers: settings.txt 2: xyz\\n",
                            "NOTE ERR eof: 0 good: 0 fail: 1 bad: 0\\n"));
}

TEST_F(SettingsFile, TheDriverIsUsableAfterAMalformedFile) {
    refuse("nonsense\n");
    EXPECT_THAT(load("21 1\n"), ElementsAre("SPI 01 00 40 08"));
    EXPECT_EQ(sensor().writeRegister(0x22, 1), 0);
}

TEST_F(SettingsFile, TheFilesThatShipAreWellFormed) {
    for (const char* name : {"3U5MGXS_10bit.txt", "3U5MGXS_12bit.txt"}) {
        const std::string path = std::string(HEAD_DATA_DIRECTORY) + "/" + name;
        ASSERT_TRUE(std::filesystem::exists(path));
        const auto lines = trace([&] { EXPECT_EQ(sensor().writeRegistersFromFile(path), 0); });
        EXPECT_GT(lines.size(), 20U);
        EXPECT_EQ(err().text(), "");
    }
}

} // namespace

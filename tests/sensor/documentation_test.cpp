// What the pages on file formats say, carried out.

#include <fstream>
#include <sstream>

#include <INIReader.h>

#include "common/ini.h"
#include "tests/sensor/sensor_fixture.h"
#include "tests/support/board_fixture.h"

using testing::ElementsAreArray;

namespace {

/// \return the text between "```name" and "```" on a page
std::string blockOf(const std::string& page, const std::string& name) {
    std::ifstream file(std::string(HEAD_DOCS_DIRECTORY) + "/" + page);
    std::ostringstream text;
    text << file.rdbuf();
    const std::string start = "\n```" + name + "\n";
    const auto at = text.str().find(start);
    EXPECT_NE(at, std::string::npos) << page << " has no block " << name;
    const auto from = at + start.size();
    return text.str().substr(from, text.str().find("```\n", from) - from);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

// ---- Settings files

class SettingsFilePage : public tcSensorFixture {
protected:
    SettingsFilePage() { makeSensor(); }
};

TEST_F(SettingsFilePage, TheExampleDoesWhatThePageSays) {
    directory().write("settings.txt", blockOf("settings-file.md", "settings"));
    const auto expected = linesOf(blockOf("settings-file.md", "trace"));
    EXPECT_EQ(expected.size(), 6U);
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().writeRegistersFromFile("settings.txt"), 0); }),
                ElementsAreArray(expected));
}

TEST_F(SettingsFilePage, TheMalformedExampleIsReportedAsThePageSays) {
    directory().write("settings.txt", blockOf("settings-file.md", "malformed"));
    const std::string expected = blockOf("settings-file.md", "report");
    EXPECT_NE(expected, "");
    EXPECT_THROW(sensor().writeRegistersFromFile("settings.txt"), std::exception);
    EXPECT_EQ(err().text(), expected);
    EXPECT_EQ(shadow(0x21), 1U);
    EXPECT_EQ(shadow(0x22), std::nullopt);
}

TEST_F(SettingsFilePage, AMinusSignWraps) {
    directory().write("settings.txt", "21 -1\n");
    sensor().writeRegistersFromFile("settings.txt");
    EXPECT_EQ(shadow(0x21), 0xFFFFFFFFU);
}

// ---- INI files

class LimitsPage : public tcSensorFixture {
protected:
    int powerUpAt(double volts) {
        destroySensor();
        useHead(sim::aVirtualHead().withRail("VDD1.2", volts));
        makeSensor();
        return sensor().powerUp();
    }
};

TEST_F(LimitsPage, TheExampleMovesTheLimitsOfOneSupply) {
    EXPECT_EQ(powerUpAt(1.05), -4); // the defaults
    EXPECT_EQ(powerUpAt(1.28), 0);
    directory().write("3u5mgxs_sensor.ini", blockOf("ini-files.md", "limits"));
    EXPECT_EQ(powerUpAt(1.05), 0);
    EXPECT_EQ(powerUpAt(0.95), -4);
    EXPECT_EQ(powerUpAt(1.28), -4);
}

class ConfigPage : public tcBoardFixture {};

TEST_F(ConfigPage, TheExampleIsWhatTheBoardRestores) {
    useShippedFiles();
    directory().write("3u5mgxs_config.ini", blockOf("ini-files.md", "config"));
    EXPECT_EQ(makeBoard().initialize(), 0);
    const Varnox::ROI roi = board().getROI();
    EXPECT_EQ(roi.x, 864);
    EXPECT_EQ(roi.y, 514);
    EXPECT_EQ(roi.width, 864);
    EXPECT_EQ(roi.height, 1028);
    EXPECT_EQ(board().getExposure(), 10000);
    EXPECT_EQ(board().getFrameInterval(), 54000);
    EXPECT_EQ(head().fpgaWord(0xFF210008), 0x5D9U);
}

class IniSyntax : public testing::Test {
protected:
    /// \return key "Key" of section "Settings" of a file, 77 when it is missing
    long integerOf(std::string_view text) {
        m_directory.write("test.ini", text);
        return INIReader("test.ini").GetInteger("Settings", "Key", 77);
    }

private:
    tcTemporaryDirectory m_directory;
};

TEST_F(IniSyntax, IsAsThePageSays) {
    EXPECT_EQ(integerOf("[Settings]\nKey = 5\n"), 5);
    EXPECT_EQ(integerOf("[Settings]\nKey: 5\n"), 5);
    EXPECT_EQ(integerOf("[SETTINGS]\nkey=5"), 5);
    EXPECT_EQ(integerOf("[Settings]\n;Key = 5\n#Key = 6\n"), 77);
    EXPECT_EQ(integerOf("[Settings]\nKey = 5 ; 6\n"), 5);
    EXPECT_EQ(integerOf("[Settings]\nKey = 0x10\n"), 16);
    EXPECT_EQ(integerOf("[Settings]\nKey = 010\n"), 8);
    EXPECT_EQ(integerOf("[Settings]\nKey = 30000 us\n"), 30000);
    EXPECT_EQ(integerOf("[Settings]\nKey = us\n"), 77);
    EXPECT_EQ(integerOf("[Settings]\nOther = 1\n  Key = 5\n"), 77);
    EXPECT_EQ(integerOf("[Settings]\nKey = 5\n  6\n"), 5);
    EXPECT_EQ(integerOf("[Settings]\nKey = 5\nKey = 6\n"), 5);
    EXPECT_EQ(integerOf("[Settings]\nnonsense\nKey = 5\n"), 5);
    EXPECT_EQ(integerOf("[Settings]\n;" + std::string(196, 'x') + "\nKey = 5\n"), 5);
}

TEST_F(IniSyntax, TheUnsignedReaderFollowsTheSameRules) {
    EXPECT_EQ(integerOf("[Settings]\nKey = 010\n"), 8);
    EXPECT_EQ(readUnsigned(INIReader("test.ini"), "settings", "KEY", 77), 8U);
    integerOf("[Settings]\nKey = 5\nKey = 6\n");
    EXPECT_EQ(readUnsigned(INIReader("test.ini"), "Settings", "Key", 77), 5U);
}

class ShippedFiles : public tcSensorFixture {};

TEST_F(ShippedFiles, SpellOutTheDefaults) {
    const INIReader config(std::string(HEAD_DATA_DIRECTORY) + "/3u5mgxs_config.ini");
    EXPECT_EQ(config.ParseError(), 0);
    EXPECT_EQ(readUnsigned(config, "Settings", "LaneInvertMask", 0), 0x5D9U);
    EXPECT_EQ(config.GetInteger("Settings", "RoiX", -1), 0);
    EXPECT_EQ(config.GetInteger("Settings", "RoiY", -1), 0);
    EXPECT_EQ(config.GetInteger("Settings", "RoiWidth", -1), 2592);
    EXPECT_EQ(config.GetInteger("Settings", "RoiHeight", -1), 2056);
    EXPECT_EQ(config.GetInteger("Settings", "ExposureTime", -1), 30000);
    EXPECT_EQ(config.GetInteger("Settings", "FrameInterval", -1), 100000);
    EXPECT_EQ(config.GetInteger("Settings", "VerticalBin", -1), 1);
    const INIReader limits(std::string(HEAD_DATA_DIRECTORY) + "/3u5mgxs_sensor.ini");
    EXPECT_EQ(limits.ParseError(), 0);
    EXPECT_EQ(limits.GetReal("Voltages_Max", "VDD1.2", 0), 1.3);
    EXPECT_EQ(limits.GetReal("Voltages_Max", "VDD3.3AVDDH_DIV2", 0), 3.4);
    EXPECT_EQ(limits.GetReal("Voltages_Max", "VDD3.3SVDD_DIV2", 0), 3.4);
    EXPECT_EQ(limits.GetReal("Voltages_Min", "VDD1.2", 0), 1.1);
    EXPECT_EQ(limits.GetReal("Voltages_Min", "VDD3.3AVDDH_DIV2", 0), 3.2);
    EXPECT_EQ(limits.GetReal("Voltages_Min", "VDD3.3SVDD_DIV2", 0), 3.2);
}

} // namespace

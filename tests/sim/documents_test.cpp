// The documents that follow from tables are the tables' present state.

#include <fstream>
#include <gmock/gmock.h>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

#include "sim/virtual_head.h"

namespace {

std::string document(const std::string& name) {
    std::ifstream file(std::string(DOCUMENT_FOLDER) + "/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(Documents, RegistersAreThoseOfTheTables) {
    EXPECT_EQ(document("registers.md"), sim::registersMarkdown());
}

TEST(Documents, TheTableOfRegistersIsThatOfTheTables) {
    EXPECT_EQ(document("../plugin/sensor_board_3u5mgxs.registers.json"), sim::registersJson());
    const std::string text = sim::registersJson();
    EXPECT_THAT(text,
                testing::HasSubstr(
                    R"({"name": "clock_range", "address": "0x0D8", "low_bit": 0, "bits": 22, )"));
    EXPECT_THAT(text,
                testing::HasSubstr(
                    R"({"name": "area7_col_end", "address": "0x0A3", "low_bit": 12, "bits": 9, )"));
    EXPECT_THAT(text,
                testing::HasSubstr(
                    R"({"name": "core_caps", "offset": "0x208", "low_bit": 0, "bits": 32, )"));
    EXPECT_THAT(text, testing::HasSubstr(R"("fastest_clock": 10000000,)"));
}

// Limits as people write them, though the driver compares in single precision.
TEST(Documents, TheTableOfRegistersHasTheSupplyMonitor) {
    EXPECT_THAT(sim::registersJson(), testing::HasSubstr(R"(  "monitor": {
    "chip": "ADS7828",
    "bus": "/dev/i2c-1",
    "address": "0x49",
    "reference": 2.5,
    "value_bits": 12,
    "supplies": [
      {"name": "VDD1.2", "channel": 0, "scale": 1, "least": 1.1, "most": 1.3},
      {"name": "VDD3.3AVDDH_DIV2", "channel": 1, "scale": 2, "least": 3.2, "most": 3.4},
      {"name": "VDD3.3SVDD_DIV2", "channel": 4, "scale": 2, "least": 3.2, "most": 3.4}
    ]
  },
)"));
}

TEST(Documents, ChecksAreTheRules) {
    EXPECT_EQ(document("checks.md"), sim::rulesMarkdown());
}

TEST(Documents, ScenariosAreTheKeys) {
    EXPECT_EQ(document("scenarios.md"), sim::scenarioKeysMarkdown());
}

TEST(Documents, ARegisterIsShownWithItsPlace) {
    const std::string text = sim::registersMarkdown();
    EXPECT_THAT(text, testing::HasSubstr("| 0x0D8 | 21:0 | `clock_range` |"));
    EXPECT_THAT(text, testing::HasSubstr("| 0x010 | 9:8 | `frame_control_mode` |"));
    EXPECT_THAT(text, testing::HasSubstr("| 0x000 | 31 | `enable` | 1 = the core runs |"));
    EXPECT_THAT(text, testing::HasSubstr("| 0x208 | 31:0 | `core_caps` |"));
    EXPECT_THAT(text, testing::HasSubstr("## Clock generator, 0xFF204000"));
}

// --- Drawings ---

using tcArrows = std::set<std::string>; // "plugin/ -> sensor/"

// Who may include whom, by the table of folders.
tcArrows arrowsOfTheTable() {
    tcArrows arrows;
    std::istringstream lines(document("architecture.md"));
    const std::regex row(R"(\| `([a-z]+/)(?:[a-z]+/`)?[^|]*\|[^|]*\|([^|]*)\|)");
    const std::regex folder(R"(`(common|sensor|fpga|sim|varnox)/)");
    const std::set<std::string> drawn{"common/", "sensor/", "fpga/", "plugin/", "sim/", "apps/"};
    for (std::string line; std::getline(lines, line);) {
        std::smatch cells;
        if (!std::regex_match(line, cells, row) || drawn.count(cells[1]) == 0 ||
            line.starts_with("| `sim/base")) {
            continue;
        }
        const std::string may = cells[2];
        if (may.find("platform headers") != std::string::npos) {
            arrows.insert(cells[1].str() + " -> platform/");
        }
        for (std::sregex_iterator at(may.begin(), may.end(), folder), end; at != end; ++at) {
            const std::string name = (*at)[1].str() == "varnox" ? "platform" : (*at)[1].str();
            arrows.insert(cells[1].str() + " -> " + name + "/");
        }
    }
    return arrows;
}

TEST(Drawings, OfTheFoldersHasTheArrowsOfTheTable) {
    tcArrows arrows;
    const std::string picture = document("architecture.svg");
    const std::regex arrow("data-from=\"([a-z/]+)\" data-to=\"([a-z/]+)\"");
    for (std::sregex_iterator at(picture.begin(), picture.end(), arrow), end; at != end; ++at) {
        arrows.insert((*at)[1].str() + " -> " + (*at)[2].str());
    }
    EXPECT_THAT(arrows, testing::SizeIs(14));
    EXPECT_EQ(arrows, arrowsOfTheTable());
}

TEST(Drawings, OfTheHeadNamesWhatDrivesItAndTheBlocksOfItsFpga) {
    const std::string picture = document("head.svg");
    for (const char* name :
         {"/dev/gpiochip0", "/dev/i2c-1", "/dev/spidev1.0", "/dev/mem", "PS_1.2V_EN",
          "PS_3.3SVDD_EN", "PS_3.3AVDDH_EN", "RESET_B", "EXT_TRIG_EN", "VDD1.2", "VDD3.3SVDD",
          "VDD3.3AVDDH", "ADS7828 at 0x49", "SPI-CS, SPI-CLK, SPI-MOSI", "FRAME-START",
          "12 lanes"}) {
        EXPECT_THAT(picture, testing::HasSubstr(name));
    }
    const std::string registers = sim::registersMarkdown();
    for (const auto& [block, address] :
         {std::pair{"Clock generator", "0xFF204000"}, std::pair{"Frame control", "0xFF210000"},
          std::pair{"Frame-start pulses", "0xFF211000"}, std::pair{"Bad pixels", "0xFF215000"},
          std::pair{"Pixel shift", "0xFF217000"}}) {
        EXPECT_THAT(picture, testing::ContainsRegex(std::string(">") + block +
                                                    "</text>\n<text[^>]*>" + address + "<"));
        EXPECT_THAT(registers, testing::HasSubstr(address));
    }
}

} // namespace

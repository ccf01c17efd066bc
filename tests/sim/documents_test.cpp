// The documents that follow from tables are the tables' present state.

#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

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

} // namespace

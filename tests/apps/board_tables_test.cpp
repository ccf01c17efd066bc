// Tables that lie beside a plug-in: registers and settings.

#include <fstream>
#include <stdexcept>

#include <gmock/gmock.h>

#include "apps/registers/register_table.h"
#include "apps/settings/settings_table.h"
#include "apps/tables/beside.h"
#include "tests/apps/camhost_fixture.h"
#include "tests/support/temporary_directory.h"

using registers::tcRegisterTable;
using settings::tcSettingsTable;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kRegisters = R"({"format": 1, "sensor": {"fields": [
  {"name": "low", "address": "0x0D8", "low_bit": 0, "bits": 4, "meaning": "the low bits [lines]"},
  {"name": "high", "address": "0x0D8", "low_bit": 16, "bits": 1, "meaning": "a switch"},
  {"name": "alone", "address": "0x011", "low_bit": 4, "bits": 28, "meaning": "the upper bits"},
  {"name": "whole", "address": "0x012", "low_bit": 0, "bits": 32, "meaning": "a word"}]}})";

constexpr const char* kSettings = R"({"format": 1, "device": "/dev/spidev7.1",
  "not_supported": ["snap", "iodir"], "reads_only": ["hbin"],
  "takes": {"roi": {"arguments": [
      {"name": "Y", "least": 0, "most": 10, "step": 2, "unit": "rows"},
      {"name": "X", "least": -3, "most": 3, "step": 1, "unit": ""}],
    "notes": ["Y is below X."]}, "trigger": {"values": ["free", "external"]}}})";

class BoardTables : public CamhostTest {
protected:
    std::string write(const std::string& text) {
        const auto path = m_folder.path() / "table.json";
        std::ofstream(path) << text;
        return path.string();
    }

    template<class Table>
    std::string complaint(const std::string& text) {
        try {
            const Table read(write(text));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no complaint";
    }

    tcTemporaryDirectory m_folder;
};

using Registers = BoardTables;
using Settings = BoardTables;

std::string withRegister(const std::string& field) {
    return R"({"format": 1, "sensor": {"fields": [)" + field + "]}}";
}

TEST_F(Registers, AFieldIsSomeBitsOfAWord) {
    const tcRegisterTable read(write(kRegisters));
    const auto* const high = read.find("high");
    ASSERT_NE(high, nullptr);
    EXPECT_EQ(high->address, 0xD8U);
    EXPECT_EQ(high->most(), 1U);
    EXPECT_EQ(high->of(0x30000), 1U);
    EXPECT_EQ(high->of(0x20000), 0U);
    EXPECT_EQ(high->in(0xFFFEFFFF, 1), 0xFFFFFFFFU);
    EXPECT_EQ(high->in(0xFFFFFFFF, 0), 0xFFFEFFFFU);
    EXPECT_EQ(read.find("whole")->most(), 0xFFFFFFFFU);
    EXPECT_EQ(read.find("whole")->in(1, 0xABCDEF01), 0xABCDEF01U);
    EXPECT_EQ(read.find("alone")->in(0xF, 1), 0x1FU);
    EXPECT_EQ(read.find("hig"), nullptr);
    EXPECT_EQ(read.fieldsOf(0xD8).size(), 2U);
    EXPECT_THAT(read.fieldsOf(0xD9), IsEmpty());
}

TEST_F(Registers, ATableThatIsNoneIsToldWithFileAndReason) {
    const std::string field = R"("meaning": "m", "name": "n")";
    EXPECT_THAT(complaint<tcRegisterTable>("{"),
                HasSubstr("table.json is no table of registers: "));
    EXPECT_THAT(complaint<tcRegisterTable>(R"({"format": 2})"), HasSubstr("its format is not 1"));
    EXPECT_THAT(complaint<tcRegisterTable>(
                    withRegister(R"({"address": "16", "low_bit": 0, "bits": 1, )" + field + "}")),
                HasSubstr("\"address\" is 0x and hexadecimal digits, not \"16\""));
    EXPECT_THAT(complaint<tcRegisterTable>(
                    withRegister(R"({"address": "0x1g", "low_bit": 0, "bits": 1, )" + field + "}")),
                HasSubstr("not \"0x1g\""));
    for (const char* const bits :
         {R"("low_bit": 0, "bits": 0)", R"("low_bit": 0, "bits": 33)",
          R"("low_bit": 31, "bits": 2)", R"("low_bit": 4294967295, "bits": 2)"})
        EXPECT_THAT(complaint<tcRegisterTable>(withRegister(
                        std::string("{") + bits + R"(, "address": "0x1", )" + field + "}")),
                    HasSubstr("field n is not within a word of 32 bits"))
            << bits;
    const std::string twice = R"({"address": "0x1", "low_bit": 31, "bits": 1, )" + field + "}";
    EXPECT_THAT(complaint<tcRegisterTable>(withRegister(twice)), "no complaint");
    EXPECT_THAT(complaint<tcRegisterTable>(withRegister(twice + "," + twice)),
                HasSubstr("two fields are called n"));
    EXPECT_THROW(tcRegisterTable("/no/such.json"), std::runtime_error);
}

TEST_F(Settings, TellWhatABoardTakes) {
    const tcSettingsTable read(write(kSettings));
    EXPECT_EQ(read.device(), "/dev/spidev7.1");
    EXPECT_EQ(read.supportOf("snap"), settings::teSupport::eNone);
    EXPECT_EQ(read.supportOf("hbin"), settings::teSupport::eReadsOnly);
    EXPECT_EQ(read.supportOf("roi"), settings::teSupport::eFull);
    EXPECT_EQ(read.takenBy("snap"), nullptr);
    EXPECT_THAT(settings::linesOf(*read.takenBy("roi")),
                ElementsAre("Y: 0 to 10 rows, in steps of 2", "X: -3 to 3", "Y is below X."));
    EXPECT_THAT(settings::linesOf(*read.takenBy("trigger")),
                ElementsAre("this board takes free, external"));
    EXPECT_THAT(read.commands(), ElementsAre("hbin", "iodir", "roi", "snap", "trigger"));
}

TEST_F(Settings, ATableThatIsNoneIsToldWithFileAndReason) {
    const std::string begin =
        R"({"format": 1, "device": "d", "not_supported": [], "reads_only": [], "takes": {"c": )"
        R"({"arguments": [{"name": "N", "unit": "", )";
    EXPECT_THAT(complaint<tcSettingsTable>("[]"),
                HasSubstr("table.json is no table of settings: "));
    EXPECT_THAT(complaint<tcSettingsTable>(R"({"format": 0})"), HasSubstr("its format is not 1"));
    EXPECT_THAT(complaint<tcSettingsTable>(R"({"format": 1})"), HasSubstr("device"));
    EXPECT_EQ(complaint<tcSettingsTable>(begin + R"("least": 2, "most": 2, "step": 2}]}}})"),
              "no complaint");
    for (const char* const range :
         {R"("least": 4, "most": 2, "step": 2)", R"("least": 0, "most": 4, "step": 0)",
          R"("least": 1, "most": 4, "step": 2)", R"("least": 0, "most": 5, "step": 2)"})
        EXPECT_THAT(complaint<tcSettingsTable>(begin + range + "}]}}}"),
                    HasSubstr("the range of N does not begin and end on its steps"))
            << range;
}

TEST_F(BoardTables, LieBesideThePlugInUnderItsName) {
    std::ofstream(m_folder.path() / "board.registers.json") << "{}";
    const std::string plugin = (m_folder.path() / "board.so").string();
    EXPECT_EQ(tables::beside(plugin, "registers"),
              (m_folder.path() / "board.registers.json").string());
    EXPECT_EQ(tables::beside(plugin, "settings"), std::nullopt);
    std::filesystem::create_directory(m_folder.path() / "board.settings.json");
    EXPECT_EQ(tables::beside(plugin, "settings"), std::nullopt) << "a folder is no table";
}

// ---- What camhost makes of them

TEST_F(BoardTables, RegistersAreReadAndWrittenByName) {
    head->knowRegisters(tcRegisterTable(write(kRegisters)));
    EXPECT_EQ(reply("peek 0xD8"), "peek 0x0D8 = 186639 (0x2D90F); low 15, high 0");
    EXPECT_EQ(reply("peek low"), "peek 0x0D8 low = 15 (0xF)");
    EXPECT_EQ(reply("poke high 1"),
              "poke 0x0D8 high: asked 1 (0x1), held 0 (0x0), holds 1 (0x1) (result 0: success)");
    EXPECT_EQ(reply("peek 0xD8"), "peek 0x0D8 = 252175 (0x3D90F); low 15, high 1")
        << "the other bits stay";
    EXPECT_EQ(
        reply("poke 0xD8 0x10002"),
        "poke 0x0D8: asked 65538 (0x10002), held 252175 (0x3D90F), holds 65538 (0x10002); low "
        "2, high 1 (result 0: success)");
    EXPECT_EQ(reply("poke alone 5"),
              "poke 0x011 alone: asked 5 (0x5), held unknown, holds 5 (0x5) (result 0: success)");
    EXPECT_EQ(reply("peek 0x11"), "peek 0x011 = 80 (0x50); alone 5");
    EXPECT_EQ(
        reply("poke low 3 --json"),
        R"J({"command":"poke low 3","ok":true,"status":0,"reply":["poke 0x0D8 low: asked 3 (0x3), held 2 (0x2), holds 3 (0x3) (result 0: success)"],"asked":3,"fields":{"low":3,"high":1},"held":2,"register":216,"result":0,"value":3,"word":65539})J");
}

TEST_F(BoardTables, AValueThatDoesNotFitAFieldIsRefusedAndNothingIsWritten) {
    head->knowRegisters(tcRegisterTable(write(kRegisters)));
    EXPECT_EQ(refusal("poke low 16"),
              "poke: VALUE \"16\" is out of range; it takes 0 to 15; usage: "
              "poke REGISTER VALUE");
    EXPECT_EQ(refusal("poke low -1"),
              "poke: VALUE \"-1\" is out of range; it takes 0 to 15; usage: "
              "poke REGISTER VALUE");
    EXPECT_EQ(refusal("poke low 1 2"),
              "poke: unexpected argument \"2\"; usage: poke REGISTER VALUE");
    EXPECT_EQ(reply("peek low"), "peek 0x0D8 low = 15 (0xF)");
}

TEST_F(BoardTables, ANameThatIsNoneIsToldWithNamesLikeIt) {
    EXPECT_EQ(refusal("peek low"), "peek: REGISTER \"low\" is not a number, decimal or after 0x "
                                   "hexadecimal; usage: peek REGISTER");
    head->knowRegisters(tcRegisterTable(write(kRegisters)));
    EXPECT_EQ(
        refusal("peek lo"),
        "peek: REGISTER \"lo\" is no number and no name of a field; did you mean low or alone?; "
        "\"registers\" lists the names; usage: peek REGISTER");
    EXPECT_EQ(refusal("peek nothing"),
              "peek: REGISTER \"nothing\" is no number and no name of a field; \"registers\" lists "
              "the names; usage: peek REGISTER");
    EXPECT_EQ(refusal("peek 2147483648"), "peek: REGISTER \"2147483648\" is out of range; it takes "
                                          "-2147483648 to 2147483647; usage: peek REGISTER");
}

TEST_F(BoardTables, RegistersAreListed) {
    EXPECT_EQ(refusal("registers"), "registers: the plug-in brought no table of its registers; use "
                                    "addresses with \"peek\" and \"poke\"");
    head->knowRegisters(tcRegisterTable(write(kRegisters)));
    EXPECT_EQ(reply("registers lo"), "0x0D8 3:0 low: the low bits [lines]\n"
                                     "0x011 31:4 alone: the upper bits");
    EXPECT_EQ(reply("registers high"), "0x0D8 16 high: a switch");
    EXPECT_EQ(reply("registers x"), "no field's name holds \"x\"");
}

TEST_F(BoardTables, NamesAreCompleted) {
    head->knowRegisters(tcRegisterTable(write(kRegisters)));
    EXPECT_THAT(executor->completions("peek "), ElementsAre("alone", "high", "low", "whole"));
    EXPECT_THAT(executor->completions("poke l"), ElementsAre("low"));
    EXPECT_THAT(executor->completions("poke low "), IsEmpty());
}

TEST_F(BoardTables, HelpTellsWhatTheBoardTakes) {
    head->knowSettings(tcSettingsTable(write(kSettings)));
    EXPECT_EQ(reply("help roi"), "roi [Y X WIDTH HEIGHT]\n"
                                 "  rectangle that is read out [binned rows, pixels]\n"
                                 "  Y: 0 to 10 rows, in steps of 2\n"
                                 "  X: -3 to 3\n"
                                 "  Y is below X.\n"
                                 "  example: roi\n"
                                 "  example: roi 0 0 2592 2056");
    EXPECT_EQ(reply("help snap"), "snap\n  take a single frame (not supported by this board)");
    EXPECT_EQ(reply("help hbin"),
              "hbin [FACTOR]\n"
              "  columns that make one column of the image (this board tells it "
              "only)");
    const std::string all = reply("help");
    EXPECT_THAT(all, HasSubstr("take a single frame (not supported by this board)\n"));
    EXPECT_THAT(all, HasSubstr("exposure time [us]\n"));
}

TEST_F(BoardTables, HelpTellsTheBoundsThatHoldNow) {
    EXPECT_EQ(reply("help exposure"),
              "exposure [MICROSECONDS]\n"
              "  exposure time [us]\n"
              "  The board limits it to what the frame allows and rounds it to whole lines.\n"
              "  Now below the frame interval of 100000 us.\n"
              "  example: exposure 20000");
    run("interval 50000");
    EXPECT_THAT(reply("help exposure"),
                HasSubstr("\n  Now below the frame interval of 50000 us.\n"));
    EXPECT_THAT(reply("help interval"),
                HasSubstr("\n  Now at least 12340 us, or pictures lose their last rows.\n"));
}

TEST_F(BoardTables, FilesAreCompletedWhereTheyMayBeNamed) {
    const std::string folder = m_folder.path().string() + "/";
    for (const char* const name : {"a.settings", "b.settings", ".hidden", "with blank"})
        std::ofstream(folder + name) << "x";
    std::filesystem::create_directory(folder + "albums");
    EXPECT_THAT(executor->completions("load " + folder),
                ElementsAre(folder + "a.settings", folder + "albums/", folder + "b.settings"));
    EXPECT_THAT(executor->completions("save " + folder + "a"),
                ElementsAre(folder + "a.settings", folder + "albums/"));
    EXPECT_THAT(executor->completions("diff " + folder + "."), ElementsAre(folder + ".hidden"));
    EXPECT_THAT(executor->completions("load " + folder + "no/such/"), IsEmpty());
    EXPECT_THAT(executor->completions("load " + folder + "a.settings "), IsEmpty());
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    EXPECT_THAT(executor->completions("load b"), ElementsAre("b.settings"));
    std::filesystem::current_path(before);
}

} // namespace

#include <filesystem>
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/apps/camhost_fixture.h"
#include "tests/apps/process.h"

using testing::HasSubstr;

namespace {

struct tsExchange {
    const char* line;
    const char* reply;
};

void PrintTo(const tsExchange& exchange, std::ostream* out) {
    *out << exchange.line;
}

class CommandReply : public CamhostTest, public testing::WithParamInterface<tsExchange> {};
class CommandRefusal : public CamhostTest, public testing::WithParamInterface<tsExchange> {};
class CommandsTest : public CamhostTest {};

/// Several lines after each other, for commands that depend on each other.
class CommandSequence : public CamhostTest,
                        public testing::WithParamInterface<std::vector<tsExchange>> {};

class RollingBoardTest : public CamhostTest {
protected:
    RollingBoardTest() : CamhostTest("rolling") {}
};

TEST_F(RollingBoardTest, AnIntervalBelowTheReadoutIsWarnedOf) {
    EXPECT_EQ(
        reply("interval 12339"),
        "interval: asked 12339 us, applied 11700 us (result 0: success); warning: the readout "
        "of a frame takes 12340 us, so pictures lose their last rows; give \"interval 12340\" "
        "or more");
    EXPECT_EQ(reply("interval 12340"),
              "interval: asked 12340 us, applied 11700 us (result 0: success)");
    EXPECT_EQ(reply("interval 900000"),
              "interval: asked 900000 us, applied 900000 us (result 0: success)");
}

TEST_F(RollingBoardTest, AStepOfTheBoardIsNoBound) {
    EXPECT_EQ(reply("interval 13499"),
              "interval: asked 13499 us, applied 12600 us (result 0: success)");
}

TEST_F(RollingBoardTest, ARefusalTellsWhatHoldsNowAndTheWayBack) {
    EXPECT_EQ(reply("interval 90000"),
              "interval: asked 90000 us, applied 90000 us (result 0: success)");
    EXPECT_EQ(refusal("interval 899"),
              "interval 899 us failed, result 3: invalid argument or unknown register; interval is "
              "0 us now, exposure is 25 us now; as before with \"interval 90000\", then \"exposure "
              "30000\"; give a value that the board takes");
    EXPECT_EQ(refusal("interval 1"),
              "interval 1 us failed, result 3: invalid argument or unknown register; interval is "
              "0 us; give a value that the board takes")
        << "nothing moved";
    EXPECT_EQ(reply("interval 90000"),
              "interval: asked 90000 us, applied 90000 us (result 0: success)");
    EXPECT_EQ(reply("exposure 30000"),
              "exposure: asked 30000 us, applied 30000 us (result 0: success)");
}

} // namespace

TEST_P(CommandReply, IsExactly) {
    EXPECT_EQ(reply(GetParam().line), GetParam().reply);
}

INSTANTIATE_TEST_SUITE_P(Capture, CommandReply,
                         testing::Values(tsExchange{"init", "init: result 0: success"},
                                         tsExchange{"start", "start: result 0: success"},
                                         tsExchange{"stop", "stop: result 0: success"},
                                         tsExchange{"validate", "validate: result 0: success"},
                                         tsExchange{"reset", "reset: answer 1"},
                                         tsExchange{"capture 1",
                                                    "capture: 1 ms, result 0: success"},
                                         tsExchange{"wait 0x1", "wait: 1 ms"}));

INSTANTIATE_TEST_SUITE_P(
    Time, CommandReply,
    testing::Values(
        tsExchange{"exposure", "exposure 30000 us"},
        tsExchange{"exposure 20004",
                   "exposure: asked 20004 us, applied 20000 us (result 0: success)"},
        tsExchange{"exposure 0x64", "exposure: asked 100 us, applied 100 us (result 0: success)"},
        tsExchange{"interval", "interval 100000 us"},
        tsExchange{"interval 50000",
                   "interval: asked 50000 us, applied 50000 us (result 0: success)"},
        tsExchange{"exposure 200000", "exposure: asked 200000 us, applied 100000 us, limited by "
                                      "the frame interval of 100000 us (result 0: success)"},
        tsExchange{"exposure 100000",
                   "exposure: asked 100000 us, applied 100000 us (result 0: success)"},
        tsExchange{"interval 12339", "interval: asked 12339 us, applied 12340 us, limited by the "
                                     "shortest interval of 12340 us (result 0: success)"},
        tsExchange{"interval 12345",
                   "interval: asked 12345 us, applied 12340 us (result 0: success)"},
        tsExchange{"mininterval", "mininterval 12340 us"}, tsExchange{"trigger", "trigger free"},
        tsExchange{"trigger external",
                   "trigger: asked external, applied external (result 0: success)"},
        tsExchange{"trigger 0", "trigger: asked free, applied free (result 0: success)"},
        tsExchange{"shutter", "shutter rolling"}, tsExchange{"clock", "clock 1"},
        tsExchange{"clock 0", "clock: asked 0, applied 0 (result 0: success)"},
        tsExchange{"strobe",
                   "strobe is not known: the board does not tell, and it was not set here"},
        tsExchange{"strobe 5", "strobe: asked 5 us, taken; the board does not tell (result 0: "
                               "success)"},
        tsExchange{"skipframes", "skipframes no (answer 0)"}));

INSTANTIATE_TEST_SUITE_P(
    Geometry, CommandReply,
    testing::Values(
        tsExchange{"roi", "roi [y: 0, x: 0, width: 2592, height: 2056]"},
        tsExchange{"roi 2 24 240 20",
                   "roi: asked [y: 2, x: 24, width: 240, height: 20], applied [y: 2, x: 24, width: "
                   "240, height: 20] (result 0: success)"},
        tsExchange{"imageroi", "imageroi [y: 0, x: 0, width: 2592, height: 2056]"},
        tsExchange{"regions", "regions 1 of at most 4\nregion 0 [y: 0, x: 0, width: 0, height: 0]"},
        tsExchange{"regions 1", "regions: 1 programmed, image [y: 0, x: 0, width: 2592, height: "
                                "2056] (result 0: success)"},
        tsExchange{"region 3", "region 3 [y: 0, x: 0, width: 0, height: 0]"},
        tsExchange{"vbin", "vbin 1"},
        tsExchange{"vbin 2", "vbin: asked 2, taken; the board tells 1 (result 0: success)"},
        tsExchange{"hbin", "hbin 1"}, tsExchange{"mirror", "mirror h off\nmirror v off"},
        tsExchange{"mirror h", "mirror h off"},
        tsExchange{"mirror v on", "mirror: asked v on, applied v on (result 0: success)"}));

INSTANTIATE_TEST_SUITE_P(
    Pixels, CommandReply,
    testing::Values(
        tsExchange{"bpp", "bpp is not known: the board does not tell, and it was not set here"},
        tsExchange{"bpp 12bit", "bpp: asked 12bit, taken; the board does not tell (result 0: "
                                "success)"},
        tsExchange{"packing", "packing 12 bits, right-aligned in 16"},
        tsExchange{"color on", "color: asked on, taken; the board does not tell (result 0: "
                               "success)"},
        tsExchange{"pattern", "pattern off"},
        tsExchange{"pattern sensor2",
                   "pattern: asked sensor2, applied sensor2 (result 0: success)"},
        tsExchange{"pattern 16", "pattern: asked sensor1, applied sensor1 (result 0: success)"},
        tsExchange{"gain", "gain 0"},
        tsExchange{"gain 3", "gain: asked 3, applied 3 (result 0: success)"},
        tsExchange{"white", "white 100 100 100"},
        tsExchange{"white 1 2 3", "white: asked 1 2 3, applied 1 2 3 (result 0: success)"}));

INSTANTIATE_TEST_SUITE_P(
    Identity, CommandReply,
    testing::Values(
        tsExchange{"version", "version \"FAKE 1.0\"\nfpga 1.2a"},
        tsExchange{"camera", "camera FAKE by Nobody, 2592 x 2056 pixels, full frame [y: 0, x: 0, "
                             "width: 2592, height: 2056], flags 0x0"},
        tsExchange{"temperature", "temperature 0: \"41\", sensor 41 C, board not measured"},
        tsExchange{"temperature 1", "temperature 1: \"-275\", sensor 41 C, board not measured"},
        tsExchange{"status", "capturing no\n"
                             "exposure 30000 us\n"
                             "interval 100000 us, at least 12340 us\n"
                             "roi [y: 0, x: 0, width: 2592, height: 2056]\n"
                             "image [y: 0, x: 0, width: 2592, height: 2056]\n"
                             "trigger free\n"
                             "clock 1\n"
                             "test pattern 0"},
        tsExchange{"saveslot 0", "saveslot 0: result 0: success"}));

INSTANTIATE_TEST_SUITE_P(
    Registers, CommandReply,
    testing::Values(
        tsExchange{"peek 0x0D8", "peek 0x0D8 = 186639 (0x2D90F)"},
        tsExchange{"peek 216", "peek 0x0D8 = 186639 (0x2D90F)"},
        tsExchange{"poke 0x10 -1", "poke 0x010: asked 4294967295 (0xFFFFFFFF), held unknown, holds "
                                   "4294967295 (0xFFFFFFFF) (result 0: success)"},
        tsExchange{"regfile write 0x50000 7",
                   "0x50000: asked 7 (0x7), holds 7 (0x7), nobody acts on it"},
        tsExchange{"regfile write exposure 205",
                   "0x3A004 exposure: asked 205 (0xCD), holds 200 (0xC8), taken by the "
                   "board"},
        tsExchange{"regfile write bad_pixel_apply 1",
                   "0x3A074 bad_pixel_apply: asked 1 (0x1), holds 1 (0x1), taken by the "
                   "board"},
        tsExchange{"regfile dump 0x90000 0x90010", "regfile holds nothing there"}));

INSTANTIATE_TEST_SUITE_P(
    Pins, CommandReply,
    testing::Values(tsExchange{"pins", "pins 2"}, tsExchange{"iodir 0", "iodir 0 in"},
                    tsExchange{"iodir 1 out", "iodir 1: asked out (result 0: success)"},
                    tsExchange{"iovalue 0", "iovalue 0 0"},
                    tsExchange{"iovalue 0 1", "iovalue 0: asked 1 (result 0: success)"},
                    tsExchange{"ioinvert 0 on", "ioinvert 0: asked on (result 0: success)"}));

INSTANTIATE_TEST_SUITE_P(
    Program, CommandReply,
    testing::Values(tsExchange{"help wait", "wait MILLISECONDS\n  do nothing for so long [ms]\n  "
                                            "example: wait 100"},
                    tsExchange{"help FAKE", "FAKE\n  a keyword of the plug-in, passed on with its "
                                            "arguments as they are"}));

TEST_P(CommandRefusal, IsExactly) {
    EXPECT_EQ(refusal(GetParam().line), GetParam().reply);
}

INSTANTIATE_TEST_SUITE_P(
    Board, CommandRefusal,
    testing::Values(
        tsExchange{"exposure 1000001",
                   "exposure 1000001 us failed, result 3: invalid argument or unknown register; "
                   "exposure is 30000 us; give a value that the board takes"},
        tsExchange{"shutter global",
                   "shutter global failed, result 7: not supported by this board; shutter is "
                   "rolling; leave it out: the board has nothing of the kind"},
        tsExchange{"trigger 2", "trigger 2 failed, result 3: invalid argument or unknown register; "
                                "trigger is free; give a value that the board takes"},
        tsExchange{"roi 0 1 24 2",
                   "roi [y: 0, x: 1, width: 24, height: 2] failed, result 3: invalid argument or "
                   "unknown register; roi is [y: 0, x: 0, width: 2592, height: 2056]; give a value "
                   "that the board takes"},
        tsExchange{"vbin 3", "vbin 3 failed, result 3: invalid argument or unknown register; vbin "
                             "is 1; give a value that the board takes"},
        tsExchange{"hbin 2", "hbin 2 failed, result 7: not supported by this board; hbin is 1; "
                             "leave it out: the board has nothing of the kind"},
        tsExchange{"bpp 10bit", "bpp 10bit failed, result 4: validation failed or mode not "
                                "supported; choose another mode"},
        tsExchange{"power on", "power on failed, result 7: not supported by this board; leave it "
                               "out: the board has nothing of the kind"},
        tsExchange{"gamma",
                   "gamma failed, result 7: not supported by this board; leave it out: the "
                   "board has nothing of the kind"},
        tsExchange{"white -1 0 0", "white -1 0 0 failed, result 3: invalid argument or unknown "
                                   "register; white is 100 100 100; give a value that the board "
                                   "takes"},
        tsExchange{"peek 0x123", "peek 0x123 failed, result 3: invalid argument or unknown "
                                 "register; give a value that the board takes"},
        tsExchange{"poke 0x10000 1", "poke 0x10000 = 1 (0x1) failed, result 3: invalid argument or "
                                     "unknown register; give a value that the board takes"},
        tsExchange{"iodir 2", "iodir 2 failed: the board has no such pin; \"pins\" tells how many "
                              "it has"},
        tsExchange{"iodir 2 in", "iodir 2 in failed, result 3: invalid argument or unknown "
                                 "register; give a value that the board takes"},
        tsExchange{"recallslot 1", "recallslot 1 failed, result 7: not supported by this board; "
                                   "leave it out: the board has nothing of the kind"},
        tsExchange{"snap", "snap failed, result 7: not supported by this board; leave it out: the "
                           "board has nothing of the kind"},
        tsExchange{"regfile read 0x70000",
                   "regfile 0x70000 holds nothing: nobody has written it; \"regfile dump\" lists "
                   "what there is"}));

INSTANTIATE_TEST_SUITE_P(
    Arguments, CommandRefusal,
    testing::Values(
        tsExchange{"exposure -1", "exposure: MICROSECONDS \"-1\" is out of range; it takes 0 to "
                                  "2147483647; usage: exposure [MICROSECONDS]"},
        tsExchange{"exposure 1 2",
                   "exposure: unexpected argument \"2\"; usage: exposure [MICROSECONDS]"},
        tsExchange{"exposure abc", "exposure: MICROSECONDS \"abc\" is not a number, decimal or "
                                   "after 0x hexadecimal; usage: exposure [MICROSECONDS]"},
        tsExchange{"mininterval 5", "mininterval: unexpected argument \"5\"; usage: mininterval"},
        tsExchange{"trigger sometimes",
                   "trigger: free|external \"sometimes\" is not known; it takes free, external, or "
                   "a number from 0 to 2147483647; usage: trigger [free|external]"},
        tsExchange{"roi 1 2 3", "roi: HEIGHT is missing; usage: roi [Y X WIDTH HEIGHT]"},
        tsExchange{"regions 5", "regions: COUNT \"5\" is out of range; it takes 1 to 4; usage: "
                                "regions [COUNT]"},
        tsExchange{"region 4", "region: INDEX \"4\" is out of range; it takes 0 to 3; usage: "
                               "region INDEX [Y X WIDTH HEIGHT]"},
        tsExchange{"mirror x", "mirror: h|v \"x\" is not known; it takes h, v, or a number from 0 "
                               "to 1; usage: mirror [h|v [on|off]]"},
        tsExchange{"wait", "wait: MILLISECONDS is missing; usage: wait MILLISECONDS"},
        tsExchange{"wait 86400001",
                   "wait: MILLISECONDS \"86400001\" is out of range; it takes 0 to "
                   "86400000; usage: wait MILLISECONDS"},
        tsExchange{"info json", "info: unexpected argument \"json\"; usage: info"},
        tsExchange{"help nobody",
                   "help: COMMAND \"nobody\" is not known; \"help\" lists all; usage: help "
                   "[COMMAND]"},
        tsExchange{"regfile read here",
                   "regfile: WORD \"here\" is no address, 0 to 0xFFFFFFFF, and no name of a word; "
                   "\"regfile names\" lists the names; usage: regfile read WORD | write WORD VALUE "
                   "| dump [FROM [TO]] | names"},
        tsExchange{"ioinvert 0", "ioinvert: on|off is missing; usage: ioinvert PIN on|off"}));

TEST_P(CommandSequence, RepliesExactly) {
    for (const tsExchange& exchange : GetParam())
        EXPECT_EQ(run(exchange.line).text, exchange.reply) << exchange.line;
}

INSTANTIATE_TEST_SUITE_P(
    Settings, CommandSequence,
    testing::Values(
        std::vector<tsExchange>{
            {"interval 1000000",
             "interval: asked 1000000 us, applied 1000000 us (result 0: success)"},
            {"exposure 900000", "exposure: asked 900000 us, applied 700000 us, limited by the "
                                "sensor's range (result 0: success)"},
            {"exposure 700009",
             "exposure: asked 700009 us, applied 700000 us (result 0: success)"}},
        std::vector<tsExchange>{
            {"start", "start: result 0: success"},
            {"start", "start failed, result 6: serial link or pipeline failure; see the board's "
                      "lines above; end a running capture, or run \"init\" again"},
            {"roi 0 0 24 2",
             "roi [y: 0, x: 0, width: 24, height: 2] failed, result 5: refused while capturing; "
             "roi "
             "is [y: 0, x: 0, width: 2592, height: 2056]; end the capture with \"stop\" first"},
            {"regions 2", "regions 2 failed, result 5: refused while capturing; end the capture "
                          "with \"stop\" first"},
            {"stop", "stop: result 0: success"},
            {"clock 0", "clock: asked 0, applied 0 (result 0: success)"}},
        std::vector<tsExchange>{
            {"regfile write bad_pixel_apply 1", "0x3A074 bad_pixel_apply: asked 1 (0x1), holds 1 "
                                                "(0x1), taken by the board"},
            {"regfile write bad_pixel_apply 2",
             "regfile 0x3A074 bad_pixel_apply = 2 (0x2) was refused by the board, status 0x8FFF; "
             "holds 1 (0x1); give a value that the board takes"}},
        std::vector<tsExchange>{
            {"bpp 8bit", "bpp: asked 8bit, taken; the board does not tell (result 0: success)"},
            {"bpp", "bpp 8bit (as it was set; the board does not tell)"},
            {"packing", "packing 8 bits"},
            {"bpp 10bit", "bpp 10bit failed, result 4: validation failed or mode not supported; "
                          "choose another mode"},
            {"bpp", "bpp 8bit (as it was set; the board does not tell)"},
            {"init", "init: result 0: success"},
            {"bpp", "bpp is not known: the board does not tell, and it was not set here"}},
        std::vector<tsExchange>{
            {"vbin 2", "vbin: asked 2, taken; the board tells 1 (result 0: success)"},
            {"vbin", "vbin 2 (as it was set; the board tells 1)"}},
        std::vector<tsExchange>{
            {"region 0 100 0 240 10",
             "region 0 [y: 100, x: 0, width: 240, height: 10]; \"regions COUNT\" programs it"},
            {"region 1 40 0 240 20",
             "region 1 [y: 40, x: 0, width: 240, height: 20]; \"regions COUNT\" programs it"},
            {"regions 2", "regions: 2 programmed, image [y: 0, x: 0, width: 2592, height: 2056] "
                          "(result 0: success)"},
            {"regions", "regions 2 of at most 4\nregion 0 [y: 100, x: 0, width: 240, height: "
                        "10]\nregion 1 [y: 40, x: 0, width: 240, height: 20]"},
            {"regions 3", "regions 3 failed, result 3: invalid argument or unknown register; "
                          "regions is 2; give a value that the board takes"},
            {"regions", "regions 2 of at most 4\nregion 0 [y: 100, x: 0, width: 240, height: "
                        "10]\nregion 1 [y: 40, x: 0, width: 240, height: 20]"}}));

TEST_F(CommandsTest, DumpShowsWhatBoardsPublish) {
    reply("init");
    const std::string dump = reply("regfile dump frame_interval exposure");
    EXPECT_EQ(dump, "0x3A000 frame_interval = 100000 (0x186A0)\n0x3A004 exposure = 30000 (0x7530)");
    EXPECT_EQ(reply("regfile read exposure"), "0x3A004 exposure = 30000 (0x7530)");
}

TEST_F(CommandsTest, NamesListsTheWords) {
    EXPECT_THAT(reply("regfile names"),
                HasSubstr("0x3C020 min_frame_interval: shortest frame interval [us]\n"));
}

TEST_F(CommandsTest, InfoTellsEverythingInWords) {
    EXPECT_EQ(reply("info"), "sensor type 42\n"
                             "camera FAKE by Nobody, 2592 x 2056 pixels\n"
                             "version \"FAKE 1.0\"\n"
                             "pins 2\n"
                             "pixel format 0\n"
                             "keywords CLKS FAKE FAKE2\n"
                             "supplies not told yet\n"
                             "link not told yet\n"
                             "capturing no\n"
                             "exposure 30000 us\n"
                             "interval 100000 us, at least 12340 us\n"
                             "roi [y: 0, x: 0, width: 2592, height: 2056]\n"
                             "image [y: 0, x: 0, width: 2592, height: 2056]\n"
                             "trigger free\n"
                             "clock 1\n"
                             "test pattern 0");
}

TEST_F(CommandsTest, InfoTellsSuppliesAndLinkAsTheBoardPrintedThem) {
    reply("init");
    EXPECT_THAT(reply("info"), HasSubstr("\nsupply VFAKE 3.250 V\n"
                                         "link Fake lock: 0x5, lanes 0 2\n"
                                         "lanes locked at best 0 2\n"
                                         "capturing no\n"));
    const auto json = nlohmann::json::parse(reply("info --json"));
    EXPECT_EQ(json.at("supplies_volts"), (nlohmann::json{{"VFAKE", 3.25}}));
    EXPECT_EQ(json.at("link").at("lanes_locked"), (nlohmann::json{0, 2}));
    EXPECT_EQ(json.at("link").at("lanes_locked_by_attempt"), (nlohmann::json{{0, 2}}));
    EXPECT_EQ(json.at("link").at("told"), (nlohmann::json{"Fake lock: 0x5"}));
}

TEST_F(CommandsTest, InfoTellsEverythingInJson) {
    const auto json = nlohmann::json::parse(reply("info --json"));
    EXPECT_EQ(json.at("sensor_type"), 42);
    EXPECT_EQ(json.at("camera").at("model"), "FAKE");
    EXPECT_EQ(json.at("camera").at("full_frame").at("width"), 2592);
    EXPECT_EQ(json.at("version"), "\"FAKE 1.0\"");
    EXPECT_EQ(json.at("keywords"), (nlohmann::json{"CLKS", "FAKE", "FAKE2"}));
    EXPECT_EQ(json.at("regions"), 4);
    EXPECT_EQ(json.at("supplies_volts"), nlohmann::json::object());
    EXPECT_EQ(json.at("link").at("lanes_locked"), nullptr);
    EXPECT_EQ(json.at("link").at("told"), nlohmann::json::array());
    EXPECT_EQ(json.at("state").at("exposure_us"), 30000);
    EXPECT_EQ(json.at("state").at("clock"), 1);
    EXPECT_EQ(json.at("state").at("mirror_vertical"), false);
    EXPECT_EQ(json.at("state").at("temperature_board_celsius"), nullptr);
}

TEST_F(CommandsTest, EveryExampleOfTheHelpIsUnderstood) {
    // "save my.settings" leaves its file in the working directory.
    const tcFolder folder;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    head->knowRegisters(registers::tcRegisterTable(HEAD_REGISTERS));
    for (const camhost::tsCommand& command : table.commands()) {
        for (const std::string& example : command.examples) {
            EXPECT_TRUE(example == command.name || example.starts_with(command.name + " "))
                << example;
            const camhost::tsReply got = run(example);
            // A board may refuse it; the program does not.
            EXPECT_EQ(got.text.find("usage:"), std::string::npos) << example << ": " << got.text;
        }
    }
    std::filesystem::current_path(before);
}

TEST_F(CommandsTest, HelpListsTheKeywordsOfThePlugIn) {
    EXPECT_THAT(reply("help"), HasSubstr("Keywords of the plug-in, passed on as they are:\n"
                                         "  CLKS\n  FAKE\n  FAKE2"));
}

#include <gmock/gmock.h>

#include "apps/camhost/reply_json.h"
#include "tests/apps/camhost_fixture.h"
#include "tests/support/temporary_directory.h"

using camhost::teExit;
using camhost::tsReply;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct tsExchangeInJson {
    const char* line; // without "--json"
    const char* reply;
};

void PrintTo(const tsExchangeInJson& exchange, std::ostream* out) {
    *out << exchange.line;
}

class JsonReply : public CamhostTest, public testing::WithParamInterface<tsExchangeInJson> {};
class JsonTest : public CamhostTest {};
class RollingBoardJsonTest : public CamhostTest {
protected:
    RollingBoardJsonTest() : CamhostTest("rolling") {}
};

TEST_P(JsonReply, IsExactlyOneObjectOnALine) {
    const tsReply got = run(std::string(GetParam().line) + " --json");
    EXPECT_EQ(got.text, GetParam().reply);
    EXPECT_TRUE(got.json);
}

#define NOT_SUPPORTED "not supported by this board; leave it out: the board has nothing of the kind"

INSTANTIATE_TEST_SUITE_P(
    Commands, JsonReply,
    testing::Values(tsExchangeInJson{"init",
                                     R"J({"command":"init","ok":true,"status":0,"reply":["init: result 0: success"],"result":0})J"},
                    tsExchangeInJson{
                        "capture 1",
                        R"J({"command":"capture 1","ok":true,"status":0,"reply":["capture: 1 ms, result 0: success"],"ended_early":false,"milliseconds":1,"result":0})J"},
                    tsExchangeInJson{
                        "wait 0x1",
                        R"J({"command":"wait 0x1","ok":true,"status":0,"reply":["wait: 1 ms"],"milliseconds":1})J"},
                    tsExchangeInJson{
                        "reset",
                        R"J({"command":"reset","ok":true,"status":0,"reply":["reset: answer 1"],"answer":1})J"},
                    tsExchangeInJson{
                        "power on",
                        R"J({"command":"power on","ok":false,"status":6,"error":["power on failed, result 7: )J" NOT_SUPPORTED
                        R"J("],"asked":"on","result":7})J"},
                    tsExchangeInJson{
                        "snap",
                        R"J({"command":"snap","ok":false,"status":6,"error":["snap failed, result 7: )J" NOT_SUPPORTED
                        R"J("],"result":7})J"},
                    tsExchangeInJson{
                        "exposure",
                        R"J({"command":"exposure","ok":true,"status":0,"reply":["exposure 30000 us"],"told_by":"board","unit":"us","value":30000})J"},
                    tsExchangeInJson{
                        "exposure 200000",
                        R"J({"command":"exposure 200000","ok":true,"status":0,"reply":["exposure: asked 200000 us, applied 100000 us, limited by the frame interval of 100000 us (result 0: success)"],"applied":100000,"asked":200000,"limited_by":"the frame interval of 100000 us","result":0,"unit":"us"})J"},
                    tsExchangeInJson{
                        "exposure -5",
                        R"J({"command":"exposure -5","ok":false,"status":6,"error":["exposure: MICROSECONDS \"-5\" is out of range; it takes 0 to 2147483647; usage: exposure [MICROSECONDS]"]})J"},
                    tsExchangeInJson{
                        "trigger external",
                        R"J({"command":"trigger external","ok":true,"status":0,"reply":["trigger: asked external, applied external (result 0: success)"],"applied":"external","asked":"external","result":0})J"},
                    tsExchangeInJson{
                        "strobe",
                        R"J({"command":"strobe","ok":true,"status":0,"reply":["strobe is not known: the board does not tell, and it was not set here"],"value":null})J"},
                    tsExchangeInJson{
                        "vbin 2",
                        R"J({"command":"vbin 2","ok":true,"status":0,"reply":["vbin: asked 2, taken; the board tells 1 (result 0: success)"],"applied":null,"asked":2,"result":0})J"},
                    tsExchangeInJson{
                        "roi 2 24 240 20",
                        R"J({"command":"roi 2 24 240 20","ok":true,"status":0,"reply":["roi: asked [y: 2, x: 24, width: 240, height: 20], applied [y: 2, x: 24, width: 240, height: 20] (result 0: success)"],"applied":{"y":2,"x":24,"width":240,"height":20},"asked":{"y":2,"x":24,"width":240,"height":20},"result":0})J"},
                    tsExchangeInJson{
                        "roi",
                        R"J({"command":"roi","ok":true,"status":0,"reply":["roi [y: 0, x: 0, width: 2592, height: 2056]"],"roi":{"y":0,"x":0,"width":2592,"height":2056}})J"},
                    tsExchangeInJson{"imageroi", R"J({"command":"imageroi","ok":true,"status":0,"reply":["imageroi [y: 0, x: 0, width: 2592, height: 2056]"],"image":{"y":0,"x":0,"width":2592,"height":2056}})J"}, tsExchangeInJson{"regions", R"J({"command":"regions","ok":true,"status":0,"reply":["regions 1 of at most 4","region 0 [y: 0, x: 0, width: 0, height: 0]"],"at_most":4,"entries":[{"y":0,"x":0,"width":0,"height":0},{"y":0,"x":0,"width":0,"height":0},{"y":0,"x":0,"width":0,"height":0},{"y":0,"x":0,"width":0,"height":0}],"regions":1})J"},
                    tsExchangeInJson{
                        "regions 2",
                        R"J({"command":"regions 2","ok":false,"status":6,"error":["regions 2 failed, result 3: invalid argument or unknown register; regions is 1; give a value that the board takes"],"asked":2,"regions":1,"result":3})J"},
                    tsExchangeInJson{
                        "region 0 2 24 240 20",
                        R"J({"command":"region 0 2 24 240 20","ok":true,"status":0,"reply":["region 0 [y: 2, x: 24, width: 240, height: 20]; \"regions COUNT\" programs it"],"index":0,"region":{"y":2,"x":24,"width":240,"height":20}})J"},
                    tsExchangeInJson{
                        "mirror",
                        R"J({"command":"mirror","ok":true,"status":0,"reply":["mirror h off","mirror v off"],"horizontal":false,"vertical":false})J"},
                    tsExchangeInJson{
                        "mirror v on",
                        R"J({"command":"mirror v on","ok":true,"status":0,"reply":["mirror: asked v on, applied v on (result 0: success)"],"asked":true,"result":0,"vertical":true})J"},
                    tsExchangeInJson{
                        "white 1 2 3",
                        R"J({"command":"white 1 2 3","ok":true,"status":0,"reply":["white: asked 1 2 3, applied 1 2 3 (result 0: success)"],"applied":{"red":1,"green":2,"blue":3},"asked":{"red":1,"green":2,"blue":3},"result":0})J"},
                    tsExchangeInJson{
                        "packing",
                        R"J({"command":"packing","ok":true,"status":0,"reply":["packing 12 bits, right-aligned in 16"],"packing":"12 bits, right-aligned in 16"})J"},
                    tsExchangeInJson{"version", R"J({"command":"version","ok":true,"status":0,"reply":["version \"FAKE 1.0\"","fpga 1.2a"],"fpga_version":"1.2a","version":"\"FAKE 1.0\""})J"}, tsExchangeInJson{"camera", R"J({"command":"camera","ok":true,"status":0,"reply":["camera FAKE by Nobody, 2592 x 2056 pixels, full frame [y: 0, x: 0, width: 2592, height: 2056], flags 0x0"],"flags":0,"full_frame":{"y":0,"x":0,"width":2592,"height":2056},"maker":"Nobody","model":"FAKE","sensor_height_rows":2056,"sensor_width_pixels":2592})J"}, tsExchangeInJson{"temperature 1", R"J({"command":"temperature 1","ok":true,"status":0,"reply":["temperature 1: \"-275\", sensor 41 C, board not measured"],"board_celsius":null,"index":1,"sensor_celsius":41,"told":"-275"})J"},
                    tsExchangeInJson{
                        "saveslot 0",
                        R"J({"command":"saveslot 0","ok":true,"status":0,"reply":["saveslot 0: result 0: success"],"result":0,"slot":0})J"},
                    tsExchangeInJson{
                        "pins",
                        R"J({"command":"pins","ok":true,"status":0,"reply":["pins 2"],"pins":2})J"},
                    tsExchangeInJson{
                        "iodir 0",
                        R"J({"command":"iodir 0","ok":true,"status":0,"reply":["iodir 0 in"],"pin":0,"value":"in"})J"},
                    tsExchangeInJson{
                        "iodir 0 out",
                        R"J({"command":"iodir 0 out","ok":true,"status":0,"reply":["iodir 0: asked out (result 0: success)"],"asked":"out","pin":0,"result":0})J"},
                    tsExchangeInJson{
                        "iovalue 5",
                        R"J({"command":"iovalue 5","ok":false,"status":6,"error":["iovalue 5 failed: the board has no such pin; \"pins\" tells how many it has"],"pin":5})J"},
                    tsExchangeInJson{
                        "peek 0xD8",
                        R"J({"command":"peek 0xD8","ok":true,"status":0,"reply":["peek 0x0D8 = 186639 (0x2D90F)"],"register":216,"result":0,"value":186639,"word":186639})J"},
                    tsExchangeInJson{
                        "poke 0x10 -1",
                        R"J({"command":"poke 0x10 -1","ok":true,"status":0,"reply":["poke 0x010: asked 4294967295 (0xFFFFFFFF), held unknown, holds 4294967295 (0xFFFFFFFF) (result 0: success)"],"asked":4294967295,"held":null,"register":16,"result":0,"value":4294967295,"word":4294967295})J"},
                    tsExchangeInJson{
                        "regfile write 0x60004 7",
                        R"J({"command":"regfile write 0x60004 7","ok":true,"status":0,"reply":["0x60004: asked 7 (0x7), holds 7 (0x7), nobody acts on it"],"asked":7,"handled":false,"result":0,"value":7,"word":393220})J"},
                    tsExchangeInJson{
                        "regfile read 0x50",
                        R"J({"command":"regfile read 0x50","ok":false,"status":6,"error":["regfile 0x00050 holds nothing: nobody has written it; \"regfile dump\" lists what there is"],"value":null,"word":80})J"},
                    tsExchangeInJson{
                        "watch 1 0x50",
                        R"J({"command":"watch 1 0x50","ok":true,"status":0,"reply":["watch: 0 changes in 1 ms"],"shown":["[    0.000 s] 0x00050: nothing"],"changes":0,"milliseconds":1})J"},
                    tsExchangeInJson{
                        "CLKS",
                        R"J({"command":"CLKS","ok":true,"status":0,"reply":["<ack ^1>"],"answer":"<ack ^1>","keyword":"CLKS"})J"},
                    tsExchangeInJson{
                        "keyword FAKE a  b",
                        R"J({"command":"keyword FAKE a  b","ok":true,"status":0,"reply":["<ack>"],"answer":"<ack>","keyword":"FAKE"})J"},
                    tsExchangeInJson{
                        "help gamma",
                        R"J({"command":"help gamma","ok":true,"status":0,"reply":["gamma [PERCENT]","  gamma [%]","  example: gamma 100"],"arguments":"[PERCENT]","details":"","examples":["gamma 100"],"group":"Pixels","name":"gamma","summary":"gamma [%]","supported":true,"takes":[]})J"},
                    tsExchangeInJson{"quit",
                                     R"J({"command":"quit","ok":true,"status":0,"reply":[]})J"}));

TEST_F(JsonTest, TheRequestIsTheLastWordAndNoQuotedOne) {
    EXPECT_EQ(run("exposure --json # and a comment").text.substr(0, 21),
              R"J({"command":"exposure")J");
    EXPECT_EQ(refusal("exposure \"--json\""),
              "exposure: MICROSECONDS \"--json\" is not a number, decimal or after 0x hexadecimal; "
              "usage: exposure [MICROSECONDS]");
    EXPECT_EQ(refusal("--json"), "\"--json\" is no command and no keyword of the plug-in; \"help\" "
                                 "lists all");
    EXPECT_EQ(reply("FAKE x \"--json\""), "<ack>");
    EXPECT_EQ(reply("FAKE"), "<ack x \"--json\">");
    EXPECT_EQ(refusal("exposure 5--json").substr(0, 42),
              "exposure: MICROSECONDS \"5--json\" is not a ");
}

TEST_F(JsonTest, APersonsLineIsAnsweredInText) {
    const tsReply got = run("exposure");
    EXPECT_FALSE(got.json);
    EXPECT_EQ(got.text, "exposure 30000 us");
}

TEST_F(JsonTest, LinesBeforeAReplyAreInIt) {
    run("watch 1 0x50 --json");
    EXPECT_THAT(lines, IsEmpty());
    run("watch 1 0x50");
    EXPECT_THAT(lines, ElementsAre("[    0.000 s] 0x00050: nothing"));
}

TEST_F(JsonTest, WhoeverWantsItOnceWantsItAlways) {
    testing::internal::CaptureStderr();
    executor->answerInJson();
    EXPECT_EQ(executor->execute("pins").text,
              R"J({"command":"pins","ok":true,"status":0,"reply":["pins 2"],"pins":2})J");
    EXPECT_EQ(executor->execute("pins --json").text, executor->execute("pins").text);
    EXPECT_EQ(
        executor->execute(" pins \"x").text,
        R"J({"command":"pins \"x","ok":false,"status":6,"error":["the quote before \"x\" is not closed; end it with \""]})J");
    EXPECT_EQ(executor->execute("  # nothing").text, "");
    EXPECT_EQ(run("pins").text, "pins 2") << "not the clients of a line server";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(JsonTest, ABlankLineIsAnsweredByNothing) {
    EXPECT_EQ(run("").text, "");
}

TEST_F(RollingBoardJsonTest, ARefusalTellsWhatHoldsAndTheWayBack) {
    EXPECT_TRUE(run("interval 90000").ok());
    EXPECT_EQ(
        run("interval 899 --json").text,
        R"J({"command":"interval 899","ok":false,"status":6,"error":["interval 899 us failed, result 3: invalid argument or unknown register; interval is 0 us now, exposure is 25 us now; as before with \"interval 90000\", then \"exposure 30000\"; give a value that the board takes"],"as_before_with":["interval 90000","exposure 30000"],"asked":899,"result":3,"unit":"us","value":0})J");
}

TEST_F(RollingBoardJsonTest, AWarningIsAFact) {
    EXPECT_EQ(
        run("interval 12339 --json").text,
        R"J({"command":"interval 12339","ok":true,"status":0,"reply":["interval: asked 12339 us, applied 11700 us (result 0: success); warning: the readout of a frame takes 12340 us, so pictures lose their last rows; give \"interval 12340\" or more"],"applied":11700,"asked":12339,"result":0,"unit":"us","warning":"the readout of a frame takes 12340 us, so pictures lose their last rows; give \"interval 12340\" or more"})J");
}

TEST_F(JsonTest, FilesOfSettingsTellTheirLines) {
    const tcTemporaryDirectory folder;
    const std::string file = (folder.path() / "s").string();
    EXPECT_EQ(
        run("save " + file + " --json").text,
        R"J({"command":"save )J" + file +
            R"J(","ok":true,"status":0,"reply":["save: 11 settings in \")J" + file +
            R"J(\"; without those that the board does not tell: strobe bpp color black gamma"],"file":")J" +
            file + R"J(","not_told":["strobe","bpp","color","black","gamma"],"settings":11})J");
    run("exposure 20000");
    EXPECT_EQ(
        run("diff " + file + " --json").text,
        R"J({"command":"diff )J" + file +
            R"J(","ok":true,"status":0,"reply":["file: exposure 30000, now: exposure 20000"],"differences":[{"file":"exposure 30000","now":"exposure 20000"}],"file":")J" +
            file + R"J("})J");
    EXPECT_EQ(run("load " + file + " --json").text,
              R"J({"command":"load )J" + file +
                  R"J(","ok":true,"status":0,"reply":["load: 11 settings from \")J" + file +
                  R"J(\""],"failed":[],"file":")J" + file + R"J(","settings":11})J");
}

TEST_F(JsonTest, BytesThatAreNoTextAreReplaced) {
    EXPECT_EQ(
        run("\xFF --json").text,
        "{\"command\":\"\xEF\xBF\xBD\",\"ok\":false,\"status\":6,\"error\":[\"\\\"\xEF\xBF\xBD"
        "\\\" is no command and no keyword of the plug-in; \\\"help\\\" lists all\"]}");
}

TEST(ReplyJson, AnExplanationTellsEveryCause) {
    EXPECT_EQ(
        camhost::jsonText(camhost::explanationFacts(
            {"lanes", "link", "lane 3 did not lock", {{"a", "b"}, {"c", "d"}}})),
        R"J({"failure":"lanes","stage":"link","what":"lane 3 did not lock","causes":[{"cause":"a","measure":"b"},{"cause":"c","measure":"d"}]})J");
}

} // namespace

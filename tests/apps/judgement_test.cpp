// What an examination means, on values that no head needs to have.

#include "apps/camhost/judgement.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "apps/camhost/bring_up.h"
#include "apps/camhost/diagnosis_json.h"
#include "apps/camhost/diagnosis_tree.h"
#include "apps/camhost/examination.h"
#include "apps/camhost/reply_json.h"
#include "tests/support/temporary_directory.h"

using camhost::judge;
using camhost::teExit;
using camhost::teStage;
using camhost::teState;
using camhost::tsDevice;
using camhost::tsDiagnosis;
using camhost::tsJudgement;
using failures::tcFailureTable;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::chrono_literals;

namespace {

const tcFailureTable& shippedTable() {
    static const tcFailureTable table(HEAD_FAILURES);
    return table;
}

tsDevice goodDevice(const std::string& name, const std::string& path) {
    tsDevice device;
    device.name = name;
    device.what = "the " + name;
    device.path = path;
    device.there = device.rightKind = true;
    device.mode = 0660;
    device.ownerName = "root";
    device.group = 77;
    device.groupName = "spi";
    return device;
}

// A head of which nothing is wrong, as far as it can be seen; looked at by a user, not root.
tsDiagnosis goodHead() {
    tsDiagnosis diagnosis;
    diagnosis.plugin = "/lib/board.so";
    diagnosis.spi = "/dev/spidev1.0";
    diagnosis.folder = "/etc/camera";
    diagnosis.user = {1000, "jo", {"jo", "video"}, {1000, 44}};
    diagnosis.lanesOfHead = 12;
    diagnosis.devices = {goodDevice("port", "/dev/spidev1.0"),
                         goodDevice("chip", "/dev/gpiochip0")};
    camhost::tsControlLine line;
    line.name = "RESET_B";
    line.chip = "/dev/gpiochip0";
    line.offset = 11;
    diagnosis.lines = {line};
    diagnosis.monitor = {{"ADS7828", "/dev/i2c-1", 0x49, 0xF0}, true, 0, 0};
    camhost::tsSettingsFile file;
    file.path = "/etc/camera/registers.txt";
    file.lines = file.writes = 3;
    diagnosis.settings = file;
    return diagnosis;
}

tsJudgement judged(const tsDiagnosis& diagnosis) {
    return judge(diagnosis, &shippedTable());
}

camhost::tsBringUp goodBringUp() {
    camhost::tsBringUp bringUp;
    bringUp.supplies = {{"VDD1.2", 1.2, failures::tsLimits{1.1, 1.3}}};
    bringUp.link.flags = {{"locked", true}};
    bringUp.link.pll = {true, 1, 10ms};
    bringUp.link.locked = 0xFFF;
    bringUp.link.lanes = {true, 0, 0ms};
    bringUp.link.aligned = true;
    bringUp.timing = {30000, 99900, 27100};
    return bringUp;
}

} // namespace

// ---- Permission

TEST(Judgement, AUserWhoMayNotReadAndWriteIsToldHisGroups) {
    tsDiagnosis head = goodHead();
    head.devices[0].error = EACCES;
    const tsJudgement judgement = judged(head);
    EXPECT_EQ(judgement.status, teExit::eDevices);
    EXPECT_EQ(judgement.says,
              "jo may not read and write /dev/spidev1.0, the port: mode 0660, root:spi");
    ASSERT_EQ(judgement.causes.size(), 1U);
    EXPECT_EQ(judgement.causes[0].cause,
              "jo is in none of the groups that may: jo is in jo, video");
    EXPECT_EQ(
        judgement.causes[0].measure,
        "ls -l /dev/spidev1.0, id; if its group may: usermod -aG spi jo and log in anew; else "
        "a udev rule, or start as root");
}

TEST(Judgement, WhatTheFilesBitsPermitIsRefusedBySomebodyElse) {
    tsDiagnosis head = goodHead();
    head.devices[0].error = EPERM;
    const auto refused = [&] { return judged(head).says.starts_with("the kernel refuses "); };
    EXPECT_FALSE(refused());
    head.user.groupIds.push_back(77); // one of the group
    EXPECT_TRUE(refused());
    head.devices[0].mode = 0640;
    EXPECT_FALSE(refused());
    head.devices[0].mode = 0606; // a member of the group is not one of the others
    EXPECT_FALSE(refused());
    head.user.groupIds.pop_back();
    EXPECT_TRUE(refused());
    head.devices[0].mode = 0066;
    head.devices[0].owner = 1000; // nor is the owner
    EXPECT_FALSE(refused());
    head.devices[0].mode = 0600;
    EXPECT_TRUE(refused());
    head.devices[0] = goodDevice("port", "/dev/spidev1.0");
    head.devices[0].error = EACCES;
    head.devices[0].mode = 0;
    head.user.id = 0; // root needs no bits
    EXPECT_TRUE(refused());
}

// ---- What counts

TEST(Judgement, TheFirstStageThatIsWrongIsTheVerdict) {
    tsDiagnosis head = goodHead();
    head.monitor->error = ENXIO;
    head.settings->writes = 0;
    EXPECT_EQ(judged(head).status, teExit::eMonitor);
    head.lines[0].used = true;
    head.lines[0].consumer = "fan";
    const tsJudgement judgement = judged(head);
    EXPECT_EQ(judgement.status, teExit::eLines);
    EXPECT_EQ(judgement.stage, teStage::eLines);
    EXPECT_EQ(judgement.says, "line RESET_B (/dev/gpiochip0 line 11) is in use by \"fan\"");
    for (const teStage stage : {teStage::eLines, teStage::eMonitor, teStage::eSettings})
        EXPECT_EQ(judgement.of(stage), teState::eWrong);
    EXPECT_EQ(judgement.of(teStage::eDevices), teState::eGood);
    EXPECT_EQ(judgement.of(teStage::ePort), teState::eLeftOut);
}

TEST(Judgement, AFileThatIsNoDeviceIsNamed) {
    tsDiagnosis head = goodHead();
    head.devices[0].rightKind = false;
    head.devices[0].kind = "a regular file";
    EXPECT_EQ(judged(head).says, "/dev/spidev1.0 is a regular file, and not the port");
    EXPECT_THAT(treeOf(head, judged(head), false),
                HasSubstr("|   |-- /dev/spidev1.0, the port: there, but it is a regular file\n"));
}

// A machine has chips that are none of the head's.
TEST(Judgement, AChipThatDoesNotOpenMattersOnlyWhenALineIsMissing) {
    tsDiagnosis head = goodHead();
    head.devices.push_back(goodDevice("chip", "/dev/gpiochip1"));
    head.devices.back().error = EACCES;
    EXPECT_EQ(judged(head).status, teExit::eSuccess);
    head.lines[0].chip.clear();
    EXPECT_EQ(judged(head).status, teExit::eDevices);
    EXPECT_THAT(judged(head).says, HasSubstr("jo may not read and write /dev/gpiochip1"));
}

TEST(Judgement, TheMonitorsErrorsMeanDifferentThings) {
    tsDiagnosis head = goodHead();
    const auto name = [&](int error) {
        head.monitor->error = error;
        return judged(head).says;
    };
    EXPECT_THAT(name(ENXIO), HasSubstr("does not answer at 0x49 of /dev/i2c-1"));
    EXPECT_THAT(name(EREMOTEIO), HasSubstr("does not answer"));
    EXPECT_THAT(name(ETIMEDOUT), HasSubstr("never becomes free"));
    EXPECT_THAT(name(EAGAIN), HasSubstr("never becomes free"));
    EXPECT_THAT(name(EIO), HasSubstr("was not read to the end"));
    head.monitor->error = 0;
    head.monitor->answer = 0x0F;
    EXPECT_EQ(judged(head).status, teExit::eSuccess);
    head.monitor->answer = 0x10;
    EXPECT_THAT(judged(head).says, HasSubstr("answers with 0x10, which no ADS7828 can give"));
    head.monitor->asked = false;
    head.monitor->answer = 0;
    EXPECT_EQ(judged(head).of(teStage::eMonitor), teState::eUnknown);
}

TEST(Judgement, AnIntervalThatIsTooShortIsWrongAlthoughTheHeadComesUp) {
    tsDiagnosis head = goodHead();
    head.power = true;
    head.broughtUp = goodBringUp();
    EXPECT_EQ(judged(head).status, teExit::eSuccess);
    EXPECT_EQ(judged(head).says, "nothing is wrong with this head");
    head.broughtUp->timing->interval = 27100;
    EXPECT_EQ(judged(head).status, teExit::eSuccess) << "just long enough";
    head.broughtUp->timing->interval = 27099;
    const tsJudgement judgement = judged(head);
    EXPECT_EQ(judgement.status, teExit::eTiming);
    EXPECT_EQ(judgement.says,
              "the frame interval of 27099 us is shorter than the readout, 27100 us: "
              "pictures lose their last rows");
    EXPECT_EQ(judgement.of(teStage::eAlignment), teState::eGood);
}

TEST(Judgement, WhatABoardThrowsIsNoResult) {
    tsDiagnosis head = goodHead();
    head.power = true;
    head.broughtUp = camhost::tsBringUp{};
    head.broughtUp->thrown = "no head there";
    const tsJudgement judgement = judged(head);
    EXPECT_EQ(judgement.status, teExit::eUnexplained);
    EXPECT_EQ(judgement.says,
              "the board's initialization threw \"no head there\"; no table knows why");
    EXPECT_EQ(judgement.of(teStage::eSupplies), teState::eUnknown);
}

TEST(Judgement, WhatABoardDoesNotTellIsUnknown) {
    tsDiagnosis head = goodHead();
    head.power = true;
    head.broughtUp = camhost::tsBringUp{};
    head.broughtUp->timing = {1, 2, 2};
    const tsJudgement judgement = judged(head);
    EXPECT_EQ(judgement.status, teExit::eSuccess);
    for (const teStage stage :
         {teStage::eSupplies, teStage::ePll, teStage::eLanes, teStage::eAlignment})
        EXPECT_EQ(judgement.of(stage), teState::eUnknown);
    EXPECT_EQ(judgement.of(teStage::eFpga), teState::eGood);
}

// A table of a board that has no entry for what was seen.
TEST(Judgement, AFindingWithoutAnEntryIsToldInItsOwnWords) {
    const tcTemporaryDirectory folder;
    folder.write("board.failures.json",
                 R"({"format": 1, "lanes": 1, "blocks": {}, "supplies": {}, "failures": [],
                     "head": {"devices": [], "lines": []}})");
    const tcFailureTable table((folder.path() / "board.failures.json").string());
    tsDiagnosis head = goodHead();
    head.monitor->error = ENXIO;
    const tsJudgement judgement = judge(head, &table);
    EXPECT_EQ(judgement.status, teExit::eMonitor);
    EXPECT_EQ(judgement.says,
              "monitor-silent: address 0x49, bus /dev/i2c-1, chip ADS7828, error No such device or "
              "address, number 1; the board's table does not know why");
    EXPECT_THAT(judgement.causes, IsEmpty());
}

TEST(Judgement, EveryStageHasItsOwnStatus) {
    std::set<int> statuses;
    for (std::size_t stage = 0; stage < camhost::kStages; ++stage) {
        tsDiagnosis head = goodHead();
        head.power = true;
        head.broughtUp = camhost::tsBringUp{};
        head.broughtUp->result = 1;
        const tcTemporaryDirectory folder;
        const std::string name = nameOf(static_cast<teStage>(stage));
        folder.write("t", R"({"format": 1, "lanes": 1, "blocks": {}, "supplies": {}, "failures": [
            {"name": "n", "stage": ")" +
                              name + R"(", "when": {}, "says": "x", "causes": []}]})");
        head.devices.clear(); // of which this table says nothing
        head.lines.clear();
        const tcFailureTable table((folder.path() / "t").string());
        const tsJudgement judgement = judge(head, &table);
        EXPECT_EQ(judgement.of(static_cast<teStage>(stage)), teState::eWrong) << name;
        EXPECT_EQ(judgement.stage, static_cast<teStage>(stage)) << name;
        statuses.insert(static_cast<int>(judgement.status));
    }
    EXPECT_THAT(statuses, ElementsAre(21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31));
}

TEST(Judgement, NotRootLeavesSomethingOut) {
    tsDiagnosis head = goodHead();
    const std::string processes = "which processes of other users have a device file open: only "
                                  "root may see that";
    EXPECT_THAT(judged(head).leftOut, testing::Contains(processes));
    head.user.id = 0;
    EXPECT_THAT(judged(head).leftOut, Not(testing::Contains(processes)));
}

// ---- How it is shown

TEST(DiagnosisTree, StatesHaveColoursOnATerminal) {
    tsDiagnosis head = goodHead();
    head.lines[0].used = true;
    head.settings->repeats = {2};
    const std::string tree = treeOf(head, judged(head), true);
    EXPECT_THAT(tree, HasSubstr("|-- device files: \033[32mgood\033[0m\n"));
    EXPECT_THAT(tree, HasSubstr("|-- GPIO lines: \033[1;31mwrong\033[0m\n"));
    EXPECT_THAT(tree, HasSubstr("|-- settings file: \033[33mnoted\033[0m\n"));
    EXPECT_THAT(tree, HasSubstr("|-- \033[2mleft out\033[0m: supplies"));
    EXPECT_THAT(tree, HasSubstr("`-- verdict: \033[1;31mline RESET_B"));
    EXPECT_THAT(treeOf(head, judged(head), false), Not(HasSubstr("\033")));
}

TEST(DiagnosisTree, WhatComesFromOutsideDoesNotSteerTheTerminal) {
    tsDiagnosis head = goodHead();
    head.lines[0].used = true;
    head.lines[0].consumer = "\033[2Jfan\n";
    head.settings->badLine = 2;
    head.settings->badText = "a\tb\x7F";
    head.devices[0].holders = {{7, "x\033y"}};
    const std::string tree = treeOf(head, judged(head), false);
    EXPECT_THAT(tree, HasSubstr("in use as \"?[2Jfan?\"\n"));
    EXPECT_THAT(tree, HasSubstr("line 2 is not understood: a?b?\n"));
    EXPECT_THAT(tree, HasSubstr("may be read and written, open in process 7 (x?y), too\n"));
    EXPECT_THAT(tree, Not(HasSubstr("\033")));
}

TEST(DiagnosisJson, WhatIsNoUtf8IsReplaced) {
    tsDiagnosis head = goodHead();
    head.settings->badLine = 1;
    head.settings->badText = "\xFF";
    const auto json =
        nlohmann::json::parse(camhost::jsonText(camhost::diagnosisFacts(head, judged(head))));
    EXPECT_EQ(json.at("settings").at("bad_text"), "\uFFFD");
    EXPECT_EQ(json.at("verdict").at("stage"), "settings");
    EXPECT_EQ(json.at("devices").at(0).at("mode"), "0660");
}

// ---- What a board tells of its link

namespace {

camhost::tsLink linkOf(const std::vector<std::pair<int, std::string>>& lines) {
    std::vector<camhost::tsHeard> heard;
    const auto start = std::chrono::steady_clock::now();
    for (const auto& [at, text] : lines)
        heard.push_back({start + std::chrono::milliseconds(at), text});
    return camhost::linkIn(heard, *shippedTable().head()->link, 12);
}

} // namespace

TEST(Link, IsReadStepByStep) {
    const camhost::tsLink link =
        linkOf({{0, "Status: Aligned 0 Locked 0 rgLocked 1 gbLocked 0"},
                {0, "tries: 0"},
                {10, "Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1"},
                {10, "DPA Lock: 7f tries: 0"},
                {20, "DPA Lock: fef tries: 1"},
                {30, "DPA Lock: fff"},
                {30, "Status: Aligned 0 Locked 1 rgLocked 1 gbLocked 1"},
                {110, "Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1"},
                {120, "FPGA register dump"},
                {120, "Status: Aligned 0 Locked 0 rgLocked 0 gbLocked 0"}});
    EXPECT_THAT(link.flags, ElementsAre(std::pair("locked", true), std::pair("rgLocked", true),
                                        std::pair("gbLocked", true)));
    EXPECT_TRUE(link.pll.reached);
    EXPECT_EQ(link.pll.tries, 1U);
    EXPECT_EQ(link.pll.time, 10ms);
    EXPECT_EQ(link.locked, 0xFFFU);
    EXPECT_TRUE(link.lanes.reached);
    EXPECT_EQ(link.lanes.tries, 2U);
    EXPECT_EQ(link.lanes.time, 20ms);
    EXPECT_EQ(link.aligned, true);
    EXPECT_EQ(link.alignment.tries, 1U);
    EXPECT_EQ(link.alignment.time, 80ms);
}

TEST(Link, AllLanesAreThoseOfTheHead) {
    const auto all = [](unsigned lanes, const char* mask) {
        return camhost::linkIn({{{}, std::string("DPA Lock: ") + mask}},
                               *shippedTable().head()->link, lanes)
            .lanes.reached;
    };
    EXPECT_TRUE(all(1, "1"));
    EXPECT_FALSE(all(1, "2"));
    EXPECT_TRUE(all(4, "2f")) << "bits of no lane do not count";
    EXPECT_TRUE(all(32, "ffffffff"));
    EXPECT_FALSE(all(32, "7fffffff"));
}

TEST(Link, OfWhichNothingIsToldIsUnknown) {
    const camhost::tsLink link = linkOf({{0, "FPGA register dump"},
                                         {0, "Status: Aligned 1 Locked 1 rgLocked 1 gbLocked 1"},
                                         {0, "DPA Lock:\t0xfff"}});
    EXPECT_THAT(link.flags, IsEmpty());
    EXPECT_FALSE(link.locked);
    EXPECT_FALSE(link.aligned);
}

// ---- Looking

namespace {

class Examination : public testing::Test {
protected:
    // Examines by a table with these facts.
    tsDiagnosis examined(const std::string& devices, const std::string& more = "") {
        m_folder.write("t",
                       R"({"format": 1, "lanes": 1, "blocks": {}, "supplies": {}, "failures": [],
            "head": {"devices": [)" +
                           devices + R"(], "lines": [])" + more + "}}");
        const tcFailureTable table((m_folder.path() / "t").string());
        camhost::tsSubject subject;
        subject.spi = m_spi;
        subject.table = &table;
        return camhost::examine(subject);
    }

    tsDevice device(const std::string& path, const std::string& kind) {
        m_spi = path;
        return examined(R"({"name": "port", "what": "a port", "path": "{spi}", "kind": ")" + kind +
                        "\"}")
            .devices.at(0);
    }

    tcTemporaryDirectory m_folder; // and the working directory
    std::string m_spi;
};

} // namespace

TEST_F(Examination, WhatIsNoDeviceIsNotOpened) {
    m_folder.write("file", "");
    const tsDevice file = device((m_folder.path() / "file").string(), "spi");
    EXPECT_TRUE(file.there);
    EXPECT_FALSE(file.rightKind);
    EXPECT_EQ(file.kind, "a regular file");
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(device((m_folder.path() / "pipe").string(), "spi").kind, "a pipe") << "nobody waits";
    EXPECT_EQ(device(m_folder.path().string(), "spi").kind, "a folder");
    EXPECT_FALSE(device("/no/such", "spi").there);
    EXPECT_EQ(device("/no/such", "spi").error, ENOENT);
}

TEST_F(Examination, AnotherDriversDeviceIsSeen) {
    for (const char* kind : {"spi", "gpio", "i2c", "memory"}) {
        const tsDevice null = device("/dev/null", kind);
        EXPECT_TRUE(null.there);
        EXPECT_FALSE(null.rightKind) << kind;
        EXPECT_EQ(null.kind, "another character device");
    }
}

// This test's own process is another one to a child, which looks.
TEST_F(Examination, WhoHoldsADeviceIsFound) {
    int controller = -1;
    int terminal = -1;
    std::array<char, 64> name{};
    ASSERT_EQ(openpty(&controller, &terminal, name.data(), nullptr, nullptr), 0);
    EXPECT_THAT(device(name.data(), "spi").holders, IsEmpty()) << "this process does not count";
    const pid_t child = fork();
    if (child == 0) {
        ::close(controller);
        ::pause();
        ::_exit(0);
    }
    const std::vector<camhost::tsHolder> holders = device(name.data(), "spi").holders;
    ::symlink(name.data(), "link");
    EXPECT_EQ(device((m_folder.path() / "link").string(), "spi").holders.size(), 1U)
        << "by another name";
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(terminal);
    ::close(controller);
    ASSERT_EQ(holders.size(), 1U);
    EXPECT_EQ(holders[0].pid, child);
    std::ifstream own("/proc/self/comm");
    std::string program;
    std::getline(own, program);
    EXPECT_EQ(holders[0].program, program);
}

namespace {

constexpr const char* kSettingsFact =
    R"(, "settings": {"file": "registers.txt", "pause": "0x400"})";

} // namespace

// docs/settings-file.md says what the driver makes of each.
TEST_F(Examination, ASettingsFileIsReadAsTheDriverDoes) {
    const auto file = [&](const std::string& text) {
        m_folder.write("registers.txt", text);
        return *examined("", kSettingsFact).settings;
    };
    const camhost::tsSettingsFile good =
        file("# comment\n10 0\n0x50 0xFFF\n400 3E8\n  b0 383   ignored\n12\tFA0\r\nd8 4B90F");
    EXPECT_EQ(good.lines, 7U);
    EXPECT_EQ(good.writes, 5U);
    EXPECT_EQ(good.pauses, 1U);
    EXPECT_EQ(good.paused, 1000us);
    EXPECT_EQ(good.badLine, 0U);
    EXPECT_THAT(good.repeats, IsEmpty());
    EXPECT_EQ(good.path, (m_folder.path() / "registers.txt").string());

    const camhost::tsSettingsFile bad = file("# one\n21 1\n # late comment\n22 2\n");
    EXPECT_EQ(bad.badLine, 3U);
    EXPECT_EQ(bad.badText, " # late comment");
    EXPECT_EQ(bad.writes, 1U);
    EXPECT_EQ(file("21 x\n").badLine, 1U);
    EXPECT_EQ(file("21 100000000 more\n").badLine, 1U);

    const camhost::tsSettingsFile gaps = file("400 10\n\n21\n10000\n21 100000000\n");
    EXPECT_EQ(gaps.badLine, 0U);
    EXPECT_EQ(gaps.pauses, 2U) << "a blank line repeats the pause";
    EXPECT_EQ(gaps.paused, 32us);
    EXPECT_EQ(gaps.writes, 3U);
    EXPECT_THAT(gaps.repeats, ElementsAre(2, 3, 4, 5));
}

TEST_F(Examination, ASettingsFileThatCannotBeReadSaysWhy) {
    EXPECT_EQ(examined("", kSettingsFact).settings->error, ENOENT);
    ASSERT_EQ(mkdir("registers.txt", 0700), 0);
    EXPECT_NE(examined("", kSettingsFact).settings->error, 0);
}

#include <filesystem>

#include <sys/stat.h>

#include <gmock/gmock.h>

#include "apps/camhost/saved_settings.h"
#include "tests/apps/camhost_fixture.h"
#include "tests/apps/process.h"

using testing::HasSubstr;

namespace {

constexpr const char* kHeading = "# Settings of a camera head. \"load\" brings them back; so does "
                                 "running the file as a script.\n";

class SettingsTest : public CamhostTest {
protected:
    tcFolder folder;
    std::string file = folder.path() + "/my.settings";
};

} // namespace

TEST_F(SettingsTest, AreSavedInTheOrderInWhichTheyComeBack) {
    reply("trigger external");
    reply("vbin 2");
    reply("roi 2 24 240 20");
    reply("mirror v on");
    reply("interval 50000");
    reply("exposure 2004");
    reply("strobe 7");
    reply("bpp 8bit");
    reply("color on");
    reply("pattern 16");
    reply("gain 2");
    reply("white 1 2 3");
    EXPECT_EQ(reply("save " + file),
              "save: 14 settings in \"" + file +
                  "\"; without those that the board does not tell: black gamma");
    EXPECT_EQ(folder.read("my.settings"), std::string(kHeading) + "clock 1\n"
                                                                  "trigger external\n"
                                                                  "vbin 2\n"
                                                                  "roi 2 24 240 20\n"
                                                                  "mirror h off\n"
                                                                  "mirror v on\n"
                                                                  "interval 50000\n"
                                                                  "exposure 2000\n"
                                                                  "strobe 7\n"
                                                                  "bpp 8bit\n"
                                                                  "color on\n"
                                                                  "pattern sensor1\n"
                                                                  "gain 2\n"
                                                                  "white 1 2 3\n");
}

TEST_F(SettingsTest, ComeBackThroughTheBoardsOwnOperations) {
    reply("interval 50000");
    reply("exposure 2000");
    reply("roi 2 24 240 20");
    reply("bpp 8bit");
    reply("save " + file);
    reply("interval 100000");
    reply("exposure 90000");
    reply("roi 0 0 2592 2056");
    reply("bpp 12bit");
    EXPECT_EQ(reply("diff " + file), "file: roi 2 24 240 20, now: roi 0 0 2592 2056\n"
                                     "file: interval 50000, now: interval 100000\n"
                                     "file: exposure 2000, now: exposure 90000\n"
                                     "file: bpp 8bit, now: bpp 12bit");
    EXPECT_EQ(reply("load " + file), "load: 12 settings from \"" + file + "\"");
    EXPECT_EQ(reply("diff " + file), "diff: no difference");
    EXPECT_EQ(reply("interval"), "interval 50000 us");
    EXPECT_EQ(reply("exposure"), "exposure 2000 us");
    EXPECT_EQ(reply("packing"), "packing 8 bits");
}

TEST_F(SettingsTest, BringSeveralRegionsBack) {
    reply("region 0 100 0 240 10");
    reply("region 1 40 0 240 20");
    reply("regions 2");
    reply("save " + file);
    EXPECT_THAT(folder.read("my.settings"),
                HasSubstr("region 0 100 0 240 10\nregion 1 40 0 240 20\nregions 2\n"));
    reply("regions 1");
    reply("region 1 0 0 24 2");
    EXPECT_EQ(reply("diff " + file), "file: region 0 100 0 240 10, now: not known\n"
                                     "file: region 1 40 0 240 20, now: not known\n"
                                     "file: regions 2, now: not known");
    reply("load " + file);
    EXPECT_EQ(reply("region 1"), "region 1 [y: 40, x: 0, width: 240, height: 20]");
    EXPECT_EQ(head->regions()->numberOfRegions, 2);
}

TEST_F(SettingsTest, HoldEvenWhenOneOfThemFails) {
    folder.file("my.settings", "# mine\n"
                               "exposure 500\n"
                               "gain 9\n"
                               "\n"
                               "bpp 10bit # not there\n"
                               "pattern default\n");
    EXPECT_EQ(refusal("load " + file),
              "load: 2 of 4 settings failed, the others hold\n" + file +
                  ":3: gain 9 failed, result 3: invalid argument or unknown register; gain is 0; "
                  "give a value that the board takes\n" +
                  file +
                  ":5: bpp 10bit failed, result 4: validation failed or mode not supported; choose "
                  "another mode");
    EXPECT_EQ(reply("exposure"), "exposure 500 us");
    EXPECT_EQ(reply("pattern"), "pattern default");
}

TEST_F(SettingsTest, AreAllThatAFileOfThemMayHold) {
    for (const char* line : {"poke 0x10 1", "start", "save other", "load other", "FAKE 1", "quit",
                             "nonsense", "regfile write 0 1"}) {
        folder.file("my.settings", std::string("exposure 500\n") + line + "\n");
        EXPECT_EQ(refusal("load " + file),
                  file + ":2: \"" + std::string(line).substr(0, std::string(line).find(' ')) +
                      "\" is no setting; nothing was changed; run the file as a script if this is "
                      "meant");
    }
    EXPECT_EQ(reply("exposure"), "exposure 30000 us");
}

TEST_F(SettingsTest, SayWhichFileCannotBeUsed) {
    EXPECT_EQ(refusal("load " + file), "reading \"" + file +
                                           "\" failed: No such file or directory; name a file that "
                                           "can be used");
    EXPECT_EQ(refusal("diff " + file), "reading \"" + file +
                                           "\" failed: No such file or directory; name a file that "
                                           "can be used");
    EXPECT_EQ(refusal("save " + folder.path() + "/no/such/folder"),
              "writing \"" + folder.path() +
                  "/no/such/folder\" failed: No such file or directory; name a file that can be "
                  "used");
    EXPECT_EQ(refusal("save " + folder.path()),
              "writing \"" + folder.path() +
                  "\" failed: it is a folder; name a file that can be "
                  "used");
    EXPECT_NE(refusal("load " + folder.path()), "");
}

TEST_F(SettingsTest, AreNeitherReadFromAPipeNorWrittenInItsPlace) {
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string why =
        "\"" + pipe + "\" failed: it is a pipe, a socket or a device; name a file that can be used";
    EXPECT_EQ(refusal("load " + pipe), "reading " + why);
    EXPECT_EQ(refusal("diff " + pipe), "reading " + why);
    EXPECT_EQ(refusal("save " + pipe), "writing " + why);
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_EQ(refusal("load /dev/zero"),
              "reading \"/dev/zero\" failed: it is a pipe, a socket or a device; name a file that "
              "can be used");
}

TEST_F(SettingsTest, AreWrittenPastTheLinksThatOthersLaid) {
    const std::string precious = folder.file("precious", "mine");
    std::filesystem::create_symlink(precious, file + ".new");
    std::filesystem::create_symlink(precious, file);
    reply("save " + file);
    EXPECT_EQ(folder.read("precious"), "mine");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(file)));
    EXPECT_NE(folder.read("my.settings"), "");
    std::size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path()))
        ++entries;
    EXPECT_EQ(entries, 3U); // and nothing unfinished
}

TEST_F(SettingsTest, AreReadableByAllAsFarAsTheUserLetsThem) {
    const mode_t before = ::umask(027);
    reply("save " + file);
    ::umask(before);
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(SettingsTest, LeaveTheOldFileAloneWhenTheNewOneCannotBeWritten) {
    reply("save " + file);
    const std::string before = folder.read("my.settings");
    folder.file("keep", "");
    EXPECT_EQ(refusal("save " + folder.path() + "/keep/x"),
              "writing \"" + folder.path() +
                  "/keep/x\" failed: Not a directory; name a file that can be used");
    EXPECT_EQ(folder.read("my.settings"), before);
    EXPECT_EQ(folder.read("my.settings.new"), "");
}

TEST_F(SettingsTest, AreNotReadFromAFileThatIsFarTooLong) {
    folder.file("my.settings", std::string(70000, '#'));
    EXPECT_EQ(refusal("load " + file),
              "reading \"" + file + "\" failed: File too large; name a file that can be used");
}

TEST_F(SettingsTest, AreNoBusinessOfTheNetwork) {
    camhost::tsCaller caller;
    caller.line = [](const std::string&) {};
    caller.progress = [](const std::string&) {};
    caller.mayUseFiles = false;
    for (const char* command : {"save", "load", "diff"}) {
        const camhost::tsReply got = executor->execute(std::string(command) + " " + file, caller);
        EXPECT_EQ(got.text, std::string(command) +
                                " is not served over the network, for it names a file of this "
                                "machine; use the console or a script there");
        EXPECT_FALSE(got.ok());
    }
    EXPECT_EQ(folder.read("my.settings"), "");
}

TEST_F(SettingsTest, AreToldApartByTheirIndex) {
    EXPECT_EQ(camhost::settingKey("mirror h on"), "mirror h");
    EXPECT_EQ(camhost::settingKey("region 1 0 0 24 2"), "region 1");
    EXPECT_EQ(camhost::settingKey("roi 1 0 0 24 2"), "roi");
}

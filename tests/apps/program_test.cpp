#include <algorithm>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "tests/apps/process.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// \return the arguments behind those that load the fake plug-in
std::vector<std::string> onFakePlugin(std::vector<std::string> arguments,
                                      const std::string& device = "x") {
    arguments.insert(arguments.begin(), {"--plugin", FAKE_PLUGIN, "--spi", device});
    return arguments;
}

/// The program as it is when it is installed: in a folder of its own, with its libraries.
class InstalledProgram : public testing::Test {
protected:
    InstalledProgram() {
        namespace fs = std::filesystem;
        const fs::path built = fs::path(CAMHOST_PROGRAM).parent_path().parent_path();
        fs::create_directory(prefix() / "bin");
        fs::create_directories(lib);
        fs::copy(CAMHOST_PROGRAM, prefix() / "bin" / "camhost");
        for (const auto& entry : fs::directory_iterator(built / "lib")) {
            if (entry.path().filename().string().starts_with("libvarnox.so"))
                fs::copy(entry.path(), prefix() / "lib");
        }
    }

    void addPlugin(const std::string& name) {
        std::filesystem::copy(FAKE_PLUGIN, lib / (name + ".so"));
    }

    [[nodiscard]] std::filesystem::path prefix() const {
        return std::filesystem::canonical(m_folder.path());
    }

    tsFinished start(const std::vector<std::string>& arguments) {
        std::vector<std::string> command = camhostCommand(arguments);
        std::replace(command.begin(), command.end(), std::string(CAMHOST_PROGRAM),
                     (prefix() / "bin" / "camhost").string());
        return run(command);
    }

private:
    tcFolder m_folder;

protected:
    const std::filesystem::path lib = prefix() / CAMHOST_PLUGIN_DIRECTORY;
};

const std::string kServed =
    std::string("camhost: ") + FAKE_PLUGIN + " serves sensor type 42; keywords: CLKS FAKE FAKE2\n";
const std::string kDeleted = "fake: board deleted\n";

} // namespace

TEST(Program, LoadsAnyPluginAndCarriesOutCommands) {
    const tsFinished run =
        runCamhost(onFakePlugin({"-c", "init", "-c", "exposure 20004", "-c", "CLKS"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, StartsWith(kServed + "[6] Fake head powers up on x\n"
                                              "fake: initialize\nVFAKE: 3.25\nFake lock: 0x5\n"
                                              "init: result 0: success\n"
                                              "exposure: asked 20004 us, applied 20000 us (result "
                                              "0: success)\n"
                                              "<ack ^1>\n"));
    EXPECT_THAT(run.out, EndsWith(kDeleted));
    EXPECT_EQ(run.err, "");
}

TEST(Program, SendsTheBoardsLogToAFileAndOnlyRepliesToStandardOutput) {
    const tcFolder folder;
    const std::string log = folder.path() + "/log";
    const tsFinished run =
        runCamhost(onFakePlugin({"--board-output", log, "-c", "init", "-c", "exposure"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "init: result 0: success\nexposure 30000 us\n");
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(
        folder.read("log"),
        StartsWith(
            kServed +
            "[6] Fake head powers up on x\nfake: initialize\nVFAKE: 3.25\nFake lock: 0x5\n"));
    EXPECT_THAT(folder.read("log"), EndsWith(kDeleted));
}

TEST(Program, SendsTheLogToStandardError) {
    const tsFinished run = runCamhost(onFakePlugin({"--board-output", "-", "-c", "exposure"}));
    EXPECT_EQ(run.out, "exposure 30000 us\n");
    EXPECT_THAT(run.err, StartsWith(kServed));
}

TEST(Program, InJsonPrintsAnObjectForEachCommandAndNothingElse) {
    const tsFinished run =
        runCamhost(onFakePlugin({"--json", "--keep-going", "-c", "init", "-c", "snap", "-c",
                                 "# nothing", "-c", "watch 1 0x50", "-c", "pins"}));
    EXPECT_EQ(run.status, 6);
    EXPECT_EQ(
        run.out,
        "{\"command\":\"init\",\"ok\":true,\"status\":0,\"reply\":[\"init: result 0: "
        "success\"],\"result\":0}\n"
        "{\"command\":\"snap\",\"ok\":false,\"status\":6,\"error\":[\"snap failed, result 7: not "
        "supported by this board; leave it out: the board has nothing of the "
        "kind\"],\"result\":7}\n"
        "{\"command\":\"watch 1 0x50\",\"ok\":true,\"status\":0,\"reply\":[\"watch: 0 changes in 1 "
        "ms\"],\"lines\":[\"[    0.000 s] 0x00050: nothing\"],\"changes\":0,\"milliseconds\":1}\n"
        "{\"command\":\"pins\",\"ok\":true,\"status\":0,\"reply\":[\"pins 2\"],\"pins\":2}\n");
    EXPECT_THAT(run.err, StartsWith(kServed + "[6] Fake head powers up on x\n"));
    EXPECT_THAT(run.err,
                HasSubstr("\ncamhost: command line: \"snap\" failed; its reply tells more\n"));
}

TEST(Program, InJsonTheBoardsOutputGoesToAFileWhereOneIsNamed) {
    const tcFolder folder;
    const tsFinished run = runCamhost(
        onFakePlugin({"--json", "--board-output", folder.path() + "/log", "-c", "pins"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "{\"command\":\"pins\",\"ok\":true,\"status\":0,\"reply\":[\"pins "
                       "2\"],\"pins\":2}\n");
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(folder.read("log"), StartsWith(kServed));
}

TEST(Program, EchoesNothingBetweenJsonObjects) {
    const tsFinished run = runCamhost(onFakePlugin({"--json", "--echo", "-c", "pins"}));
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr("--echo excludes --json"));
}

TEST(Program, EndsWithTwoWhenTheCommandLineIsNotUnderstood) {
    EXPECT_EQ(runCamhost(onFakePlugin({"--nonsense"})).status, 2);
    EXPECT_EQ(runCamhost(onFakePlugin({"one script", "and another"})).status, 2);
}

TEST(Program, EndsWithTwoWhenNobodyTellsTheDevice) {
    const tsFinished run = runCamhost({"--plugin", FAKE_PLUGIN});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "camhost: no SPI device is given, and beside " FAKE_PLUGIN
                       " there is no table that tells the usual one. Give the sensor's SPI device "
                       "with --spi.\n");
}

TEST_F(InstalledProgram, TakesTheOnlyPluginAndItsUsualDevice) {
    addPlugin("one");
    std::ofstream(lib / "one.settings.json")
        << R"({"format": 1, "device": "of the table", "not_supported": [], "reads_only": [], "takes": {}})";
    const tsFinished finished = start({"-c", "init"});
    EXPECT_EQ(finished.err, "");
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.out, StartsWith("camhost: " + (lib / "one.so").string() +
                                         " serves sensor type 42; keywords: CLKS FAKE FAKE2\n"
                                         "[6] Fake head powers up on of the table\n"));
    EXPECT_THAT(start({"--spi", "given", "-c", "init"}).out,
                HasSubstr("Fake head powers up on given\n"));
}

TEST_F(InstalledProgram, AsksForADeviceWhereTheTableCannotBeRead) {
    addPlugin("one");
    std::ofstream(lib / "one.settings.json") << "{";
    const tsFinished finished = start({"-c", "init"});
    EXPECT_EQ(finished.status, 2);
    EXPECT_THAT(finished.err,
                StartsWith("camhost: no SPI device is given, and " +
                           (lib / "one.settings.json").string() + " is no table of settings: "));
    EXPECT_THAT(finished.err, EndsWith(". Give the sensor's SPI device with --spi.\n"));
}

TEST_F(InstalledProgram, WithoutAPluginSaysWhereItLooked) {
    const tsFinished finished = start({"-c", "init"});
    EXPECT_EQ(finished.status, 3);
    EXPECT_EQ(finished.err, "camhost: no plug-in is installed: none in " + lib.string() + ", " +
                                (prefix() / "lib").string() +
                                ". Give the plug-in's file with --plugin.\n");
}

TEST_F(InstalledProgram, OfSeveralPluginsItTakesNone) {
    addPlugin("b");
    addPlugin("a");
    const tsFinished finished = start({"-c", "init"});
    EXPECT_EQ(finished.status, 3);
    EXPECT_EQ(finished.err, "camhost: several plug-ins are installed: " + (lib / "a.so").string() +
                                ", " + (lib / "b.so").string() + ". Choose one with --plugin.\n");
}

TEST_F(InstalledProgram, ListsPluginsGoodAndBad) {
    addPlugin("b");
    std::ofstream(lib / "a.so") << "no library";
    std::ofstream(lib / "b.settings.json")
        << R"({"format": 1, "device": "/dev/spidev0.0", "not_supported": [], "reads_only": [], "takes": {}})";
    const tsFinished finished = start({"--list"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.err, "");
    EXPECT_THAT(finished.out, StartsWith("Plug-ins:\n  " + (lib / "a.so").string() + ": plug-in " +
                                         (lib / "a.so").string() + " not loaded: "));
    EXPECT_THAT(finished.out,
                HasSubstr("\n  " + (lib / "b.so").string() +
                          ", sensor type 42, usual device /dev/spidev0.0\nSPI devices:\n  "));
    const tsFinished json = start({"--list", "--json"});
    EXPECT_THAT(json.out, StartsWith(R"({"plugins":[{"file":")" + (lib / "a.so").string() +
                                     R"(","error":"plug-in )"));
    EXPECT_THAT(json.out,
                HasSubstr(R"({"file":")" + (lib / "b.so").string() +
                          R"(","sensor_type":42,"device":"/dev/spidev0.0"}],"spi_devices":[)"));
}

TEST(Program, EndsWithTwoWhenTheWorkingDirectoryIsMissing) {
    const tsFinished run = runCamhost(onFakePlugin({"--workdir", "/no/such/folder", "-c", "init"}));
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, "camhost: working directory /no/such/folder not entered: No such file or "
                       "directory. Give an existing folder with --workdir.\n");
}

TEST(Program, EndsWithTwoWhenTheLogCannotBeWritten) {
    const tsFinished run =
        runCamhost(onFakePlugin({"--board-output", "/no/such/folder/log", "-c", "init"}));
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err,
              "camhost: the board's output cannot go to \"/no/such/folder/log\": No such file "
              "or directory. Name another file with --board-output.\n");
}

TEST(Program, EndsWithThreeWhenThePluginIsMissing) {
    const tsFinished run =
        runCamhost({"--plugin", "/no/such/plugin.so", "--spi", "x", "-c", "init"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err,
              "camhost: plug-in /no/such/plugin.so not loaded: there is no such file. Give "
              "the plug-in's file with --plugin.\n");
}

TEST(Program, EndsWithThreeWhenThePluginIsAFolder) {
    const tcFolder folder;
    const tsFinished run = runCamhost({"--plugin", folder.path(), "--spi", "x", "-c", "init"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.err, "camhost: plug-in " + folder.path() +
                           " not loaded: it is a folder. Give the plug-in's file in it with "
                           "--plugin.\n");
}

TEST(Program, EndsWithThreeWhenThePluginIsNoLibrary) {
    const tcFolder folder;
    const std::string file = folder.file("plugin.so", "text");
    const tsFinished run = runCamhost({"--plugin", file, "--spi", "x", "-c", "init"});
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, StartsWith("camhost: plug-in " + file + " not loaded: " + file + ": "));
    EXPECT_THAT(run.err, EndsWith(". It must be a shared library for this machine, built against "
                                  "this host's libraries.\n"));
}

TEST(Program, EndsWithThreeWhenAFunctionIsMissing) {
    const tsFinished run = runCamhost({"--plugin", HALF_PLUGIN, "--spi", "x", "-c", "init"});
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, StartsWith(std::string("camhost: plug-in ") + HALF_PLUGIN +
                                    " not loaded: it has no function \"makeSensor\" ("));
    EXPECT_THAT(run.err, EndsWith("). Give a sensor-board plug-in with --plugin.\n"));
}

TEST(Program, EndsWithFourWhenThereIsNoBoard) {
    const std::string prefix = std::string("camhost: board for \"");
    const auto error = [](const std::string& device, const std::string& reason) {
        return "camhost: board for \"" + device + "\" not constructed by " + FAKE_PLUGIN + ": " +
               reason + ". Check the device given with --spi.\n";
    };
    const tsFinished thrown = runCamhost(onFakePlugin({"-c", "init"}, "throw"));
    EXPECT_EQ(thrown.status, 4);
    EXPECT_EQ(thrown.err, error("throw", "no head there"));
    const tsFinished number = runCamhost(onFakePlugin({"-c", "init"}, "throw a number"));
    EXPECT_EQ(number.status, 4);
    EXPECT_EQ(number.err, error("throw a number", "it threw something that is no std::exception"));
    const tsFinished none = runCamhost(onFakePlugin({"-c", "init"}, "null"));
    EXPECT_EQ(none.status, 4);
    EXPECT_EQ(none.err, error("null", "it returned none"));
}

TEST(Program, EndsWithFiveWhenInitializationFails) {
    const tsFinished run = runCamhost(onFakePlugin({"-c", "init", "-c", "status"}, "init=-4"));
    EXPECT_EQ(run.status, 5);
    EXPECT_EQ(run.err, "camhost: command line: init failed, result -4: a code of the board's lower "
                       "layers; see the board's lines above\n");
    EXPECT_THAT(run.out, testing::Not(HasSubstr("capturing")));
}

TEST(Program, EndsWithSixAtTheFirstCommandThatFails) {
    const tsFinished run = runCamhost(onFakePlugin({"-c", "exposure x", "-c", "status"}));
    EXPECT_EQ(run.status, 6);
    EXPECT_THAT(run.err, StartsWith("camhost: command line: exposure: MICROSECONDS \"x\""));
    EXPECT_THAT(run.out, testing::Not(HasSubstr("capturing")));
}

TEST(Program, GoesOnWhenToldToAndStillTellsTheFirstFailure) {
    const tsFinished run = runCamhost(onFakePlugin(
        {"--keep-going", "-c", "exposure x", "-c", "init", "-c", "exposure"}, "init=6"));
    EXPECT_EQ(run.status, 6);
    EXPECT_THAT(run.out, HasSubstr("exposure 30000 us\n"));
    EXPECT_THAT(run.err, HasSubstr("camhost: command line: init failed, result 6"));
}

TEST(Program, CarriesOutAScript) {
    const tcFolder folder;
    const std::string script = folder.file("demo", "# a script\n"
                                                   "exposure 500   # short\n"
                                                   "\n"
                                                   "exposure\n"
                                                   "FAKE a b");
    const tsFinished run =
        runCamhost(onFakePlugin({"--board-output", "/dev/null", "-c", "init", script}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "init: result 0: success\n"
                       "exposure: asked 500 us, applied 500 us (result 0: success)\n"
                       "exposure 500 us\n"
                       "<ack>\n");
}

TEST(Program, EchoesCommandsWhenToldTo) {
    const tsFinished run = runCamhost(onFakePlugin({"--board-output", "/dev/null", "--echo", "-"}),
                                      "exposure\n\nquit\nroi\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "> exposure\nexposure 30000 us\n> quit\n");
}

TEST(Program, NamesFileAndLineOfWhatFailed) {
    const tcFolder folder;
    const std::string script = folder.file("demo", "exposure 500\n\nexposur 7\nexposure 600\n");
    const tsFinished run = runCamhost(onFakePlugin({script}));
    EXPECT_EQ(run.status, 6);
    EXPECT_EQ(run.err, "camhost: " + script +
                           ":3: \"exposur\" is no command and no keyword of the plug-in; did you "
                           "mean \"exposure\"? \"help\" lists all\n");
    EXPECT_THAT(run.out, testing::Not(HasSubstr("600")));
}

TEST(Program, ReadsStandardInputWhenThereIsNothingElse) {
    const tsFinished run =
        runCamhost(onFakePlugin({"--board-output", "/dev/null"}), "exposure\nexposure x\n");
    EXPECT_EQ(run.status, 6);
    EXPECT_EQ(run.out, "exposure 30000 us\n");
    EXPECT_THAT(run.err, StartsWith("camhost: standard input:2: exposure: "));
}

TEST(Program, EndsWithSevenWhenTheScriptCannotBeRead) {
    const tcFolder folder;
    const tsFinished missing = runCamhost(onFakePlugin({folder.path() + "/missing"}));
    EXPECT_EQ(missing.status, 7);
    EXPECT_EQ(missing.err, "camhost: script " + folder.path() +
                               "/missing not read: No such file or directory. Give the file of a "
                               "script, or - for standard input.\n");
    const tsFinished aFolder = runCamhost(onFakePlugin({folder.path()}));
    EXPECT_EQ(aFolder.status, 7);
    EXPECT_EQ(aFolder.err, "camhost: script " + folder.path() +
                               " not read: it is a folder. Give the file of a script, or - for "
                               "standard input.\n");
}

TEST(Program, DoesNotWaitForAPipe) {
    const tcFolder folder;
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const tsFinished script = runCamhost(onFakePlugin({pipe}));
    EXPECT_EQ(script.status, 7);
    EXPECT_EQ(script.err, "camhost: script " + pipe +
                              " not read: it is a pipe, a socket or a device. Give the file of a "
                              "script, or - for standard input.\n");
    const tsFinished log = runCamhost(onFakePlugin({"--board-output", pipe, "-c", "exposure"}));
    EXPECT_EQ(log.status, 2);
    EXPECT_EQ(log.err, "camhost: the board's output cannot go to \"" + pipe +
                           "\": No such device or address. Name another file with "
                           "--board-output.\n");
    const tsFinished plugin = runCamhost({"--plugin", pipe, "--spi", "x", "-c", "exposure"});
    EXPECT_EQ(plugin.status, 3);
    EXPECT_EQ(plugin.err, "camhost: plug-in " + pipe +
                              " not loaded: it is a pipe, a socket or a device. Give the plug-in's "
                              "file with --plugin.\n");
}

TEST(Program, WarnsOfFilesThatEverybodyCanWrite) {
    const tcFolder folder;
    const std::string open = folder.file("limits.ini", "");
    folder.file("closed.ini", "");
    ASSERT_EQ(::chmod(open.c_str(), 0666), 0);
    const std::vector<std::string> arguments =
        onFakePlugin({"--workdir", folder.path(), "-c", "exposure"});
    const std::string aboutFile =
        "camhost: warning: " + open + " can be written by everybody; chmod o-w " + open + "\n";
    const tsFinished first = runCamhost(arguments);
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.err, aboutFile);

    ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
    EXPECT_EQ(runCamhost(arguments).err, "camhost: warning: " + folder.path() +
                                             " can be written by everybody; chmod o-w " +
                                             folder.path() + "\n" + aboutFile);

    ASSERT_EQ(::chmod(folder.path().c_str(), 0770), 0); // the program's own group
    ASSERT_EQ(::chmod(open.c_str(), 0664), 0);
    EXPECT_EQ(runCamhost(arguments).err, "");
}

TEST(Program, WarnsOfFilesThatAnotherGroupCanWrite) {
    const tcFolder folder;
    const std::string shared = folder.file("limits.ini", "");
    if (::chown(shared.c_str(), static_cast<uid_t>(-1), 12345) != 0)
        GTEST_SKIP() << "only root can give files to any group";
    const std::vector<std::string> arguments =
        onFakePlugin({"--workdir", folder.path(), "-c", "exposure"});
    ASSERT_EQ(::chmod(shared.c_str(), 0660), 0);
    EXPECT_EQ(runCamhost(arguments).err, "camhost: warning: " + shared +
                                             " can be written by group 12345; chmod g-w " + shared +
                                             "\n");
    ASSERT_EQ(::chmod(shared.c_str(), 0640), 0);
    EXPECT_EQ(runCamhost(arguments).err, "");
}

TEST(Program, WarnsOfScriptAndVersionFilesAndOfThePluginsFolder) {
    const tcFolder work;
    const tcFolder other;
    const std::string script = other.file("script", "exposure\n");
    const std::string plugin = other.path() + "/plugin.so";
    std::filesystem::copy_file(FAKE_PLUGIN, plugin);
    const std::string version = work.path() + "/version";
    std::filesystem::create_directory(version);
    const std::string serial = work.file("version/serial.txt", "1");
    const std::vector<std::string> open{plugin, other.path(), script, version, serial};
    std::string expected;
    for (const std::string& path : open) {
        ASSERT_EQ(::chmod(path.c_str(), 0777), 0);
        expected +=
            "camhost: warning: " + path + " can be written by everybody; chmod o-w " + path + "\n";
    }
    const tsFinished run =
        runCamhost({"--plugin", plugin, "--spi", "x", "--workdir", work.path(), script});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, expected);
}

TEST(Program, StandardInputIsNoFileToWarnOf) {
    const tcFolder folder;
    const std::string file = folder.file("-", "");
    ASSERT_EQ(::chmod(file.c_str(), 0666), 0);
    EXPECT_EQ(runCamhost(onFakePlugin({"--workdir", folder.path(), "-"}), "exposure\n").err,
              "camhost: warning: " + file + " can be written by everybody; chmod o-w " + file +
                  "\n");
}

TEST(Program, WarnsOfAFileThatSomebodyElseOwns) {
    const tcFolder folder;
    const std::string planted = folder.file("planted.ini", "");
    if (::chown(planted.c_str(), 12345, 12345) != 0)
        GTEST_SKIP() << "only root can give files away";
    EXPECT_EQ(runCamhost(onFakePlugin({"--workdir", folder.path(), "-c", "exposure"})).err,
              "camhost: warning: " + planted +
                  " belongs to another user, number 12345; chown root " + planted + "\n");
    // Somebody's whole folder is told once.
    ASSERT_EQ(::chown(folder.path().c_str(), 12345, 12345), 0);
    EXPECT_EQ(runCamhost(onFakePlugin({"--workdir", folder.path(), "-c", "exposure"})).err,
              "camhost: warning: " + folder.path() +
                  " belongs to another user, number 12345; chown root " + folder.path() + "\n");
}

TEST(Program, TrustsTheFilesOfWhoBecameRoot) {
    const tcFolder folder;
    const std::string own = folder.file("own.ini", "");
    if (::chown(own.c_str(), 12345, 0) != 0)
        GTEST_SKIP() << "only root can give files away";
    const std::vector<std::string> arguments =
        onFakePlugin({"--workdir", folder.path(), "-c", "exposure"});
    ASSERT_EQ(::setenv("SUDO_UID", "12345", 1), 0);
    EXPECT_EQ(runCamhost(arguments).err, "");
    ASSERT_EQ(::setenv("SUDO_UID", "1234", 1), 0);
    EXPECT_EQ(runCamhost(arguments).err, "camhost: warning: " + own +
                                             " belongs to another user, number 12345; chown root " +
                                             own + "\n");
    ::unsetenv("SUDO_UID");
}

TEST(Program, WarnsOfAPipeThatThePlugInWouldWaitFor) {
    const tcFolder folder;
    const std::string ini = folder.path() + "/3u5mgxs_config.ini";
    ASSERT_EQ(::mkfifo(ini.c_str(), 0600), 0);
    std::filesystem::create_directory(folder.path() + "/version");
    const std::string serial = folder.path() + "/version/serial.txt";
    std::filesystem::create_symlink("/dev/zero", serial);
    std::filesystem::create_symlink("nowhere", folder.path() + "/nothing.txt");
    const auto warning = [](const std::string& file) {
        return "camhost: warning: " + file +
               ": it is a pipe, a socket or a device, and a plug-in that reads it may wait for "
               "ever; rm " +
               file + "\n";
    };
    EXPECT_EQ(runCamhost(onFakePlugin({"--workdir", folder.path(), "-c", "exposure"})).err,
              warning(ini) + warning(serial));
}

TEST(Program, WarnsNoMoreThanEightTimes) {
    const tcFolder folder;
    for (int i = 0; i < 11; ++i)
        ASSERT_EQ(::chmod(folder.file(std::to_string(i), "").c_str(), 0666), 0);
    const std::string err =
        runCamhost(onFakePlugin({"--workdir", folder.path(), "-c", "exposure"})).err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 9);
    EXPECT_THAT(err, EndsWith("camhost: warning: 3 more warnings like these\n"));
}

TEST(Program, ShowsPercentSignsAsTheyStand) {
    const tcFolder folder;
    const std::string hostile = "%n%s%s%n%99999999d";
    const std::string script = folder.file("%n%s", "FAKE " + hostile + "\nFAKE\n" + hostile + "\n");
    const tsFinished run =
        runCamhost(onFakePlugin({"--keep-going", "-c", "init", "-c", hostile, script}, hostile));
    EXPECT_EQ(run.status, 6);
    EXPECT_THAT(run.out, HasSubstr("[6] Fake head powers up on " + hostile + "\n"));
    EXPECT_THAT(run.out, HasSubstr("<ack " + hostile + ">\n"));
    const std::string unknown = ": \"" + hostile +
                                "\" is no command and no keyword of the plug-in; \"help\" lists "
                                "all\n";
    EXPECT_EQ(run.err, "camhost: command line" + unknown + "camhost: " + script + ":3" + unknown);
}

TEST(Program, FindsItsFilesFromWhereItWasStartedAndWorksInItsWorkingDirectory) {
    const tcFolder folder;
    const tcFolder work;
    const std::string script = folder.file("demo", "exposure\n");
    const tsFinished run =
        runCamhost(onFakePlugin({"--workdir", work.path(), "--board-output", "/dev/null", script}));
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "exposure 30000 us\n");
}

TEST(Program, StopsARunningCaptureBeforeItEnds) {
    const tsFinished run = runCamhost(onFakePlugin({"-c", "start"}));
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("start: result 0: success\n[1] Ending capture...\n"));
}

TEST(Program, ExplainsItsExitStatuses) {
    const tsFinished run = runCamhost({"--help"});
    EXPECT_EQ(run.status, 0);
    for (const char* line :
         {"  0    all went well\n", "  2    the command line was not understood\n",
          "  3    the plug-in could not be loaded\n", "  4    the board could not be constructed\n",
          "  5    the board's initialization failed\n", "  6    a command failed\n",
          "  7    the script could not be read\n", "  130  interrupted\n"})
        EXPECT_THAT(run.out, HasSubstr(line));
}

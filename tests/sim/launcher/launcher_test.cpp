// The launcher from end to end.

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <png.h>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kLauncher = LAUNCHER;
const std::string kProgram = HEAD_PROGRAM;
const std::string kScenarios = SCENARIO_FOLDER;

std::string contentOf(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

struct tsPicture {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<std::uint16_t> values;
    [[nodiscard]] unsigned at(unsigned x, unsigned y) const { return values.at(y * width + x); }
};

tsPicture pictureIn(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_file(&image, path.c_str()), 0) << path;
    EXPECT_EQ(image.format, static_cast<png_uint_32>(PNG_FORMAT_LINEAR_Y));
    tsPicture picture{image.width, image.height, {}};
    picture.values.resize(std::size_t{image.width} * image.height);
    EXPECT_NE(png_image_finish_read(&image, nullptr, picture.values.data(), 0, nullptr), 0);
    return picture;
}

// A PNG picture of one pixel of full light.
void writeWhite(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = image.height = 1;
    image.format = PNG_FORMAT_GRAY;
    const png_byte white = 255;
    ASSERT_NE(png_image_write_to_file(&image, path.c_str(), 0, &white, 0, nullptr), 0);
}

struct tsResult {
    int status = -1;
    std::string out;
    std::string err;
};

class Launcher : public testing::Test {
protected:
    Launcher()
        : m_folder(fs::temp_directory_path() / ("launcher-test-" + std::to_string(getpid()))) {
        fs::create_directories(m_folder / "work");
    }
    ~Launcher() override { fs::remove_all(m_folder); }

    tsResult launch(const std::string& arguments) {
        const std::string command = "cd " + (m_folder / "work").string() + " && " + kLauncher +
                                    " " + arguments + " >" + (m_folder / "out").string() + " 2>" +
                                    (m_folder / "err").string();
        const int status = std::system(command.c_str());
        return {WEXITSTATUS(status), contentOf(m_folder / "out"), contentOf(m_folder / "err")};
    }
    std::string inFolder(const std::string& name) { return (m_folder / name).string(); }
    void write(const std::string& name, const std::string& text) {
        std::ofstream(m_folder / name) << text;
    }

    fs::path m_folder;
};

TEST_F(Launcher, RunsAProgramAndSaysWhatTheHeadSaw) {
    const tsResult result = launch("-- " + kProgram + " bring-up");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "link 0\n");
    EXPECT_THAT(result.err, StartsWith("what the virtual head saw\n"));
    EXPECT_THAT(result.err, HasSubstr("VDD3.3AVDDH 3.300 V"));
    EXPECT_THAT(result.err, HasSubstr("lanes that locked: 0 1 2 3 4 5 6 7 8 9 10 11\n"));
    EXPECT_THAT(result.err, HasSubstr("violations: none\n"));
}

TEST_F(Launcher, GivesTheProgramsExitStatus) {
    EXPECT_EQ(launch("-- " + kProgram + " exit 42").status, 42);
    EXPECT_EQ(launch("-- " + kProgram + " violate 42").status, 42);
}

TEST_F(Launcher, EndsWith9AfterAViolation) {
    const tsResult result = launch("-- " + kProgram + " violate");
    EXPECT_EQ(result.status, 9);
    EXPECT_THAT(result.err, HasSubstr("virtual head: violation of the rule \"sensor-asleep\""));
    EXPECT_THAT(result.err, HasSubstr("  violations: 2\n"));
    EXPECT_THAT(result.err, HasSubstr("sensor-asleep: register 0x04 <- 0x000008"));
}

// In place of the program's standard output and the summary; what it complains of is shown.
TEST_F(Launcher, GivesAnOverviewOfARun) {
    tsResult result = launch("--overview --frames shots -- sh -c '" + kProgram +
                             " capture; echo said; echo complained >&2'");
    EXPECT_EQ(result.status, 0);
    // A shell of the build machine complains before it where the head's library is the target's.
    EXPECT_THAT(result.err, testing::EndsWith("complained\n"));
    EXPECT_THAT(result.out, StartsWith("stages\n      0.000 ms  1.2 V on\n"));
    EXPECT_THAT(result.out, HasSubstr("\nlanes\n  0 1 2 3 4 5 6 7 8 9 10 11 locked, aligned\n"
                                      "pictures\n  3 delivered, 3 kept, the last one is "
                                      "shots/frame-0003.png\nverdict\n"
                                      "  All went well: 3 pictures delivered.\n"));
    EXPECT_THAT(result.out, testing::Not(HasSubstr("said")));

    result = launch("--overview --summary ../summary --scenario " + kScenarios +
                    "/dead-lane.ini -- " + kProgram + " bring-up");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, StartsWith("head\n  dead-lane.ini: Lane 3 carries nothing.\n"));
    EXPECT_THAT(result.out, HasSubstr("\n  The program failed: it ended with status 1.\n"
                                      "  - Lane 3 did not lock.\n"));
    EXPECT_THAT(contentOf(m_folder / "summary"), StartsWith("what the virtual head saw\n"));

    // Said once.
    result = launch("--overview -- " + kProgram + " capture-nothing");
    EXPECT_EQ(result.status, 11);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr("\n  The program succeeded, but no picture came.\n"
                                      "  - No picture came while the sensor streamed for 700."));
}

TEST_F(Launcher, EndsWith11WhenNoPictureCame) {
    const std::string told = "virtual-head: no picture came while the sensor streamed for ";
    const std::string why = "the pipeline is held: the pixel-shift core is in reset\n";
    tsResult result = launch("--summary ../summary -- " + kProgram + " capture-nothing");
    EXPECT_EQ(result.status, 11);
    EXPECT_THAT(result.err, StartsWith(told + "700."));
    EXPECT_THAT(result.err, testing::EndsWith(" (a frame takes 100.000 ms): " + why));
    EXPECT_THAT(contentOf(m_folder / "summary"), HasSubstr(" on: " + why));
    // The program's own failure is the news, but it is said all the same.
    result = launch("--summary ../summary -- " + kProgram + " capture-nothing 3");
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, StartsWith(told));
    // So is a broken rule.
    result = launch("-- sh -c '" + kProgram + " capture-nothing; " + kProgram + " violate 0'");
    EXPECT_EQ(result.status, 9);
    EXPECT_THAT(result.err, HasSubstr(told));
    result = launch("-- " + kProgram + " capture");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, testing::Not(HasSubstr("no picture")));
}

TEST_F(Launcher, ReportsHoweverTheProgramEnds) {
    tsResult result = launch("-- " + kProgram + " quick-exit");
    EXPECT_EQ(result.status, 9);
    EXPECT_THAT(result.err, HasSubstr("  violations: 2\n"));
    result = launch("-- " + kProgram + " abort");
    EXPECT_EQ(result.status, 128 + 6);
    EXPECT_THAT(result.err, HasSubstr("violations: none"));
    result = launch("-- " + kProgram + " fault");
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(result.out, "13573\n");
    EXPECT_THAT(result.err, HasSubstr("FPGA loads: 1, stores: 0"));
    result = launch("-- " + kProgram + " die");
    EXPECT_EQ(result.status, 128 + 9);
    EXPECT_THAT(result.err, HasSubstr("unknown: the program was killed"));
}

TEST_F(Launcher, WritesLogAndSummaryWhereAsked) {
    const tsResult result = launch("--log " + inFolder("log") + " --summary " +
                                   inFolder("summary") + " -- " + kProgram + " bring-up");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(contentOf(m_folder / "summary"), HasSubstr("violations: none\n"));
    const std::string log = contentOf(m_folder / "log");
    EXPECT_THAT(log, StartsWith("[    0.000000000] OPEN /dev/spidev1.0\n"));
    EXPECT_THAT(log, HasSubstr("\n[    0.001000000] GPIO PS_3.3SVDD_EN = 1\n"));
    EXPECT_THAT(log, HasSubstr(" READ 0xFF210004 0x00000007\n"));
    EXPECT_THAT(launch("--summary - -- " + kProgram + " bring-up").out,
                StartsWith("link 0\nwhat the virtual head saw\n"));
}

TEST_F(Launcher, PlaysAScenario) {
    const tsResult result =
        launch("--scenario " + kScenarios + "/dead-lane.ini -- " + kProgram + " bring-up");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "link -2\n");
    EXPECT_THAT(result.err, HasSubstr("lanes that locked: 0 1 2 - 4 5 6 7 8 9 10 11\n"));
}

TEST_F(Launcher, LaysTheScenariosFilesOverTheWorkingDirectory) {
    write("work/settings.txt", "right\n");
    write("work/other.txt", "other\n");
    write("wrong.txt", "wrong\n");
    write("scenario.ini", "[Files]\nsettings.txt = wrong.txt\n");
    const std::string scenario = "--scenario " + inFolder("scenario.ini") + " -- ";
    EXPECT_EQ(launch(scenario + kProgram + " print settings.txt").out, "wrong\n");
    EXPECT_EQ(launch(scenario + kProgram + " print other.txt").out, "other\n");
    EXPECT_EQ(launch("-- " + kProgram + " print settings.txt").out, "right\n");
    EXPECT_EQ(contentOf(m_folder / "work/settings.txt"), "right\n");
}

TEST_F(Launcher, WritesAPictureOfEachFrame) {
    const tsResult result =
        launch("--frames " + inFolder("new/frames") + " -- " + kProgram + " capture");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("  delivered picture: 240 x 128 from x 240 y 384\n"));
    EXPECT_THAT(result.err, HasSubstr("  frames: 3\n  pictures: 3 of 3 delivered\n"));
    const std::string first = inFolder("new/frames/frame-0001.png");
    const tsPicture picture = pictureIn(first);
    EXPECT_EQ(picture.width, 240U);
    EXPECT_EQ(picture.height, 128U);
    EXPECT_EQ(picture.at(0, 112), 1264U);   // column 240
    EXPECT_EQ(picture.at(239, 119), 1503U); // column 479
    EXPECT_EQ(picture.at(0, 120), 1528U);   // row 504
    EXPECT_EQ(picture.at(0, 127), 1535U);   // row 511
    EXPECT_EQ(picture.at(20, 30), 3800U);
    const std::string text = contentOf(first);
    EXPECT_THAT(text, HasSubstr(std::string("tEXtSettings\0time: 0.", 21)));
    EXPECT_THAT(text, HasSubstr("readout area: 0 rows 384 to 511 columns 240 to 479\n"));
    EXPECT_THAT(text, HasSubstr("digital gain: 1.000\n"));
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder / "new/frames"), {}), 3);
}

TEST_F(Launcher, TakesEachPictureWithTheSettingsOfItsTime) {
    launch("--frames . -- " + kProgram + " capture");
    EXPECT_EQ(pictureIn(inFolder("work/frame-0002.png")).at(0, 112), 1264U);
    EXPECT_EQ(pictureIn(inFolder("work/frame-0003.png")).at(0, 112), 2528U);
    EXPECT_EQ(pictureIn(inFolder("work/frame-0003.png")).at(20, 30), 4095U);
    EXPECT_THAT(contentOf(m_folder / "work/frame-0003.png"), HasSubstr("digital gain: 2.000\n"));
}

// A frame ends between the two registers of one message: it still has the first one's gain.
TEST_F(Launcher, TakesAPictureWithTheSettingsOfItsTimeWithinAMessageToo) {
    const tsResult result = launch("--frames . -- " + kProgram + " capture-within-a-message");
    EXPECT_THAT(result.err, HasSubstr("  pictures: 2 of 2 delivered\n"));
    EXPECT_EQ(pictureIn(inFolder("work/frame-0001.png")).at(0, 112), 1264U);
    EXPECT_THAT(contentOf(m_folder / "work/frame-0001.png"), HasSubstr("digital gain: 1.000\n"));
    EXPECT_EQ(pictureIn(inFolder("work/frame-0002.png")).at(0, 112), 2528U);
}

// In real time nothing tells the head that time passes, only the next call.
TEST_F(Launcher, TakesEachPictureWithTheSettingsOfItsTimeInRealTimeToo) {
    launch("--time real --frames . -- " + kProgram + " capture");
    EXPECT_EQ(pictureIn(inFolder("work/frame-0001.png")).at(0, 112), 1264U);
}

// Rising edges of the frame-start line [s].
std::vector<double> pulsesIn(const std::string& dump) {
    std::istringstream lines(dump);
    std::string code;
    double time = 0;
    std::vector<double> pulses;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("$var") && line.ends_with(" FRAME-START $end")) {
            code = line.substr(12, line.find(' ', 12) - 12);
        } else if (line.starts_with("#")) {
            time = std::stod(line.substr(1)) / 1e9;
        } else if (line == "1" + code) {
            pulses.push_back(time);
        }
    }
    return pulses;
}

// Each begins with a pulse, 100 ms after the one before. 64 lines of 25 us bring its rows. The
// first pulse of a run trains the link; with the second one, capture starts.
TEST_F(Launcher, SaysWhenEachPictureWasTaken) {
    launch("--frames . --vcd run.vcd -- " + kProgram + " capture");
    const std::vector<double> pulses = pulsesIn(contentOf(m_folder / "work/run.vcd"));
    ASSERT_GE(pulses.size(), 5U);
    const auto time = [this](const std::string& name) {
        const std::string text = contentOf(m_folder / "work" / name);
        return std::stod(text.substr(text.find("time: ") + 6));
    };
    EXPECT_NEAR(time("frame-0001.png"), pulses[2] + 0.0016, 1e-9);
    EXPECT_NEAR(time("frame-0002.png"), pulses[3] + 0.0016, 1e-9);
    EXPECT_NEAR(time("frame-0003.png"), pulses[4] + 0.0016, 1e-9);
    EXPECT_NEAR(pulses[4] - pulses[3], 0.1, 1e-9);
}

// The second program has files of its own. Only it captures.
TEST_F(Launcher, WritesTheSecondProgramsWavesAndReportBesideTheFirstOnes) {
    const tsResult result = launch("--vcd run.vcd --report run.html -- sh -c '" + kProgram +
                                   " bring-up; " + kProgram + " capture'");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(pulsesIn(contentOf(m_folder / "work/run.vcd")), testing::SizeIs(1));
    // One to train the link, and five for 458 ms of capture.
    EXPECT_THAT(pulsesIn(contentOf(m_folder / "work/run.vcd.2")), testing::SizeIs(6));
    EXPECT_THAT(contentOf(m_folder / "work/run.html"),
                HasSubstr("<td>never</td><td>frames arrive</td>"));
    const std::string second = contentOf(m_folder / "work/run.html.2");
    EXPECT_THAT(second, HasSubstr("<td>frames arrive</td>"));
    EXPECT_THAT(second, testing::Not(HasSubstr("<td>never</td>")));
    EXPECT_FALSE(fs::exists(m_folder / "work/run.vcd.3"));
    EXPECT_FALSE(fs::exists(m_folder / "work/run.html.3"));
}

TEST_F(Launcher, WritesNoMorePicturesThanAsked) {
    const tsResult result = launch("--frames . --max-frames 2 -- " + kProgram + " capture");
    EXPECT_THAT(result.err, HasSubstr("  pictures: 2 of 3 delivered\n"));
    EXPECT_TRUE(fs::exists(m_folder / "work/frame-0002.png"));
    EXPECT_FALSE(fs::exists(m_folder / "work/frame-0003.png"));
}

TEST_F(Launcher, RemovesThePicturesOfAnEarlierRunAndNothingElse) {
    launch("--frames . -- " + kProgram + " capture");
    ASSERT_TRUE(fs::exists(m_folder / "work/frame-0003.png"));
    // A picture under another name, another's file under such a name, and a link to a picture.
    fs::copy_file(m_folder / "work/frame-0001.png", m_folder / "work/keep.png");
    fs::copy_file(m_folder / "work/frame-0001.png", m_folder / "work/frame-001.png");
    fs::copy_file(m_folder / "work/frame-0001.png", m_folder / "work/frame-0001a.png");
    fs::copy_file(m_folder / "work/frame-0001.png", m_folder / "work/frame-1234.png.old");
    writeWhite(inFolder("work/frame-0004.png"));
    fs::create_symlink("keep.png", m_folder / "work/frame-0005.png");
    fs::copy_file(m_folder / "work/frame-0001.png", m_folder / "work/frame-12345.png");
    const tsResult result = launch("--frames . --max-frames 1 -- " + kProgram + " capture");
    EXPECT_THAT(result.err, HasSubstr("  pictures: 1 of 3 delivered\n"));
    std::set<std::string> left;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_folder / "work")) {
        left.insert(entry.path().filename().string());
    }
    EXPECT_THAT(left, testing::ElementsAre("frame-0001.png", "frame-0001a.png", "frame-0004.png",
                                           "frame-0005.png", "frame-001.png", "frame-1234.png.old",
                                           "keep.png"));
}

// Wrong usage changes nothing.
TEST_F(Launcher, KeepsThePicturesOfAnEarlierRunWhenTheProgramIsNotTried) {
    launch("--frames . -- " + kProgram + " capture");
    EXPECT_EQ(launch("--frames . --scenario none.ini -- " + kProgram + " capture").status, 2);
    EXPECT_EQ(launch("--frames . --workdir /no/such/folder -- true").status, 2);
    EXPECT_TRUE(fs::exists(m_folder / "work/frame-0003.png"));
}

TEST_F(Launcher, WritesNoPictureOfAHeadThatDeliversNone) {
    const tsResult result = launch("--frames . -- " + kProgram + " bring-up");
    EXPECT_THAT(result.err, HasSubstr("  frames: 0\n  pictures: 0 of 0 delivered\n"));
    EXPECT_TRUE(fs::is_empty(m_folder / "work"));
}

TEST_F(Launcher, ShowsTheSceneThatItIsGiven) {
    writeWhite(inFolder("white.png"));
    launch("--frames . --scene ../white.png -- " + kProgram + " capture");
    EXPECT_EQ(pictureIn(inFolder("work/frame-0001.png")).at(0, 112), 4095U);
}

TEST_F(Launcher, ShowsSceneAndDefectsOfTheScenario) {
    writeWhite(inFolder("white.png"));
    write("scenario.ini", "[Scene]\npicture = white.png\n[Defects]\ndead = 241 386 5\n");
    launch("--frames . --scenario " + inFolder("scenario.ini") + " -- " + kProgram + " capture");
    const tsPicture picture = pictureIn(inFolder("work/frame-0001.png"));
    EXPECT_EQ(picture.at(0, 112), 4095U);
    EXPECT_EQ(picture.at(1, 2), 5U);
}

TEST_F(Launcher, RefusesScenesAndFoldersBeforeTheProgramStarts) {
    write("no-picture.png", "no picture");
    const std::string program = " -- " + kProgram + " print /dev/null";
    tsResult result = launch("--frames . --scene " + inFolder("no-picture.png") + program);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, ContainsRegex("virtual-head: .*no-picture.png: no picture: "));
    result = launch("--frames " + inFolder("no-picture.png") + "/folder" + program);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("folder: no such directory"));
    EXPECT_EQ(launch("--scene " + inFolder("no-picture.png") + program).status, 2); // no --frames
    EXPECT_EQ(launch("--frames . --max-frames 0" + program).status, 2);
    write("scenario.ini", "[Scene]\npicture = none.png\n");
    result = launch("--scenario " + inFolder("scenario.ini") + program);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("[Scene] picture = none.png: allowed is a file that exists"));
}

TEST_F(Launcher, RunsInAnotherWorkingDirectory) {
    fs::create_directory(m_folder / "elsewhere");
    write("elsewhere/here.txt", "here\n");
    EXPECT_EQ(
        launch("--workdir " + inFolder("elsewhere") + " -- " + kProgram + " print here.txt").out,
        "here\n");
}

TEST_F(Launcher, RunsInVirtualOrRealTime) {
    EXPECT_EQ(launch("-- " + kProgram + " sleep").out, "skipped\n");
    EXPECT_EQ(launch("--time virtual -- " + kProgram + " sleep").out, "skipped\n");
    EXPECT_EQ(launch("--time real -- " + kProgram + " sleep").out, "slept\n");
}

TEST_F(Launcher, ReportsOnceWhenTheProgramForks) {
    const std::string report = launch("-- " + kProgram + " fork").err;
    EXPECT_EQ(report.find("what the virtual head saw"), 0U);
    EXPECT_EQ(report.find("what the virtual head saw", 1), std::string::npos);
}

TEST_F(Launcher, FollowsAShellToTheProgram) {
    const tsResult result = launch("-- sh -c '" + kProgram + " violate; exit 0'");
    EXPECT_EQ(result.status, 9);
    EXPECT_THAT(result.err, HasSubstr("sensor-asleep"));
}

TEST_F(Launcher, SaysWhatIsWrongWithItsArguments) {
    EXPECT_EQ(launch("").status, 2);
    EXPECT_EQ(launch("--no-such-option -- true").status, 2);
    EXPECT_EQ(launch("--time sometimes -- true").status, 2);
    EXPECT_EQ(launch("--workdir /no/such/folder -- true").status, 2);
    EXPECT_EQ(launch("--log /no/such/folder/log -- true").status, 2);
    EXPECT_EQ(launch("--help").status, 0);
    write("scenario.ini", "[Supplies]\nVDD5 = 5\n");
    const tsResult result = launch("--scenario " + inFolder("scenario.ini") + " -- true");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("scenario.ini: [Supplies] VDD5: unknown key"));
}

TEST_F(Launcher, SaysWhenTheProgramCannotBeStarted) {
    const tsResult result = launch("-- /no/such/program");
    EXPECT_EQ(result.status, 127);
    EXPECT_EQ(result.err, "virtual-head: /no/such/program: No such file or directory\n");
}

TEST_F(Launcher, PrintsTheDocuments) {
    EXPECT_THAT(launch("--print-registers").out, StartsWith("# Registers\n"));
    EXPECT_THAT(launch("--print-rules").out, StartsWith("# Rules of the head\n"));
    EXPECT_THAT(launch("--print-scenario-keys").out, StartsWith("# Scenario keys\n"));
}

TEST_F(Launcher, LeavesNoTemporaryFolderBehind) {
    fs::create_directory(m_folder / "temporary");
    write("wrong.txt", "");
    write("scenario.ini", "[Files]\nsettings.txt = wrong.txt\n");
    const std::string command = "TMPDIR=" + inFolder("temporary") + " " + kLauncher +
                                " --summary /dev/null --scenario " + inFolder("scenario.ini") +
                                " -- true";
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_TRUE(fs::is_empty(m_folder / "temporary"));
}

TEST_F(Launcher, RecordsARunAndReplaysIt) {
    tsResult result = launch("--record ../run.rec -- " + kProgram + " bring-up");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "link 0\n");
    EXPECT_THAT(result.err, ContainsRegex("violations: none\n  recording: [0-9]+ calls in .*"));
    const std::string recording = contentOf(m_folder / "run.rec");
    EXPECT_THAT(recording, StartsWith("virtual-head recording 1\n"
                                      "[    0.000000000] open /dev/spidev1.0 rw cloexec = #1\n"));
    EXPECT_THAT(recording, HasSubstr("] load 0xFF210004 4 = 0x0000000F\n"));

    result = launch("--replay ../run.rec -- " + kProgram + " bring-up");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "link 0\n");
    EXPECT_THAT(result.err,
                ContainsRegex("what the recording answered\n  calls: [0-9]+ of .*/run.rec"
                              "\n  played to its end\n"));
}

TEST_F(Launcher, EndsWith10WhenTheProgramDoesNotDoWhatTheRecordingSays) {
    launch("--record ../run.rec -- " + kProgram + " ask");
    tsResult result = launch("--replay ../run.rec -- " + kProgram + " violate 0");
    EXPECT_EQ(result.status, 10);
    EXPECT_EQ(result.err,
              "virtual head: " + inFolder("work/../run.rec") +
                  ":3: the program does something else\n"
                  "  recorded: ioctl #1 SPI_IOC_MESSAGE 0F B9 04 36 (0 Hz, 0 bits, read)\n"
                  "  now:      ioctl #1 SPI_IOC_MESSAGE 01 00 00 08 (0 Hz, 0 bits)\n");

    std::ofstream(m_folder / "run.rec", std::ios::app) << "[    1.000000000] close #9 = 0\n";
    result = launch("--replay ../run.rec -- " + kProgram + " ask");
    EXPECT_EQ(result.status, 10);
    EXPECT_THAT(result.err, HasSubstr("run.rec:15: the recording goes on\n"
                                      "  recorded: close #9\n"
                                      "  now:      nothing: the program has ended\n"));

    result = launch("--replay ../run.rec -- " + kProgram + " exit 0");
    EXPECT_EQ(result.status, 10);
    EXPECT_THAT(result.err, HasSubstr("virtual-head: ../run.rec: not played: no process of the "
                                      "program opened a device\n"));
    // The program's own failure is the news.
    EXPECT_EQ(launch("--replay ../run.rec -- " + kProgram + " exit 3").status, 3);
}

TEST_F(Launcher, RecordsEveryProcessForItself) {
    const std::string two = "-- sh -c '" + kProgram + " ask; " + kProgram + " violate 0'";
    launch("--record ../run.rec " + two);
    EXPECT_THAT(contentOf(m_folder / "run.rec.2"), HasSubstr("SPI_IOC_MESSAGE 01 00 00 08"));
    EXPECT_EQ(launch("--replay ../run.rec " + two).status, 0);
    const tsResult result = launch("--replay ../run.rec -- " + kProgram + " ask");
    EXPECT_EQ(result.status, 10);
    EXPECT_THAT(result.err, HasSubstr("virtual-head: ../run.rec.2: not played"));
    // What an earlier run left is not taken for this one's.
    launch("--record ../run.rec -- " + kProgram + " ask");
    EXPECT_FALSE(fs::exists(m_folder / "run.rec.2"));
}

TEST_F(Launcher, RecordsTheMachinesOwnDevices) {
    const std::string program =
        "-- sh -c 'LD_PRELOAD=$LD_PRELOAD:" FAKE_DEVICES " exec " + kProgram + " ask'";
    tsResult result = launch("--hardware --record ../run.rec " + program);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "4 1 f0 46 fb c9 5a 3505 12345678\n");
    EXPECT_THAT(result.err, ContainsRegex("what the devices of this machine answered\n"
                                          "  recording: 13 calls in .*/run.rec\n"));
    std::string calls;
    std::istringstream lines(contentOf(m_folder / "run.rec"));
    for (std::string line; std::getline(lines, line);) {
        calls += line.substr(line.find("] ") == std::string::npos ? 0 : line.find("] ") + 2) + "\n";
    }
    EXPECT_EQ(calls, "virtual-head recording 1\n"
                     "open /dev/spidev1.0 rw cloexec = #1\n"
                     "ioctl #1 SPI_IOC_MESSAGE 0F B9 04 36 (0 Hz, 0 bits, read) = 4 | F0 46 FB C9\n"
                     "open /dev/i2c-1 rw cloexec = #2\n"
                     "ioctl #2 I2C_RDWR 0x49 flags 0x1 read 2 = 1 | 5A 5A\n"
                     "open /dev/mem rw sync cloexec = #3\n"
                     "mmap #3 0xFF200000 16384 rw shared = 0\n"
                     "close #3 = 0\n"
                     "store 0xFF200014 4 0x12345678 = 0\n"
                     "load 0xFF200000 4 = 0x00003505\n"
                     "load 0xFF200014 4 = 0x12345678\n"
                     "munmap 0xFF200000 16384 = 0\n"
                     "close #2 = 0\n"
                     "close #1 = 0\n");
    // What the real devices said, without them.
    result = launch("--replay ../run.rec -- " + kProgram + " ask");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "4 1 f0 46 fb c9 5a 3505 12345678\n");
}

TEST_F(Launcher, RefusesRecordingsThatMakeNoSense) {
    write("no.rec", "a log\n");
    write("old.rec", "virtual-head recording 1\n");
    const std::string program = " -- " + kProgram + " exit 0";
    const tsResult result = launch("--replay ../no.rec" + program);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "virtual-head: ../no.rec: line 1: expected \"virtual-head recording 1\"\n");
    EXPECT_EQ(launch("--replay ../none.rec" + program).status, 2);
    EXPECT_EQ(launch("--record /no/such/folder/run.rec" + program).status, 2);
    EXPECT_EQ(launch("--hardware" + program).status, 2);
    for (const char* other :
         {"--record ../new.rec", "--hardware", "--log ../log", "--vcd ../vcd", "--report ../page",
          "--time real", "--frames .", "--scenario ../scenario.ini"}) {
        EXPECT_EQ(launch("--replay ../old.rec " + std::string(other) + program).status, 2) << other;
    }
    EXPECT_EQ(launch("--hardware --record ../new.rec --log ../log" + program).status, 2);
    EXPECT_EQ(contentOf(m_folder / "old.rec"), "virtual-head recording 1\n");
}

} // namespace

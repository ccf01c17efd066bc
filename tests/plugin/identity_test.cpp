// Identity, version and temperature.

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <thread>

#include <poll.h>

#include "tests/plugin/plugin_test.h"
#include "tests/support/fed_pipe.h"

using Varnox::tc3U5MGXSSensorBoard;
using Varnox::tsCameraInfo;

namespace {

class Identity : public tcPluginTest {
protected:
    Varnox::tc3U5MGXSSensorBoard& makeKnownBoard() {
        useHead(aQuickHead().withSystemId(0x1234, 0x10));
        return makeBoard();
    }

    /// \return the version text in front of the software's part
    std::string files() {
        const std::string version = board().getVersion();
        return version.substr(0, version.find("\"SW:"));
    }
};

const std::string kUnknown = "\"???\" ";

std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

} // namespace

// ---- getVersion

TEST_F(Identity, VersionWithoutFilesHasEightUnknownParts) {
    makeKnownBoard();
    const std::string version = board().getVersion();
    EXPECT_TRUE(std::regex_match(
        version, std::regex(R"re(("\?\?\?" ){8}"SW:[A-Z][a-z]{2} [ 1-3][0-9] 20[0-9]{2} )re"
                            R"re([0-2][0-9]:[0-5][0-9]:[0-6][0-9]" SYSID:1234\.10)re")))
        << version;
}

TEST_F(Identity, VersionQuotesTheFirstLineOfEveryFileInOrder) {
    makeKnownBoard();
    directory().write("version/kernel_version.txt", "h\n");
    directory().write("version/io_board_rev.txt", "g\n");
    directory().write("version/soc_io_board_rev.txt", "f\n");
    directory().write("version/sensor_board_rev.txt", "e\n");
    directory().write("version/sensor_serial.txt", "d\n");
    directory().write("version/sensor_part.txt", "c\n");
    directory().write("version/serial.txt", "b\n");
    directory().write("version/cam_part.txt", "a\n");
    EXPECT_EQ(files(), R"("a" "b" "c" "d" "e" "f" "g" "h" )");
}

TEST_F(Identity, VersionWithTheShippedFiles) {
    useShippedFiles();
    makeKnownBoard();
    EXPECT_EQ(files(), R"("3U5MGXS-C" "000017" "3U5MGXS" "4711" "B" "C2" "A" "6.1.0" )");
}

TEST_F(Identity, VersionReadsTheSystemIdEveryTime) {
    makeKnownBoard();
    std::string version;
    EXPECT_EQ(seen([&] { version = board().getVersion(); }),
              text({load(0xFF200000, 0x1234), load(0xFF200004, 0x10)}));
    EXPECT_THAT(version, testing::EndsWith("\" SYSID:1234.10"));
    head().setFpgaWord(0xFF200000, 0xABCDEF01);
    EXPECT_THAT(board().getVersion(), testing::EndsWith("\" SYSID:abcdef01.10"));
}

TEST_F(Identity, AVersionLineIsTakenAsItStands) {
    makeKnownBoard();
    const std::string rest = repeated(kUnknown, 7);
    const auto shownAs = [&](const std::string& content) {
        directory().write("version/cam_part.txt", content);
        const std::string all = files();
        EXPECT_THAT(all, testing::EndsWith(rest));
        return all.substr(0, all.size() - rest.size());
    };
    EXPECT_EQ(shownAs("first\nsecond\n"), "\"first\" ");
    EXPECT_EQ(shownAs("no line end"), "\"no line end\" ");
    EXPECT_EQ(shownAs("  blanks \t\n"), "\"  blanks \t\" ");
    EXPECT_EQ(shownAs("with\r\n"), "\"with\r\" ");
    EXPECT_EQ(shownAs("say \"yes\"\n"), "\"say \"yes\"\" ");
    EXPECT_EQ(shownAs(std::string("a\0b\n", 4)), std::string("\"a\0b\" ", 6));
    EXPECT_EQ(shownAs("\nsecond\n"), "\"\" ");
    EXPECT_EQ(shownAs(""), "\"\" ");
}

TEST_F(Identity, AVersionFileThatCannotBeReadIsUnknown) {
    makeKnownBoard();
    std::filesystem::create_directories("version/serial.txt"); // opens, and cannot be read
    EXPECT_EQ(files(), repeated(kUnknown, 8));
}

TEST_F(Identity, AVersionFileThatIsAPipeIsReadLikeAnyFile) {
    makeKnownBoard();
    std::filesystem::create_directories("version");
    const tcFedPipe pipe("version/serial.txt", "from a pipe\n");
    EXPECT_EQ(files(), kUnknown + "\"from a pipe\" " + repeated(kUnknown, 6));
}

TEST_F(Identity, AVersionFileOfManyMegabytesCostsItsFirstLine) {
    makeKnownBoard();
    directory().write("version/serial.txt", "b\n" + std::string(16 << 20, 'x'));
    EXPECT_EQ(files(), kUnknown + "\"b\" " + repeated(kUnknown, 6));
}

TEST_F(Identity, ALongVersionLineIsTakenWhole) {
    makeKnownBoard();
    const std::string line(3 << 20, 'x');
    directory().write("version/cam_part.txt", line);
    EXPECT_TRUE(files() == '"' + line + "\" " + repeated(kUnknown, 7));
}

TEST_F(Identity, AVersionLineOfAHundredThousandCharactersIsWhole) {
    makeKnownBoard();
    const std::string line(100'000, 'x');
    directory().write("version/cam_part.txt", line + "\n");
    EXPECT_EQ(files(), "\"" + line + "\" " + repeated(kUnknown, 7));
}

TEST_F(Identity, VersionWaitsForTheBoardMutex) {
    class tcOpenBoard : public tc3U5MGXSSensorBoard {
    public:
        tcOpenBoard() : tc3U5MGXSSensorBoard("/dev/spidev1.0") {}
        using tc3U5MGXSSensorBoard::boardMutex;
    };
    tcOpenBoard open;
    std::atomic<bool> done{false};
    ASSERT_EQ(open.boardMutex().lock(), 0);
    std::thread other([&] {
        open.getVersion();
        done = true;
    });
    poll(nullptr, 0, 30); // real time, whatever the head's clock says
    EXPECT_FALSE(done);
    ASSERT_EQ(open.boardMutex().unlock(), 0);
    other.join();
    EXPECT_TRUE(done);

    std::thread([&] { open.boardMutex().lock(); }).join(); // and dies with it
    EXPECT_FALSE(open.getVersion().empty());
    EXPECT_EQ(open.boardMutex().lock(), 0);
    EXPECT_EQ(open.boardMutex().unlock(), 0);
}

TEST_F(Identity, BuildDateAndTimeFollowTheReproducibleBuildsEpoch) {
#ifndef HEAD_BUILT_BY_GCC
    GTEST_SKIP() << "Clang takes no time from the environment; GCC builds what ships";
#endif
    // The same source, compiled for the second day of 1970.
    std::ifstream object(HEAD_EPOCH_OBJECT, std::ios::binary);
    ASSERT_TRUE(object) << HEAD_EPOCH_OBJECT;
    const std::string bytes{std::istreambuf_iterator<char>(object), {}};
    EXPECT_THAT(bytes, testing::HasSubstr("Jan  2 1970"));
    EXPECT_THAT(bytes, testing::HasSubstr("03:04:05"));
}

// ---- GetCameraInfo

TEST_F(Identity, CameraInfoIsTheSameToTheLastByte) {
    makeBoard();
    static_assert(sizeof(tsCameraInfo) == 68);
    std::array<unsigned char, 68> expected{};
    std::memcpy(expected.data(), "3U5MGXS", 7);
    std::memcpy(expected.data() + 16, "Canon", 5);
    const auto put = [&expected](std::size_t at, std::int32_t value) {
        std::memcpy(expected.data() + at, &value, 4);
    };
    put(48, 2592); // region: y and x are 0
    put(52, 2056);
    put(60, 2592); // behind the 16-bit value and two bytes of padding
    put(64, 2056);

    for (const int before : {0x00, 0xFF, 0xA5}) {
        tsCameraInfo info;
        std::memset(static_cast<void*>(&info), before, sizeof info);
        int result = -1;
        EXPECT_EQ(seen([&] { result = board().GetCameraInfo(info); }), "");
        EXPECT_EQ(result, 0);
        std::array<unsigned char, 68> bytes{};
        std::memcpy(bytes.data(), &info, sizeof info);
        EXPECT_EQ(bytes, expected);
        EXPECT_STREQ(info.model, "3U5MGXS");
        EXPECT_STREQ(info.maker, "Canon");
        EXPECT_EQ(info.fullFrame, (Varnox::ROI{0, 0, 2592, 2056}));
        EXPECT_EQ(info.flags, 0);
        EXPECT_EQ(info.sensorWidth, 2592);
        EXPECT_EQ(info.sensorHeight, 2056);
    }
}

TEST_F(Identity, CameraInfoIsTheSensorsWhateverRegionIsSet) {
    makeReadyBoard();
    ASSERT_EQ(board().setROI({10, 24, 240, 20}), 0);
    tsCameraInfo info{};
    board().GetCameraInfo(info);
    EXPECT_EQ(info.fullFrame, (Varnox::ROI{0, 0, 2592, 2056}));
}

// ---- Temperature and persistence

TEST_F(Identity, TemperatureIsAFixedText) {
    makeBoard();
    EXPECT_EQ(seen([&] {
                  for (const int index : {-1, 0, 1, 7, 0x7FFFFFFF}) {
                      EXPECT_EQ(board().getTemperature(index), "-275");
                  }
              }),
              "");
}

TEST_F(Identity, SettingsCannotBeSavedOrRecalled) {
    makeReadyBoard();
    EXPECT_EQ(seen([&] {
                  for (const int slot : {-1, 0, 1, 15}) {
                      EXPECT_EQ(board().save(slot), 7);
                      EXPECT_EQ(board().recall(slot), 7);
                  }
              }),
              "");
}

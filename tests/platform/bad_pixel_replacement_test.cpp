#include <varnox/bad_pixel_replacement.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/platform/captured.h"

using sim::aVirtualHead;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr Varnox::ROI kFullFrame{0, 0, 2592, 2056};
constexpr std::uint32_t kControl = 0xFF215000;
constexpr std::uint32_t kRoiOrigin = 0xFF215008;
constexpr std::uint32_t kRoiSize = 0xFF21500C;
constexpr std::uint32_t kEntries = 0xFF215010;
constexpr std::uint32_t kTable = 0xFF213000;
constexpr std::uint32_t kInForce = 0xFF212004;

tcBadPixelReplacement makeCore() {
    return {0xFF215000, 0xFF213000, 0xFF212000, 0x12000000, kFullFrame};
}

/// A file in a folder of the test's own, gone with the object.
class tcTextFile {
public:
    explicit tcTextFile(const std::string& text)
        : m_folder(testing::TempDir() + "bad_pixel_XXXXXX") {
        if (::mkdtemp(m_folder.data()) == nullptr)
            ADD_FAILURE() << "no temporary folder";
        m_path = m_folder + "/map.txt";
        std::ofstream(m_path, std::ios::binary) << text;
    }
    tcTextFile(const tcTextFile&) = delete;
    tcTextFile& operator=(const tcTextFile&) = delete;
    ~tcTextFile() { std::filesystem::remove_all(m_folder); }

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] const std::string& folder() const { return m_folder; }

private:
    std::string m_folder;
    std::string m_path;
};

class BadPixelReplacementTest : public testing::Test {
protected:
    BadPixelReplacementTest() {
        EXPECT_TRUE(core.initialize());
        head.clearLog();
    }

    sim::tcVirtualHead head = aVirtualHead().build();
    tcBadPixelReplacement core = makeCore();
};

} // namespace

TEST(BadPixelReplacement, TouchesNoRegisterBeforeItIsInitialized) {
    const auto head = aVirtualHead().build();
    const tcBadPixelReplacement core = makeCore();
    EXPECT_THAT(head.lines(sim::kHardwareEvents), IsEmpty());
}

TEST(BadPixelReplacement, SetsTheCoreUpWhileItStandsStill) {
    auto head = aVirtualHead().build();
    tcBadPixelReplacement core = makeCore();
    head.clearLog();
    EXPECT_TRUE(core.initialize());
    EXPECT_THAT(head.lines(),
                ElementsAre("READ 0xFF215200 0x42505231", "WRITE 0xFF215000 0x00000000",
                            "WRITE 0xFF215014 0x12000000", "WRITE 0xFF215008 0x00000000",
                            "WRITE 0xFF21500C 0x08080A20", "WRITE 0xFF215010 0x00000000",
                            "WRITE 0xFF212000 0x00000001", "WRITE 0xFF215000 0x00000001"));
    EXPECT_TRUE(core.onState());
    EXPECT_FALSE(core.mapState());
}

TEST(BadPixelReplacement, IsNotInitializedWhenABlockIsMissingOrTheCoreIsSilent) {
    const auto unusable = [](sim::tcVirtualHead head) {
        testing::internal::CaptureStderr();
        tcBadPixelReplacement core = makeCore();
        testing::internal::GetCapturedStderr();
        EXPECT_FALSE(core.initialize());
        head.clearLog();
        EXPECT_EQ(stderrOf([&] {
                      core.reset(true);
                      core.setRoi(kFullFrame);
                      core.setColor(true);
                      EXPECT_FALSE(core.setData(""));
                      core.setMapState(true);
                      EXPECT_FALSE(core.mapState());
                      EXPECT_FALSE(core.onState());
                  }),
                  "tcBadPixelReplacement at 0xFF215000: reset: the core is not there\n");
        EXPECT_EQ(stdoutOf([&] { core.dumpRegisters(); }),
                  "tcBadPixelReplacement at 0xFF215000: the core is not there\n");
        EXPECT_THAT(head.lines(), IsEmpty());
    };
    unusable(aVirtualHead().withMapFailing(0xFF215000, EPERM).build());
    unusable(aVirtualHead().withMapFailing(0xFF213000, EPERM).build());
    unusable(aVirtualHead().withMapFailing(0xFF212000, EPERM).build());
    unusable(aVirtualHead().withSilentCore(sim::teCore::badPixel).build());
}

TEST_F(BadPixelReplacementTest, ShowsItsRegistersInOneOrderWhateverTheCompiler) {
    core.setRoi(kFullFrame);
    head.clearLog();
    const std::string shown = stdoutOf([&] { core.dumpRegisters(); });
    EXPECT_THAT(head.lines(),
                ElementsAre("READ 0xFF215204 0x00010000", "READ 0xFF215000 0x00000001",
                            "READ 0xFF215004 0x00000001", "READ 0xFF215008 0x00000000",
                            "READ 0xFF21500C 0x08080A20", "READ 0xFF215014 0x12000000",
                            "READ 0xFF215010 0x00000000", "READ 0xFF212004 0x00000000"));
    EXPECT_EQ(shown, "tcBadPixelReplacement at 0xFF215000: revision 0x00010000, control "
                     "0x00000001, status 0x00000001, origin 0x00000000, size 0x08080A20, buffer "
                     "0x12000000, pixels 0, in force 0\n");
}

TEST_F(BadPixelReplacementTest, IsHeldInResetAndLetGo) {
    core.reset(true);
    EXPECT_EQ(head.fpgaWord(kControl), 0x80000001U);
    EXPECT_FALSE(core.onState());
    core.reset(false);
    EXPECT_EQ(head.fpgaWord(kControl), 0x00000001U);
    EXPECT_TRUE(core.onState());
}

TEST_F(BadPixelReplacementTest, SwitchesReplacementAndColourOneByOne) {
    core.setMapState(true);
    EXPECT_TRUE(core.mapState());
    EXPECT_EQ(head.fpgaWord(kControl), 0x00000003U);
    core.setColor(true);
    EXPECT_EQ(head.fpgaWord(kControl), 0x00000007U);
    core.setMapState(false);
    EXPECT_FALSE(core.mapState());
    EXPECT_EQ(head.fpgaWord(kControl), 0x00000005U);
    core.setColor(false);
    EXPECT_EQ(head.fpgaWord(kControl), 0x00000001U);
}

TEST_F(BadPixelReplacementTest, TakesTheRegionThatArrives) {
    core.setRoi({100, 24, 240, 20});
    EXPECT_THAT(head.lines(),
                ElementsAre("WRITE 0xFF215008 0x00640018", "WRITE 0xFF21500C 0x001400F0"));
    core.setRoi(kFullFrame);
    EXPECT_EQ(head.fpgaWord(kRoiOrigin), 0U);
    EXPECT_EQ(head.fpgaWord(kRoiSize), 0x08080A20U);
}

TEST_F(BadPixelReplacementTest, RefusesARegionOutsideTheFullFrame) {
    const auto refused = [&](const Varnox::ROI& roi) {
        return stderrOf([&] { core.setRoi(roi); });
    };
    EXPECT_EQ(
        refused({0, 24, 2592, 2056}),
        "tcBadPixelReplacement: setRoi: [y: 0, x: 24, width: 2592, height: 2056] is not inside "
        "the full frame [y: 0, x: 0, width: 2592, height: 2056]; the region in force stays\n");
    EXPECT_NE(refused({2, 0, 2592, 2056}), "");
    EXPECT_NE(refused({-2, 0, 24, 2}), "");
    EXPECT_NE(refused({0, -24, 24, 2}), "");
    EXPECT_NE(refused({0, 0, 0, 2}), "");
    EXPECT_NE(refused({0, 0, 24, 0}), "");
    EXPECT_NE(refused({0, 0, -24, 2}), "");
    EXPECT_NE(refused({2147483647, 0, 24, 2147483647}), "");
    EXPECT_THAT(head.lines(), IsEmpty());
}

TEST_F(BadPixelReplacementTest, WritesTheTableInRasterOrderAndTakesItOver) {
    EXPECT_TRUE(core.setData("5 9\n2591 2055\n4 9\n"));
    EXPECT_THAT(head.lines(),
                ElementsAre("WRITE 0xFF213000 0x00090004", "WRITE 0xFF213004 0x00090005",
                            "WRITE 0xFF213008 0x08070A1F", "WRITE 0xFF215010 0x00000003",
                            "WRITE 0xFF212000 0x00000001"));
    EXPECT_EQ(head.fpgaWord(kInForce), 3U);
}

TEST_F(BadPixelReplacementTest, ClearsTheMapWithNoText) {
    EXPECT_TRUE(core.setData("1 1\n"));
    EXPECT_TRUE(core.setData(""));
    EXPECT_EQ(head.fpgaWord(kEntries), 0U);
    EXPECT_EQ(head.fpgaWord(kInForce), 0U);
}

TEST_F(BadPixelReplacementTest, DefaultMapHasNoPixels) {
    EXPECT_EQ(core.defaultData(), "# No defective pixel\n");
    EXPECT_TRUE(core.setData("1 1\n"));
    EXPECT_TRUE(core.setData(core.defaultData()));
    EXPECT_EQ(head.fpgaWord(kInForce), 0U);
}

TEST_F(BadPixelReplacementTest, ReadsTheMapFromAFile) {
    const tcTextFile file("# two of them\n10 20\n30 40\n");
    EXPECT_TRUE(core.setData(file.path()));
    EXPECT_EQ(head.fpgaWord(kTable), 0x0014000AU);
    EXPECT_EQ(head.fpgaWord(kTable + 4), 0x0028001EU);
    EXPECT_EQ(head.fpgaWord(kInForce), 2U);
}

TEST_F(BadPixelReplacementTest, NamesFileAndLineOfWhatIsNoMap) {
    const tcTextFile file("10 20\n\nten twenty\n");
    EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(core.setData(file.path())); }),
              "tcBadPixelReplacement: setData: " + file.path() +
                  ", line 3: \"ten twenty\" is not a pixel \"X Y\"; the map in force stays\n");
    EXPECT_THAT(head.lines(), IsEmpty());
}

TEST_F(BadPixelReplacementTest, SaysThatThereIsNoFileOfThatName) {
    EXPECT_TRUE(core.setData("7 8\n"));
    head.clearLog();
    EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(core.setData("no_such_map.txt")); }),
              "tcBadPixelReplacement: setData: text (no readable file of that name), line 1: "
              "\"no_such_map.txt\" is not a pixel \"X Y\"; the map in force stays\n");
    EXPECT_THAT(head.lines(), IsEmpty());
    EXPECT_EQ(head.fpgaWord(kInForce), 1U);
}

TEST_F(BadPixelReplacementTest, TakesAFolderForNoFile) {
    const tcTextFile file("");
    EXPECT_NE(stderrOf([&] { EXPECT_FALSE(core.setData(file.folder())); }), "");
    EXPECT_NE(stderrOf([&] { EXPECT_FALSE(core.setData("/dev/zero")); }), "");
    EXPECT_TRUE(core.setData(file.path())); // an empty file is an empty map
}

TEST_F(BadPixelReplacementTest, ReadsTextWithAZeroByteAsText) {
    EXPECT_NE(stderrOf([&] { EXPECT_FALSE(core.setData(std::string("1 2\0", 4))); }), "");
}

TEST_F(BadPixelReplacementTest, TakesAsManyPixelsAsTheTableHolds) {
    std::string text;
    for (int i = 0; i < 1024; ++i)
        text += std::to_string(i) + " 0\n";
    EXPECT_TRUE(core.setData(text));
    EXPECT_EQ(head.fpgaWord(kEntries), 1024U);
    EXPECT_EQ(head.fpgaWord(kTable + 4 * 1023), 0x000003FFU);
    EXPECT_NE(stderrOf([&] { EXPECT_FALSE(core.setData(text + "1024 0\n")); }), "");
    EXPECT_EQ(head.fpgaWord(kEntries), 1024U);
}

TEST_F(BadPixelReplacementTest, GivesUpOnAFileThatIsFarTooLong) {
    const tcTextFile file(std::string(2 * 1024 * 1024, '#'));
    EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(core.setData(file.path())); }),
              "tcBadPixelReplacement: setData: " + file.path() +
                  ", line 1: the file is longer than 1048576 bytes; the map in force stays\n");
}

TEST_F(BadPixelReplacementTest, DumpsItsRegistersAndLeavesTheStreamAsItWas) {
    EXPECT_TRUE(core.setData("1 1\n"));
    core.setMapState(true);
    EXPECT_EQ(
        stdoutOf([&] {
            core.dumpRegisters();
            std::cout << 255 << "\n";
        }),
        "tcBadPixelReplacement at 0xFF215000: revision 0x00010000, control 0x00000003, status "
        "0x00000001, origin 0x00000000, size 0x08080A20, buffer 0x12000000, pixels 1, in "
        "force 1\n255\n");
}

TEST(BadPixelReplacementTwice, StartsOverWhenItIsInitializedAgain) {
    auto head = aVirtualHead().build();
    tcBadPixelReplacement core = makeCore();
    ASSERT_TRUE(core.initialize());
    core.setMapState(true);
    core.setColor(true);
    ASSERT_TRUE(core.setData("1 1\n"));
    ASSERT_TRUE(core.initialize());
    EXPECT_EQ(head.fpgaWord(kControl), 0x00000001U);
    EXPECT_EQ(head.fpgaWord(kInForce), 0U);
}

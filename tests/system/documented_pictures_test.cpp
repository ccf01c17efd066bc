// The pictures of docs/pictures.md are those that the commands beside them make.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <png.h>

#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

// Width, height and values of a grey picture.
std::vector<std::uint16_t> valuesIn(const std::filesystem::path& file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_file(&image, file.c_str()), 0) << file;
    image.format = PNG_FORMAT_LINEAR_Y;
    std::vector<std::uint16_t> values(std::size_t{image.width} * image.height);
    EXPECT_NE(png_image_finish_read(&image, nullptr, values.data(), 0, nullptr), 0);
    values.push_back(static_cast<std::uint16_t>(image.width));
    values.push_back(static_cast<std::uint16_t>(image.height));
    return values;
}

class DocumentedPicture : public testing::Test {
protected:
    // \return status of a run that captures
    int capture(const std::string& commands) {
        const tsOutcome result =
            runOnHead("--max-frames 1 --frames " + m_folder.path().string(),
                      camhostCommand("-c init -c 'bpp 16bit' -c 'mirror v off' -c 'mirror h off' " +
                                     commands + "-c 'capture 200'"));
        return result.status;
    }
    std::vector<std::uint16_t> made() { return valuesIn(m_folder.path() / "frame-0001.png"); }
    static std::vector<std::uint16_t> shown(const std::string& name) {
        return valuesIn(std::string(HEAD_SOURCE_DIRECTORY) + "/docs/pictures/" + name);
    }
    tcTemporaryDirectory m_folder;
};

TEST_F(DocumentedPicture, ChartIsTheOneThatTheHeadDelivers) {
    ASSERT_EQ(capture(""), 0);
    EXPECT_TRUE(made() == shown("chart.png"))
        << "docs/pictures/chart.png is out of date; make it anew as docs/pictures.md says";
}

// What `./run --frames` ends with: a picture to look at.
TEST_F(DocumentedPicture, ChartIsTheLastOneOfTheMainJob) {
    const std::string job = std::string(HEAD_SOURCE_DIRECTORY) + "/data/main-job.camhost";
    const tsOutcome result =
        runOnHead("--frames " + m_folder.path().string(), camhostCommand("--echo " + job));
    ASSERT_EQ(result.status, 0) << result.output;
    std::filesystem::path last;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.path())) {
        last = std::max(last, entry.path());
    }
    EXPECT_TRUE(valuesIn(last) == shown("chart.png")) << last;
}

// The scan is turned behind the board's back, which would flip the pairs with it: a broken rule.
TEST_F(DocumentedPicture, MissingPairsFlipIsTheOneThatTheHeadDelivers) {
    ASSERT_EQ(capture("-c 'roi 1536 192 192 64' -c 'poke 0x90 0x20000' -c 'poke 0x6C 8' "), 9);
    EXPECT_TRUE(made() == shown("pairs-flip-missing.png"))
        << "docs/pictures/pairs-flip-missing.png is out of date; make it anew as docs/pictures.md "
           "says";
}

} // namespace

// Scenes out of PNG pictures, and pictures as PNG files.

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <png.h>
#include <sstream>
#include <unistd.h>

#include "sim/pictures/png_file.h"
#include "sim/pictures/scene.h"
#include "sim/virtual_head.h"

namespace {

namespace fs = std::filesystem;
using sim::tcScene;
using testing::HasSubstr;

class Scene : public testing::Test {
protected:
    Scene()
        : m_path((fs::temp_directory_path() / ("scene-test-" + std::to_string(getpid()) + ".png"))
                     .string()) {}
    ~Scene() override { fs::remove(m_path); }

    template<class Value>
    void write(unsigned width, unsigned height, unsigned format, const std::vector<Value>& values) {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        image.width = width;
        image.height = height;
        image.format = format;
        ASSERT_NE(png_image_write_to_file(&image, m_path.c_str(), 0, values.data(), 0, nullptr), 0);
    }

    std::string m_path;
};

// Two by two picture elements: each fills 1296 columns of 1028 rows.
TEST_F(Scene, IsAPictureScaledToTheArray) {
    write<std::uint16_t>(2, 2, PNG_FORMAT_LINEAR_Y, {1, 2000, 30000, 65535});
    const tcScene scene = tcScene::fromPng(m_path);
    EXPECT_EQ(scene.light(0, 0), 1);
    EXPECT_EQ(scene.light(1027, 1295), 1);
    EXPECT_EQ(scene.light(1027, 1296), 2000);
    EXPECT_EQ(scene.light(0, 2591), 2000);
    EXPECT_EQ(scene.light(1028, 1295), 30000);
    EXPECT_EQ(scene.light(2055, 2591), 65535);
}

TEST_F(Scene, OfTheArraysSizeIsTakenPixelByPixel) {
    std::vector<std::uint16_t> values(2592 * 2056);
    for (std::size_t at = 0; at < values.size(); ++at) {
        values[at] = static_cast<std::uint16_t>(at % 65521);
    }
    write(2592, 2056, PNG_FORMAT_LINEAR_Y, values);
    const tcScene scene = tcScene::fromPng(m_path);
    EXPECT_EQ(scene.light(0, 2591), 2591);
    EXPECT_EQ(scene.light(1, 0), 2592);
    EXPECT_EQ(scene.light(2055, 2591), (2592 * 2056 - 1) % 65521);
}

// 188 of 255 is about half of the light: between the curve of sRGB and its gamma of 2.2.
TEST_F(Scene, OfEightBitsIsTakenForSrgb) {
    write<png_byte>(3, 1, PNG_FORMAT_GRAY, {0, 188, 255});
    const tcScene scene = tcScene::fromPng(m_path);
    EXPECT_EQ(scene.light(0, 0), 0);
    EXPECT_NEAR(scene.light(0, 1296), 32768, 700);
    EXPECT_EQ(scene.light(0, 2591), 65535);
}

// Red, green and blue in the shares that sRGB gives them, as exact as the library has them.
TEST_F(Scene, OfColoursIsGrey) {
    write<png_byte>(3, 1, PNG_FORMAT_RGB, {255, 0, 0, 0, 255, 0, 0, 0, 255});
    const tcScene scene = tcScene::fromPng(m_path);
    EXPECT_NEAR(scene.light(0, 0), 0.2126 * 65535, 120);
    EXPECT_NEAR(scene.light(0, 1296), 0.7152 * 65535, 120);
    EXPECT_NEAR(scene.light(0, 2591), 0.0722 * 65535, 120);
}

TEST_F(Scene, ThatIsNoPictureIsRefusedWithItsName) {
    std::ofstream(m_path) << "no picture";
    try {
        (void)tcScene::fromPng(m_path);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr(m_path + ": no picture: "));
    }
    EXPECT_THROW((void)tcScene::fromPng("/no/such/picture.png"), std::runtime_error);
}

TEST_F(Scene, CutOffIsRefused) {
    write(64, 64, PNG_FORMAT_LINEAR_Y, std::vector<std::uint16_t>(64 * 64, 12345));
    fs::resize_file(m_path, fs::file_size(m_path) - 30);
    EXPECT_THROW((void)tcScene::fromPng(m_path), std::runtime_error);
}

class PictureFile : public Scene {};

TEST_F(PictureFile, HoldsTheWordsAsTheyAre) {
    sim::tsFrame frame;
    frame.width = 3;
    frame.height = 2;
    frame.pixels = {0, 1, 255, 256, 4095, 65535};
    frame.settings = "exposure: 30000.000 us\npixel shift: right 0\n";
    sim::writePng(frame, m_path);

    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_file(&image, m_path.c_str()), 0);
    EXPECT_EQ(image.width, 3U);
    EXPECT_EQ(image.height, 2U);
    ASSERT_EQ(image.format, static_cast<png_uint_32>(PNG_FORMAT_LINEAR_Y));
    std::vector<std::uint16_t> values(6);
    ASSERT_NE(png_image_finish_read(&image, nullptr, values.data(), 0, nullptr), 0);
    EXPECT_EQ(values, frame.pixels);

    std::ifstream file(m_path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    EXPECT_THAT(bytes.str(), HasSubstr(std::string("tEXtSettings") + '\0' + frame.settings));
}

TEST_F(PictureFile, CannotBeWhereThereIsNoFolder) {
    sim::tsFrame frame;
    frame.width = frame.height = 1;
    frame.pixels = {0};
    EXPECT_THROW(sim::writePng(frame, "/no/such/folder/picture.png"), std::runtime_error);
    EXPECT_THROW(sim::writePng(frame, "/dev/full"), std::runtime_error);
    frame.width = 0; // no PNG picture is empty
    EXPECT_THROW(sim::writePng(frame, m_path), std::runtime_error);
}

TEST_F(PictureFile, IsASceneForAnotherHead) {
    write<std::uint16_t>(1, 1, PNG_FORMAT_LINEAR_Y, {32000});
    EXPECT_EQ(tcScene::fromPng(m_path).light(1000, 1000), 32000);
    const auto head = sim::aVirtualHead().withScene(m_path).build();
    EXPECT_EQ(head.frame(), std::nullopt);
}

} // namespace

#include "platform/varnox/src/bad_pixel_map.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr Varnox::ROI kFullFrame{0, 0, 2592, 2056};

/// \return the pixels as "X Y", in the parser's order
std::vector<std::string> pixelsOf(const std::string& text, const Varnox::ROI& frame = kFullFrame) {
    const auto map = parseBadPixelMap(text, frame);
    std::vector<std::string> pixels;
    if (const auto* list = std::get_if<std::vector<tsBadPixel>>(&map)) {
        for (const tsBadPixel& pixel : *list)
            pixels.push_back(std::to_string(pixel.x) + " " + std::to_string(pixel.y));
    } else {
        ADD_FAILURE() << std::get<tsBadPixelMapError>(map).reason;
    }
    return pixels;
}

/// \return the error as "LINE: REASON"
std::string errorOf(const std::string& text, const Varnox::ROI& frame = kFullFrame) {
    const auto map = parseBadPixelMap(text, frame);
    const auto* error = std::get_if<tsBadPixelMapError>(&map);
    return error != nullptr ? std::to_string(error->line) + ": " + error->reason : "no error";
}

/// \return a map of so many different pixels
std::string mapOf(int pixels) {
    std::string text;
    for (int i = 0; i < pixels; ++i)
        text += std::to_string(i % 32) + " " + std::to_string(i / 32) + "\n";
    return text;
}

class NoPixel : public testing::TestWithParam<const char*> {};

} // namespace

TEST(BadPixelMap, OfNoTextHasNoPixels) {
    EXPECT_THAT(pixelsOf(""), IsEmpty());
    EXPECT_THAT(pixelsOf("\n \n\t\r\n# 1 2\n"), IsEmpty());
}

TEST(BadPixelMap, ListsPixelsInRasterOrder) {
    EXPECT_THAT(pixelsOf("5 9\n4 9\n2000 3\n"), ElementsAre("2000 3", "4 9", "5 9"));
}

TEST(BadPixelMap, TakesCommentsBlanksAndAnyLineEnd) {
    EXPECT_THAT(pixelsOf("# bad ones\r\n  1\t2   # here\r\n\n3 4#there"),
                ElementsAre("1 2", "3 4"));
}

TEST(BadPixelMap, CountsAPixelOnce) {
    EXPECT_THAT(pixelsOf("1 2\n3 4\n1 2\n"), ElementsAre("1 2", "3 4"));
}

TEST(BadPixelMap, TakesTheCornersOfTheFullFrame) {
    EXPECT_THAT(pixelsOf("0 0\n2591 0\n0 2055\n2591 2055\n"),
                ElementsAre("0 0", "2591 0", "0 2055", "2591 2055"));
}

TEST(BadPixelMap, RefusesPixelsOutsideTheFullFrame) {
    EXPECT_EQ(errorOf("1 1\n2592 0\n"),
              "2: pixel 2592 0 is outside the full frame [y: 0, x: 0, width: 2592, height: 2056]");
    EXPECT_EQ(errorOf("0 2056"),
              "1: pixel 0 2056 is outside the full frame [y: 0, x: 0, width: 2592, height: 2056]");
    EXPECT_EQ(errorOf("\n\n-1 0"),
              "3: pixel -1 0 is outside the full frame [y: 0, x: 0, width: 2592, height: 2056]");
    EXPECT_EQ(errorOf("0 -1"),
              "1: pixel 0 -1 is outside the full frame [y: 0, x: 0, width: 2592, height: 2056]");
}

TEST(BadPixelMap, MeasuresFromWhereTheFrameBegins) {
    constexpr Varnox::ROI kShifted{10, 20, 4, 2};
    EXPECT_THAT(pixelsOf("20 10\n23 11\n", kShifted), ElementsAre("20 10", "23 11"));
    EXPECT_NE(errorOf("24 10", kShifted), "no error");
    EXPECT_NE(errorOf("20 12", kShifted), "no error");
    EXPECT_NE(errorOf("19 10", kShifted), "no error");
    EXPECT_NE(errorOf("20 9", kShifted), "no error");
}

TEST(BadPixelMap, TakesAsManyPixelsAsTheTableHolds) {
    EXPECT_EQ(pixelsOf(mapOf(1024)).size(), 1024U);
    EXPECT_EQ(errorOf(mapOf(1025)), "1025: more than 1024 pixels do not fit into the core's table");
    EXPECT_EQ(pixelsOf(mapOf(1024) + mapOf(1024)).size(), 1024U);
}

TEST_P(NoPixel, IsRefusedWithItsLine) {
    const std::string line = GetParam();
    EXPECT_EQ(errorOf("1 1\n# comment\n" + line + "\n2 2\n"),
              "3: \"" + line + "\" is not a pixel \"X Y\"");
}

INSTANTIATE_TEST_SUITE_P(BadPixelMap, NoPixel,
                         testing::Values("1", "1 2 3", "x y", "1 y", "1,2", "0x1 2", "1.0 2",
                                         "1 2x", "+1 2", "99999999999 1", "-",
                                         "bad_pixel_map.txt"));

TEST(BadPixelMap, ShowsLongAndUnprintableLinesShortAndPrintable) {
    EXPECT_EQ(errorOf(std::string(100, 'a')),
              "1: \"" + std::string(40, 'a') + "...\" is not a pixel \"X Y\"");
    EXPECT_EQ(errorOf("a\x01\xff z"), "1: \"a?? z\" is not a pixel \"X Y\"");
}

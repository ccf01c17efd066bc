#include "sim/pictures/glyphs.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace sim::chart {

namespace {

// A glyph, seven rows of five dots, the leftmost in bit 4.
struct tsGlyph {
    char character;
    std::array<std::uint8_t, kGlyphHeight> rows;
};

constexpr std::array kGlyphs{
    tsGlyph{'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}},
    tsGlyph{'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    tsGlyph{'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}},
    tsGlyph{'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    tsGlyph{'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}},
    tsGlyph{'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    tsGlyph{'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}},
    tsGlyph{'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    tsGlyph{'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}},
    tsGlyph{'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    tsGlyph{',', {0x00, 0x00, 0x00, 0x00, 0x0C, 0x04, 0x08}},
    tsGlyph{'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    tsGlyph{'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}},
    tsGlyph{'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    tsGlyph{'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}},
    tsGlyph{'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    tsGlyph{'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    tsGlyph{'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    tsGlyph{'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}},
    tsGlyph{'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}},
    tsGlyph{'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    tsGlyph{'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    tsGlyph{'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}},
    tsGlyph{'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    tsGlyph{'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}},
    tsGlyph{'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
};

// Outside of the glyph there are no dots.
bool dotOf(const tsGlyph& glyph, std::int32_t x, std::int32_t y) {
    constexpr auto width = static_cast<std::int32_t>(kGlyphWidth);
    constexpr auto height = static_cast<std::int32_t>(kGlyphHeight);
    return x >= 0 && x < width && y >= 0 && y < height &&
           (glyph.rows[static_cast<std::size_t>(y)] >> (width - 1 - x) & 1) != 0;
}

// In an empty dot between two that touch by the corner at its left or right, top or bottom: a
// triangle at that corner.
bool inSlant(const tsGlyph& glyph, std::int32_t x, std::int32_t y, std::int32_t scale) {
    const std::int32_t dotX = x / scale;
    const std::int32_t dotY = y / scale;
    for (const std::int32_t aside : {-1, 1}) {
        for (const std::int32_t beyond : {-1, 1}) {
            const bool touch = dotOf(glyph, dotX + aside, dotY) &&
                               dotOf(glyph, dotX, dotY + beyond) &&
                               !dotOf(glyph, dotX + aside, dotY + beyond);
            const std::int32_t fromSide = aside < 0 ? x % scale : scale - 1 - x % scale;
            const std::int32_t fromEnd = beyond < 0 ? y % scale : scale - 1 - y % scale;
            if (touch && fromSide + fromEnd < scale / 2) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

bool inGlyph(char character, std::uint32_t x, std::uint32_t y, std::uint32_t scale) {
    const auto* const glyph =
        std::find_if(kGlyphs.begin(), kGlyphs.end(),
                     [character](const tsGlyph& one) { return one.character == character; });
    if (glyph == kGlyphs.end()) {
        return false;
    }
    const auto column = static_cast<std::int32_t>(x);
    const auto row = static_cast<std::int32_t>(y);
    const auto dot = static_cast<std::int32_t>(scale);
    return dotOf(*glyph, column / dot, row / dot) || inSlant(*glyph, column, row, dot);
}

} // namespace sim::chart

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "sim/pictures/chart.h"
#include "sim/pictures/scene.h"

namespace sim {

namespace {

constexpr std::uint32_t kGlyphWidth = 5;  // dots
constexpr std::uint32_t kGlyphHeight = 7; // dots
constexpr std::uint32_t kAdvance = 6;     // dots from one glyph to the next

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
    tsGlyph{'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
};

// Paints the part of the chart that is for the eye, then the codes over it.
class tcChartPainter {
public:
    tcChartPainter() : m_codes(std::size_t{tcScene::kRows} * tcScene::kColumns, chart::kWhite) {}

    std::vector<std::uint16_t> paint() {
        paintWords();
        paintCorners();
        for (std::uint32_t top = 0; top < tcScene::kRows; top += chart::kPeriod) {
            paintTicks(top);
            paintNumbers(top);
            paintDiagonals(top);
            paintColumnCodes(top + chart::kColumnBand);
            paintRowCodes(top + chart::kRowBand);
        }
        for (std::uint16_t& code : m_codes) {
            code = static_cast<std::uint16_t>(code * chart::kLightPerCode);
        }
        return std::move(m_codes);
    }

private:
    static constexpr std::uint32_t kBand = chart::kPeriod - chart::kRowBand; // rows
    static constexpr std::uint32_t kTickDistance = 48;                       // columns
    static constexpr std::uint32_t kTickWidth = 2;
    static constexpr std::uint32_t kTickHeight = 4;
    static constexpr std::uint32_t kNumberDistance = 288; // columns
    static constexpr std::uint32_t kNumberScale = 4;      // pixels a dot
    static constexpr std::uint32_t kNumberTop = 12;       // rows below the period's first
    static constexpr std::uint32_t kNumberLeft = 12;      // columns right of its tick
    static constexpr std::uint32_t kWordScale = 32;       // pixels a dot
    static constexpr std::uint32_t kLetterScale = 96;     // pixels a dot
    static constexpr std::uint32_t kMark = 240;           // pixels

    // What is to be black is white on grey, where it would be hard to see.
    void fill(std::uint32_t left, std::uint32_t top, std::uint32_t width, std::uint32_t height,
              std::uint32_t code) {
        for (std::uint32_t row = top; row < std::min(top + height, tcScene::kRows); ++row) {
            for (std::uint32_t column = left; column < std::min(left + width, tcScene::kColumns);
                 ++column) {
                std::uint16_t& pixel = at(row, column);
                const bool hidden = code == chart::kBlack && pixel == chart::kGrey;
                pixel = static_cast<std::uint16_t>(hidden ? chart::kWhite : code);
            }
        }
    }

    std::uint16_t& at(std::uint32_t row, std::uint32_t column) {
        return m_codes[std::size_t{row} * tcScene::kColumns + column];
    }

    void paintGlyph(char character, std::uint32_t left, std::uint32_t top, std::uint32_t scale,
                    std::uint32_t code) {
        const auto* const glyph =
            std::find_if(kGlyphs.begin(), kGlyphs.end(),
                         [character](const tsGlyph& one) { return one.character == character; });
        for (std::uint32_t y = 0; y < kGlyphHeight; ++y) {
            for (std::uint32_t x = 0; x < kGlyphWidth; ++x) {
                if ((glyph->rows[y] >> (kGlyphWidth - 1 - x) & 1) != 0) {
                    fill(left + x * scale, top + y * scale, scale, scale, code);
                }
            }
        }
    }

    void paintText(std::string_view text, std::uint32_t left, std::uint32_t top,
                   std::uint32_t scale, std::uint32_t code) {
        for (const char character : text) {
            paintGlyph(character, left, top, scale, code);
            left += kAdvance * scale;
        }
    }

    static std::uint32_t widthOf(std::string_view text, std::uint32_t scale) {
        return (static_cast<std::uint32_t>(text.size()) * kAdvance - 1) * scale;
    }

    // An F in the middle looks different from every side; a word at each edge says which it is.
    void paintWords() {
        constexpr std::uint32_t margin = 96;
        constexpr std::uint32_t height = kGlyphHeight * kWordScale;
        constexpr std::uint32_t middle = (tcScene::kRows - height) / 2;
        const auto centred = [](std::string_view text) {
            return (tcScene::kColumns - widthOf(text, kWordScale)) / 2;
        };
        paintText("TOP", centred("TOP"), margin, kWordScale, chart::kGrey);
        paintText("BOTTOM", centred("BOTTOM"), tcScene::kRows - margin - height, kWordScale,
                  chart::kGrey);
        paintText("LEFT", margin, middle, kWordScale, chart::kGrey);
        paintText("RIGHT", tcScene::kColumns - margin - widthOf("RIGHT", kWordScale), middle,
                  kWordScale, chart::kGrey);
        paintGlyph('F', (tcScene::kColumns - kGlyphWidth * kLetterScale) / 2 + kLetterScale / 2,
                   (tcScene::kRows - kGlyphHeight * kLetterScale) / 2, kLetterScale, chart::kGrey);
    }

    // One corner full, one hollow, one striped, one empty.
    void paintCorners() {
        constexpr std::uint32_t stroke = kMark / 5;
        constexpr std::uint32_t right = tcScene::kColumns - kMark;
        constexpr std::uint32_t bottom = tcScene::kRows - kMark;
        fill(0, 0, kMark, kMark, chart::kGrey);
        fill(right, 0, kMark, kMark, chart::kGrey);
        fill(right + stroke, stroke, kMark - 2 * stroke, kMark - 2 * stroke, chart::kWhite);
        for (std::uint32_t stripe = 0; stripe < kMark; stripe += 2 * stroke) {
            fill(stripe, bottom, stroke, kMark, chart::kGrey);
        }
    }

    void paintTicks(std::uint32_t top) {
        for (std::uint32_t column = 0; column < tcScene::kColumns; column += kTickDistance) {
            const bool numbered = column % kNumberDistance == 0;
            fill(column, top, kTickWidth, numbered ? chart::kColumnBand : kTickHeight,
                 chart::kBlack);
        }
    }

    void paintNumbers(std::uint32_t top) {
        if (top + chart::kColumnBand > tcScene::kRows) {
            return;
        }
        for (std::uint32_t column = 0; column < tcScene::kColumns; column += kNumberDistance) {
            paintText(std::to_string(column) + "," + std::to_string(top), column + kNumberLeft,
                      top + kNumberTop, kNumberScale, chart::kBlack);
        }
    }

    // Where lines are swapped, a diagonal has teeth.
    void paintDiagonals(std::uint32_t top) {
        for (std::uint32_t column = kNumberDistance - chart::kColumnBand;
             column < tcScene::kColumns; column += kNumberDistance) {
            for (std::uint32_t at = 0; at < chart::kColumnBand; ++at) {
                fill(column + at, top + at, 2, 1, chart::kBlack);
            }
        }
    }

    void paintColumnCodes(std::uint32_t top) {
        for (std::uint32_t column = 0; column < tcScene::kColumns; ++column) {
            fill(column, top, 1, kBand, chart::kFirstCode + column);
        }
    }

    void paintRowCodes(std::uint32_t top) {
        for (std::uint32_t row = top; row < top + kBand; ++row) {
            fill(0, row, tcScene::kColumns, 1, chart::kFirstCode + row);
        }
    }

    std::vector<std::uint16_t> m_codes;
};

} // namespace

std::vector<std::uint16_t> chart::paint() {
    return tcChartPainter().paint();
}

} // namespace sim

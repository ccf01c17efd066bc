#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "sim/pictures/chart.h"
#include "sim/pictures/glyphs.h"
#include "sim/pictures/scene.h"

namespace sim {

namespace {

using chart::kBlack;
using chart::kWhite;

constexpr std::uint32_t kColumns = tcScene::kColumns;
constexpr std::uint32_t kRows = tcScene::kRows;

// What lies in which period, from the top.
constexpr std::uint32_t kTopStrip = 0;
constexpr std::uint32_t kWedgeStrip = 1;
constexpr std::uint32_t kLinesStrip = 2;
constexpr std::uint32_t kMiddleStrip = 3;
constexpr std::uint32_t kEdgeStrip = 4;
constexpr std::uint32_t kRampStrip = 5;
constexpr std::uint32_t kNameStrip = 6;
constexpr std::uint32_t kBottomStrip = 7;

constexpr std::uint32_t kWordScale = 28; // pixels a dot
constexpr std::uint32_t kTextScale = 4;  // pixels a dot
constexpr std::uint32_t kWordHeight = chart::kGlyphHeight * kWordScale;
constexpr std::uint32_t kTextHeight = chart::kGlyphHeight * kTextScale;
constexpr std::uint32_t kWordTop = chart::kRuler + 4; // rows below the period's first
constexpr std::uint32_t kPatchHeight = 148;           // of what has a text below it
constexpr std::uint32_t kTextTop = kWordTop + kPatchHeight + 12;
static_assert(kWordTop + kWordHeight < chart::kColumnBand, "a band would cut the words");
static_assert(kTextTop + kTextHeight < chart::kColumnBand, "a band would cut the texts");

constexpr std::uint32_t topOf(std::uint32_t strip) {
    return strip * chart::kPeriod + kWordTop;
}

// Where a direction lies between 0 and half a turn, as a vector; the same on every machine, which
// an arc tangent need not be.
struct tsDirection {
    std::int64_t x;
    std::int64_t y;
};

// The boundaries of a star's sectors within half a turn.
std::vector<tsDirection> boundariesOf(std::uint32_t spokes) {
    constexpr double length = 1 << 20;
    std::vector<tsDirection> boundaries;
    for (std::uint32_t at = 0; at < spokes; ++at) {
        const double angle = std::numbers::pi * at / spokes;
        boundaries.push_back(
            {std::llround(length * std::cos(angle)), std::llround(length * std::sin(angle))});
    }
    return boundaries;
}

// Paints the part of the chart that is for the eye, and the codes into bands of their own.
class tcChartPainter {
public:
    tcChartPainter() : m_codes(std::size_t{kRows} * kColumns, kWhite) {}

    std::vector<std::uint16_t> paint() {
        for (std::uint32_t top = 0; top < kRows; top += chart::kPeriod) {
            paintRuler(top);
            paintColumnCodes(top + chart::kColumnBand);
            paintRowCodes(top + chart::kRowBand);
        }
        paintWords();
        paintCorners();
        paintStars();
        paintWedge();
        paintLines();
        paintEdges();
        paintRamp();
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
    static constexpr std::uint32_t kNumberLeft = 12;      // columns right of its tick
    static constexpr std::uint32_t kNumberTop = 6;        // rows below the period's first
    static constexpr std::uint32_t kMargin = 28;          // from the array's edge [pixels]

    void fill(std::uint32_t left, std::uint32_t top, std::uint32_t width, std::uint32_t height,
              std::uint32_t code) {
        for (std::uint32_t row = top; row < std::min(top + height, kRows); ++row) {
            for (std::uint32_t column = left; column < std::min(left + width, kColumns); ++column) {
                m_codes[std::size_t{row} * kColumns + column] = static_cast<std::uint16_t>(code);
            }
        }
    }

    void paintText(std::string_view text, std::uint32_t left, std::uint32_t top,
                   std::uint32_t scale) {
        for (const char character : text) {
            for (std::uint32_t y = 0; y < chart::kGlyphHeight * scale; ++y) {
                for (std::uint32_t x = 0; x < chart::kGlyphWidth * scale; ++x) {
                    if (chart::inGlyph(character, x, y, scale)) {
                        fill(left + x, top + y, 1, 1, kBlack);
                    }
                }
            }
            left += chart::kAdvance * scale;
        }
    }

    // With its middle at a column.
    void paintCentred(std::string_view text, std::uint32_t middle, std::uint32_t top,
                      std::uint32_t scale) {
        paintText(text, middle - chart::widthOf(text, scale) / 2, top, scale);
    }

    // --- The ruler: where one is, and whether lines are swapped ---

    void paintRuler(std::uint32_t top) {
        for (std::uint32_t column = 0; column < kColumns; column += kTickDistance) {
            const bool numbered = column % kNumberDistance == 0;
            fill(column, top, kTickWidth, numbered ? chart::kRuler : kTickHeight, kBlack);
        }
        if (top + chart::kRuler > kRows) {
            return;
        }
        for (std::uint32_t column = 0; column < kColumns; column += kNumberDistance) {
            paintText(std::to_string(column) + "," + std::to_string(top), column + kNumberLeft,
                      top + kNumberTop, kTextScale);
            paintDiagonal(column + kNumberDistance - kTickDistance, top);
        }
    }

    // Where lines are swapped, it has teeth.
    void paintDiagonal(std::uint32_t left, std::uint32_t top) {
        for (std::uint32_t at = 0; at < chart::kRuler; ++at) {
            fill(left + at, top + at, 2, 1, kBlack);
        }
    }

    // --- The bands ---

    void paintColumnCodes(std::uint32_t top) {
        for (std::uint32_t column = 0; column < kColumns; ++column) {
            fill(column, top, 1, kBand, chart::kFirstCode + column);
        }
    }

    void paintRowCodes(std::uint32_t top) {
        for (std::uint32_t row = top; row < top + kBand; ++row) {
            fill(0, row, kColumns, 1, chart::kFirstCode + row);
        }
    }

    // --- What is upside down, or mirrored ---

    void paintWords() {
        constexpr std::uint32_t middle = kColumns / 2;
        paintCentred("TOP", middle, topOf(kTopStrip), kWordScale);
        paintCentred("BOTTOM", middle, topOf(kBottomStrip), kWordScale);
        paintText("LEFT", kMargin, topOf(kMiddleStrip), kWordScale);
        paintText("RIGHT", kColumns - kMargin - chart::widthOf("RIGHT", kWordScale),
                  topOf(kMiddleStrip), kWordScale);
        constexpr std::uint32_t nameScale = 16;
        constexpr std::uint32_t nameTop =
            topOf(kNameStrip) + (kWordHeight - chart::kGlyphHeight * nameScale) / 2;
        paintCentred("3U5MGXS 2592 X 2056", middle, nameTop, nameScale);
    }

    // One corner full, one hollow, one striped, one empty; each with a bracket at the array's last
    // pixels.
    void paintCorners() {
        constexpr std::uint32_t size = kWordHeight;
        constexpr std::uint32_t stroke = size / 7;
        constexpr std::uint32_t right = kColumns - kMargin - size;
        constexpr std::uint32_t top = topOf(kTopStrip);
        constexpr std::uint32_t bottom = topOf(kBottomStrip);
        fill(kMargin, top, size, size, kBlack);
        fill(right, top, size, size, kBlack);
        fill(right + stroke, top + stroke, size - 2 * stroke, size - 2 * stroke, kWhite);
        for (std::uint32_t stripe = 0; stripe < size; stripe += 2 * stroke) {
            fill(kMargin + stripe, bottom, stroke, size, kBlack);
        }
        constexpr std::uint32_t width = 8;
        for (const std::uint32_t edge : {0U, kColumns - width}) {
            fill(edge, 0, width, chart::kColumnBand, kBlack);
            fill(edge, kBottomStrip * chart::kPeriod, width, chart::kColumnBand, kBlack);
            const std::uint32_t left = edge == 0 ? 0 : kColumns - chart::kColumnBand;
            fill(left, 0, chart::kColumnBand, width / 2, kBlack);
            fill(left, kRows - width, chart::kColumnBand, width, kBlack);
        }
    }

    // --- What is unsharp ---

    void paintStars() {
        constexpr std::uint32_t left = 480;
        constexpr std::uint32_t right = kColumns - left;
        for (const std::uint32_t strip : {kTopStrip, kBottomStrip}) {
            paintStar(left, strip, 36);
            paintStar(right, strip, 36);
        }
        constexpr std::uint32_t middle = 1206; // between the words of the edges
        constexpr std::uint32_t distance = 300;
        paintStar(middle - distance, kMiddleStrip, 18);
        paintStar(middle, kMiddleStrip, 36);
        paintStar(middle + distance, kMiddleStrip, 72);
    }

    // Spokes that get finer towards the middle.
    void paintStar(std::uint32_t middle, std::uint32_t strip, std::uint32_t spokes) {
        constexpr std::int64_t radius = kWordHeight / 2;
        const std::vector<tsDirection> boundaries = boundariesOf(spokes);
        const std::uint32_t left = middle - kWordHeight / 2;
        for (std::uint32_t row = 0; row < kWordHeight; ++row) {
            for (std::uint32_t column = 0; column < kWordHeight; ++column) {
                // From the star's middle, in halves of a pixel.
                const std::int64_t x = 2 * (std::int64_t{column} - radius) + 1;
                const std::int64_t y = 2 * (std::int64_t{row} - radius) + 1;
                if (x * x + y * y < 4 * radius * radius && inSpoke(boundaries, x, y)) {
                    fill(left + column, topOf(strip) + row, 1, 1, kBlack);
                }
            }
        }
    }

    static bool inSpoke(std::span<const tsDirection> boundaries, std::int64_t x, std::int64_t y) {
        if (y < 0) { // a star of an even number of spokes looks the same half a turn on
            x = -x;
            y = -y;
        }
        const auto passed = std::partition_point(
            boundaries.begin(), boundaries.end(),
            [x, y](const tsDirection& one) { return one.x * y - one.y * x >= 0; });
        return (passed - boundaries.begin()) % 2 == 1;
    }

    // Lines side by side and one above the other, from one pixel wide to twelve.
    void paintLines() {
        constexpr std::array<std::uint32_t, 7> widths{1, 2, 3, 4, 6, 8, 12}; // pixels
        constexpr std::uint32_t left = 96;
        constexpr std::uint32_t right = 1320;
        constexpr std::uint32_t size = 144; // pixels
        constexpr std::uint32_t distance = 168;
        const std::uint32_t top = topOf(kLinesStrip);
        std::uint32_t place = 0;
        for (const std::uint32_t width : widths) {
            for (std::uint32_t at = 0; at < size; at += 2 * width) {
                fill(left + place + at, top, width, size, kBlack);
                fill(right + place, top + at, size, width, kBlack);
            }
            for (const std::uint32_t half : {left, right}) {
                paintCentred(std::to_string(width), half + place + size / 2,
                             kLinesStrip * chart::kPeriod + kTextTop, kTextScale);
            }
            place += distance;
        }
    }

    // A wedge of lines from each side, and a slanted edge between them.
    void paintEdges() {
        paintConverging(96, 1);
        paintConverging(kColumns - 96 - 1, -1);
        constexpr std::int32_t half = kWordHeight / 2;
        constexpr std::int32_t side = 76;  // of the square, from its middle
        constexpr std::int32_t slope = 11; // one pixel aside: about five degrees
        for (std::int32_t y = -half; y < half; ++y) {
            for (std::int32_t x = -half; x < half; ++x) {
                if (std::abs(x * slope + y) < side * slope &&
                    std::abs(y * slope - x) < side * slope) {
                    fill(static_cast<std::uint32_t>(static_cast<std::int32_t>(kColumns / 2) + x),
                         static_cast<std::uint32_t>(static_cast<std::int32_t>(topOf(kEdgeStrip)) +
                                                    half + y),
                         1, 1, kBlack);
                }
            }
        }
    }

    // Five lines, which come together: 12 pixels wide at their beginning, one at their end.
    void paintConverging(std::uint32_t from, std::int32_t step) {
        constexpr std::int32_t length = 960;
        constexpr std::int32_t lines = 5;
        constexpr std::int32_t fine = 64; // parts of a pixel
        constexpr std::int32_t widest = 12 * fine;
        constexpr std::int32_t middle = kPatchHeight / 2;
        for (std::int32_t at = 0; at < length; ++at) {
            const std::int32_t width = widest - (widest - fine) * at / (length - 1);
            const std::int32_t height = width * (2 * lines - 1); // with the gaps
            for (std::int32_t y = 0; y < 2 * middle; ++y) {
                const std::int32_t inside = (2 * (y - middle) + 1) * fine / 2 + height / 2;
                if (inside >= 0 && inside < height && inside / width % 2 == 0) {
                    fill(static_cast<std::uint32_t>(static_cast<std::int32_t>(from) + step * at),
                         topOf(kEdgeStrip) + static_cast<std::uint32_t>(y), 1, 1, kBlack);
                }
            }
        }
        constexpr std::int32_t beside = 12;
        for (const std::int32_t width : {12, 8, 4, 2, 1}) {
            const std::int32_t at = (12 - width) * (length - 1) / 11;
            paintCentred(std::to_string(width),
                         static_cast<std::uint32_t>(static_cast<std::int32_t>(from) +
                                                    step * std::max(at, beside)),
                         kEdgeStrip * chart::kPeriod + kTextTop, kTextScale);
        }
    }

    // --- What is not linear ---

    static constexpr std::uint32_t kWedgeLeft = 272;
    static constexpr std::uint32_t kWedgeWidth = 2048;
    static constexpr std::uint32_t kFrame = 4; // around a wedge [pixels]

    void paintFrame(std::uint32_t strip) {
        fill(kWedgeLeft - kFrame, topOf(strip) - kFrame, kWedgeWidth + 2 * kFrame,
             kPatchHeight + 2 * kFrame, kBlack);
    }

    // Steps of the same height, each with its code.
    void paintWedge() {
        constexpr std::uint32_t steps = 16;
        constexpr std::uint32_t width = kWedgeWidth / steps;
        paintFrame(kWedgeStrip);
        for (std::uint32_t step = 0; step < steps; ++step) {
            const std::uint32_t code = chart::kFullCode * step / (steps - 1);
            const std::uint32_t left = kWedgeLeft + step * width;
            fill(left, topOf(kWedgeStrip), width, kPatchHeight, code);
            paintCentred(std::to_string(code), left + width / 2,
                         kWedgeStrip * chart::kPeriod + kTextTop, kTextScale);
        }
    }

    // Every second code from none to all.
    void paintRamp() {
        paintFrame(kRampStrip);
        for (std::uint32_t at = 0; at < kWedgeWidth; ++at) {
            fill(kWedgeLeft + at, topOf(kRampStrip), 1, kPatchHeight, 2 * at);
        }
        for (const std::uint32_t code : {0U, 1024U, 2048U, 3072U, 4094U}) {
            paintCentred(std::to_string(code), kWedgeLeft + code / 2,
                         kRampStrip * chart::kPeriod + kTextTop, kTextScale);
        }
    }

    std::vector<std::uint16_t> m_codes;
};

} // namespace

std::vector<std::uint16_t> chart::paint() {
    return tcChartPainter().paint();
}

} // namespace sim

/// \file
/// Letters and digits of the test chart.
#pragma once

#include <cstdint>
#include <string_view>

namespace sim::chart {

inline constexpr std::uint32_t kGlyphWidth = 5;  // dots
inline constexpr std::uint32_t kGlyphHeight = 7; // dots
inline constexpr std::uint32_t kAdvance = 6;     // dots from one glyph to the next

/// Dots that touch by a corner only are joined by a slant: letters of many pixels a dot are no
/// stairs.
///
/// \param character of those that the chart uses; any other is empty
/// \param x, y      from the glyph's top left [pixels]
/// \param scale     pixels a dot
/// \return whether the pixel is part of the glyph
[[nodiscard]] bool inGlyph(char character, std::uint32_t x, std::uint32_t y, std::uint32_t scale);

/// \param scale pixels a dot \return width of the text [pixels]
[[nodiscard]] constexpr std::uint32_t widthOf(std::string_view text, std::uint32_t scale) {
    return (static_cast<std::uint32_t>(text.size()) * kAdvance - 1) * scale;
}

} // namespace sim::chart

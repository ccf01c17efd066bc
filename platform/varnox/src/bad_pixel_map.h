/// \file
/// The text of a map of defective pixels.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include <varnox/roi.h>

/// One defective pixel, in pixels of the full frame. Compares in raster order.
struct tsBadPixel {
    std::int32_t y = 0;
    std::int32_t x = 0;

    friend bool operator<(const tsBadPixel& one, const tsBadPixel& other) {
        return std::tie(one.y, one.x) < std::tie(other.y, other.x);
    }
};

/// Where a text stops being a map, and why.
struct tsBadPixelMapError {
    int line = 0; ///< counted from 1
    std::string reason;
};

/// Reads the text of a map: one pixel a line, "X Y" in decimal; '#' starts a comment; blank lines
/// are skipped; a pixel that is listed again counts once.
/// \param text      the map
/// \param fullFrame where pixels may be
/// \return the pixels in raster order, or the first error
std::variant<std::vector<tsBadPixel>, tsBadPixelMapError>
parseBadPixelMap(const std::string& text, const Varnox::ROI& fullFrame);

/// \file
/// The host's rectangle.
#pragma once

#include <cstdint>
#include <string>

#include <varnox/export.h>

namespace Varnox {

/// A rectangle of pixels. The order of the fields is part of the host interface.
struct ROI {
    std::int32_t y = 0;      ///< top row [binned rows]
    std::int32_t x = 0;      ///< left column [pixels]
    std::int32_t width = 0;  ///< [pixels]
    std::int32_t height = 0; ///< [binned rows]

    /// \return "[y: Y, x: X, width: W, height: H]", all decimal.
    [[nodiscard]] VARNOX_API std::string toString() const;

    /// \return whether all fields are the same
    friend bool operator==(const ROI& one, const ROI& other) {
        return one.y == other.y && one.x == other.x && one.width == other.width &&
               one.height == other.height;
    }
    /// \return whether a field differs
    friend bool operator!=(const ROI& one, const ROI& other) { return !(one == other); }
};

} // namespace Varnox

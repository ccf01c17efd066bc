/// \file
/// Delivered pictures as PNG: whole in a file, and small in memory.
#pragma once

#include <cstdint>
#include <string>

#include "sim/base/export.h"
#include "sim/base/frame.h"
#include "sim/base/thumbnail.h"

namespace sim {

/// Writes a PNG picture of 16 bits, grey and linear: each value is the word that the FPGA
/// delivered. Its text chunk "Settings" holds the frame's settings. \throws std::runtime_error with
/// the path
SIM_API void writePng(const tsFrame& frame, const std::string& path);

/// \return the same picture, in memory \throws std::runtime_error when memory runs out
SIM_API std::string pngOf(const tsFrame& frame);

/// A picture of 8 bits, grey and linear, of at most 240 x 240 pixels: each is the mean of a square
/// of the frame's. What is left over of a square at the right and at the bottom is cut off. \param
/// white word of the frame that is as bright as the picture can be; what is above it as well
/// \throws std::runtime_error when memory runs out
SIM_API tsThumbnail thumbnail(const tsFrame& frame, std::uint32_t white);

} // namespace sim

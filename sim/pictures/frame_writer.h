/// \file
/// Pictures as files.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "sim/base/export.h"
#include "sim/base/frame.h"
#include "sim/base/thumbnail.h"
#include "sim/pictures/scene.h"
#include "sim/pictures/sensor_image.h"

namespace sim {

/// Writes a PNG picture of 16 bits, grey and linear: each value is the word that the FPGA
/// delivered. Its text chunk "Settings" holds the frame's settings. \throws std::runtime_error with
/// the path
SIM_API void writePng(const tsFrame& frame, const std::string& path);

/// A picture of 8 bits, grey and linear, of at most 240 x 240 pixels: each is the mean of a square
/// of the frame's. What is left over of a square at the right and at the bottom is cut off. \param
/// white word of the frame that is as bright as the picture can be; what is above it as well
/// \throws std::runtime_error when memory runs out
SIM_API tsThumbnail thumbnail(const tsFrame& frame, std::uint32_t white);

/// Makes pictures of the frames that a program's head recorded. Takes no lock.
class SIM_API tcFrameWriter {
public:
    /// \param scenario file that may name scene and defects; empty: a healthy head
    /// \param scene    PNG picture before the sensor; empty: the scenario's, or else the test chart
    /// \throws std::runtime_error with the path of what cannot be read
    tcFrameWriter(const std::string& scenario, const std::string& scene);

    /// Removes the pictures of earlier runs, so that none is taken for one of this run: regular
    /// files that have a name as `write` gives it and say in their text chunk that this program
    /// made them. \param folder that exists \throws std::runtime_error with the path of what cannot
    /// be read or removed
    static void clear(const std::string& folder);
    /// Writes "frame-0001.png" and so on; each call goes on where the one before ended.
    /// \param recording file of recorded frames
    /// \param folder    that exists
    /// \return the same pictures, small
    /// \throws std::runtime_error with the path of what cannot be read or written
    std::vector<tsThumbnail> write(const std::string& recording, const std::string& folder);
    /// \return number of pictures written so far
    [[nodiscard]] std::size_t written() const { return m_written; }

private:
    tcScene m_scene;
    std::vector<tsDefect> m_defects;
    std::size_t m_written = 0;
};

} // namespace sim

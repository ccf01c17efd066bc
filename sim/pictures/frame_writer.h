/// \file
/// The picture files of a run.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/export.h"
#include "sim/base/frame.h"
#include "sim/base/thumbnail.h"
#include "sim/pictures/scene.h"
#include "sim/pictures/sensor_image.h"

namespace sim {

/// Makes pictures of the frames that a program's head recorded. Takes no lock.
class SIM_API tcFrameWriter {
public:
    /// \param scene   what lies before the sensor \param defects of its array
    tcFrameWriter(tcScene scene, std::vector<tsDefect> defects);

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
    /// \param settings one recorded frame: a whole `tsFrameSettings`
    /// \return the picture as it left the FPGA; empty when the bytes are no such frame
    [[nodiscard]] std::optional<tsFrame> picture(const std::string& settings) const;
    /// \return number of pictures written so far
    [[nodiscard]] std::size_t written() const { return m_written; }

private:
    tcScene m_scene;
    std::vector<tsDefect> m_defects;
    std::size_t m_written = 0;
};

} // namespace sim

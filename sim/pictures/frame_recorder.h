/// \file
/// What the delivered frames depended on, kept while the program runs; the pictures are made later.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "sim/journal/live_ring.h"
#include "sim/pictures/frame_settings.h"

namespace sim {

/// The settings of the first frames. Takes no lock.
class tcFrameRecorder {
public:
    /// Room for so many frames is reserved at once: recording is possible in a signal handler.
    explicit tcFrameRecorder(std::size_t capacity) : m_frames(capacity) {}

    /// \return whether frames are kept for pictures that are made later
    [[nodiscard]] bool keeps() const { return !m_frames.empty(); }
    /// \return whether anybody wants to know of a frame
    [[nodiscard]] bool wanted() const { return keeps() || m_ring != nullptr; }
    /// From now on whoever looks at the run gets the latest frame.
    /// \param ring null: nobody looks any more; outlives this object otherwise
    void showTo(tcLiveRing* ring) { m_ring = ring; }
    /// A frame that does not fit any more is only counted.
    void record(const tsFrameSettings& frame);
    [[nodiscard]] std::span<const tsFrameSettings> frames() const {
        return std::span(m_frames).first(m_kept);
    }
    /// \return number of frames, kept or not
    [[nodiscard]] std::uint64_t delivered() const { return m_delivered; }

    /// \return the kept frames for a process of the same program; see `recordedFrames`
    [[nodiscard]] std::string bytes() const;

private:
    std::vector<tsFrameSettings> m_frames;
    std::size_t m_kept = 0;
    std::uint64_t m_delivered = 0;
    tcLiveRing* m_ring = nullptr;
};

/// \param bytes as `tcFrameRecorder::bytes` gave them; a rest that is no whole frame is left out
std::vector<tsFrameSettings> recordedFrames(const std::string& bytes);

} // namespace sim

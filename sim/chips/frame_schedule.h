/// \file
/// When frames begin, and which of them arrive whole.
#pragma once

#include <cstdint>

namespace sim {

/// Frame-start pulses: one at `fromNs`, and one every `periodNs` after it.
struct tsPulseTrain {
    std::uint64_t periodNs = 0; ///< 0: there are none
    std::uint64_t fromNs = 0;   ///< the first one since period or clock changed
    /// \return the first pulse at this time or later, with a train that runs [ns]
    [[nodiscard]] std::uint64_t nextNs(std::uint64_t timeNs) const;
    friend bool operator==(const tsPulseTrain&, const tsPulseTrain&) = default;
};

/// What the frames of a sensor follow from.
struct tsFrameTiming {
    bool streaming = false; // frames, not only training
    bool pulsesRun = false; // frame-start pulses
    tsPulseTrain pulses;
    std::uint64_t busyNs = 0;  // how long the sensor takes no pulse once it began a frame
    std::uint64_t frameNs = 0; // from one frame to the next: a number of pulses
    std::uint64_t rowsNs = 0;  // how long the rows of a frame come; less than `frameNs`
    /// \return whether the sensor begins frames, over whatever link
    [[nodiscard]] bool framesBegin() const {
        return streaming && pulsesRun && pulses.periodNs != 0;
    }
    friend bool operator==(const tsFrameTiming&, const tsFrameTiming&) = default;
};

/// Frames that arrive, one like the other.
struct tsFrameTrain {
    bool arrive = false;
    std::uint64_t fromNs = 0;   ///< when the first one begins since something changed
    std::uint64_t periodNs = 0; ///< from one to the next
    std::uint64_t rowsNs = 0;   ///< how long the rows of one come
};

/// Counts frames. A sensor that streams begins a frame with the first frame-start pulse that finds
/// it idle, whether the link is aligned or not. A frame counts when all its rows have come, over a
/// link that was aligned from its beginning on. Takes no lock.
class tcFrameSchedule {
public:
    /// The timing changes. The rows of a frame that has begun come to their end; the next frame
    /// begins with the first pulse that finds the sensor idle, by the frame length that it now has.
    /// To be called after `count` of the same time. \param nowNs present time
    void change(const tsFrameTiming& timing, std::uint64_t nowNs);
    /// Counts the frames that arrived whole until now. \param alignedSinceNs when the link became
    /// aligned, which it still is
    void count(std::uint64_t nowNs, std::uint64_t alignedSinceNs);
    /// Nothing arrives: the link is not aligned, or the sensor begins no frames.
    void pause() { m_arriving = false; }
    /// Alignment was lost under a frame that still came.
    void cut() { m_carried.valid = false; }
    [[nodiscard]] bool framesBegin() const { return m_timing.framesBegin(); }
    /// \return number of frames that arrived whole
    [[nodiscard]] std::uint64_t frames() const { return m_frames; }
    [[nodiscard]] tsFrameTrain train() const {
        return {m_arriving, m_trainNs, m_timing.frameNs, m_timing.rowsNs};
    }
    /// \param number from 1 on, of a frame that counts since the timing last changed
    /// \return when its rows had come [ns]
    [[nodiscard]] std::uint64_t doneNs(std::uint64_t number) const;

private:
    void countCarried(std::uint64_t nowNs, std::uint64_t alignedSinceNs);

    // A frame that had begun when the timing changed, and whose rows still come.
    struct tsCarried {
        bool valid = false;
        std::uint64_t beginNs = 0;
        std::uint64_t doneNs = 0;
    };
    tsFrameTiming m_timing;
    std::uint64_t m_frames = 0;
    tsCarried m_carried;
    std::uint64_t m_carriedNumber = 0; // which one the last carried frame became
    std::uint64_t m_carriedDoneNs = 0;
    std::uint64_t m_lastDoneNs = 0; // when the rows of frame `m_frames` had come
    std::uint64_t m_nextNs = 0;     // when the first frame begins, or began, that is not counted
    std::uint64_t m_trainNs = 0;    // the same as things were when timing or alignment changed
    std::uint64_t m_beganNs = 0;    // the frame before that one
    bool m_hasBegun = false;        // there is a frame before that one
    bool m_arriving = false;        // frames have begun to arrive
};

} // namespace sim

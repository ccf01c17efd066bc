/// \file
/// Whether pictures come while the sensor streams, and if not, why.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim/base/states.h"
#include "sim/base/text.h"

namespace sim {

/// What the delivery of frames depends on, at one moment.
struct tsDelivery {
    bool streaming = false;      ///< the sensor sends frames, whatever becomes of them
    bool pulses = false;         ///< frame-start pulses run
    bool triggered = false;      ///< the sensor waits for a trigger, not only for pulses
    bool clockKnown = false;     ///< master clock
    bool badPixelsRun = false;   ///< the bad-pixel core lets pictures through
    bool pixelShiftRuns = false; ///< the pixel-shift core lets pictures through
    tsLinkState link;
    std::uint64_t intervalNs = 0; ///< from frame to frame; 0: nobody knows
    std::uint64_t arrived = 0; ///< frames that came whole over the link, since the head was built
};

/// A time in which the sensor streamed for longer than three frame intervals and no picture was
/// delivered.
struct tsSilence {
    std::uint64_t fromNs = 0;
    std::uint64_t lastedNs = 0;   ///< as long as it streamed
    std::uint64_t intervalNs = 0; ///< from frame to frame, as it should have been
    tcText why;                   ///< "not aligned: lanes 3 7 are not locked"
};

/// Looks at the head before and after each change. Possible in a signal handler. Takes no lock.
class tcFrameWatch {
public:
    void look(const tsDelivery& now, std::uint64_t nowNs);

    /// \return the first times without pictures; `silenceCount` tells how many there were
    [[nodiscard]] std::span<const tsSilence> silences() const {
        return std::span(m_silences).first(m_kept);
    }
    [[nodiscard]] std::uint64_t silenceCount() const { return m_count; }
    /// \return number of pictures that left the pipeline
    [[nodiscard]] std::uint64_t delivered() const { return m_pictures; }
    /// \return the link as it was when the sensor streamed last, and whoever captures wanted
    /// frames: with pulses and the core on, if that ever was. Empty: the sensor never streamed.
    [[nodiscard]] std::optional<tsLinkState> linkInCapture() const { return m_link; }

private:
    void begin(const tsDelivery& now, std::uint64_t nowNs);
    void judge(const tsDelivery& now, std::uint64_t nowNs);

    static constexpr std::size_t kKept = 4;
    std::array<tsSilence, kKept> m_silences{};
    std::size_t m_kept = 0;
    std::uint64_t m_count = 0;
    bool m_streaming = false;
    bool m_silent = false; // told of the present streaming
    bool m_delivered = false;
    std::uint64_t m_fromNs = 0;
    std::uint64_t m_arrived = 0; // at the last look
    std::uint64_t m_pictures = 0;
    std::optional<tsLinkState> m_link;
    bool m_linkIsWanted = false; // of a moment with pulses and the core on
};

} // namespace sim

/// \file
/// The serial link: how the frame-control core's receiver locks on the sensor's twelve lanes.
#pragma once

#include <array>
#include <cstdint>

#include "sim/base/states.h"
#include "sim/journal/journal.h"

namespace sim {

inline constexpr std::size_t kLinkLanes = 12;
inline constexpr std::size_t kPllFlags = 3;

/// How a link behaves. Times in ns, `kForEver` for never: what is locked already stays so. What is
/// lost unlocks at once, and does not lock for as long as it is lost.
struct tsLinkFacts {
    static constexpr std::uint64_t kForEver = ~std::uint64_t{0};
    std::array<std::uint64_t, kPllFlags> pllNs{}; // by tePllFlag
    std::array<std::uint64_t, kLinkLanes> laneNs{};
    std::uint64_t alignmentNs = 0;
    std::uint32_t polarity = 0; // lanes that arrive inverted
    std::uint32_t lostPll = 0;  // one bit a flag
    std::uint32_t lostLanes = 0;
    bool alignmentLost = false;
    friend bool operator==(const tsLinkFacts&, const tsLinkFacts&) = default;
};

/// Frame-start pulses: one at `fromNs`, and one every `periodNs` after it.
struct tsPulseTrain {
    std::uint64_t periodNs = 0; ///< 0: there are none
    std::uint64_t fromNs = 0;   ///< the first one since period or clock changed
    /// \return the first pulse at this time or later, with a train that runs [ns]
    [[nodiscard]] std::uint64_t nextNs(std::uint64_t timeNs) const;
    friend bool operator==(const tsPulseTrain&, const tsPulseTrain&) = default;
};

/// What the receiver depends on.
struct tsLinkInputs {
    bool enabled = false;       // core enable
    bool sensorSending = false; // lanes carry something
    bool streaming = false;     // frames, not only training
    bool pulsesRun = false;     // frame-start pulses
    tsPulseTrain pulses;
    std::uint64_t busyNs = 0;  // how long the sensor takes no pulse once it began a frame
    std::uint64_t frameNs = 0; // from one frame to the next: a number of pulses
    std::uint64_t rowsNs = 0;  // how long the rows of a frame come; less than `frameNs`
    bool clockKnown = true;
    friend bool operator==(const tsLinkInputs&, const tsLinkInputs&) = default;
};

/// A flag, and when it was set.
struct tsTimedFlag {
    bool set = false;
    std::uint64_t sinceNs = 0;
};

/// Frames that arrive, one like the other.
struct tsFrameTrain {
    bool arrive = false;
    std::uint64_t fromNs = 0;   ///< when the first one begins since something changed
    std::uint64_t periodNs = 0; ///< from one to the next
    std::uint64_t rowsNs = 0;   ///< how long the rows of one come
};

/// Everything that a waveform shows of the link.
struct tsLinkTrace {
    bool enabled = false;
    std::array<tsTimedFlag, kPllFlags> pll; // by tePllFlag
    std::array<tsTimedFlag, kLinkLanes> lanes;
    tsTimedFlag aligned;
    std::uint32_t resets = 0;
    std::uint32_t hold = 0;
    tsFrameTrain frames;
};

/// Lock and alignment as functions of inputs, register writes and time. Takes no lock.
///
/// A sensor that streams begins a frame with the first frame-start pulse that finds it idle,
/// whether the link is aligned or not. A frame counts when all its rows have come, over a link that
/// was aligned from its beginning on.
///
///     receiving = enabled, sending, pulses and clock
///         | PLL time                 | lane time                    | alignment time
///         v                          v                              v
///     PLL flags --- all set ---> lane locked (DPA reset done, ---> aligned (all lanes locked
///                                polarity right)                   and held)
class tcLink {
public:
    tcLink(tcJournal& journal, const tsLinkFacts& facts) : m_journal(journal), m_facts(facts) {
        m_inversion = 0;
    }

    /// From now on the link behaves like this. The time of what is not locked and now takes another
    /// time begins anew.
    void setFacts(const tsLinkFacts& facts);
    void setInputs(const tsLinkInputs& inputs);
    void setInversion(std::uint32_t inversion);
    /// Register 10: DPA reset in 11..0, FIFO reset in 23..12.
    void setResets(std::uint32_t value);
    void setHold(std::uint32_t hold);

    [[nodiscard]] tsLinkState state();
    /// \return what was locked or aligned at any time so far
    [[nodiscard]] tsLinkState everReached();
    [[nodiscard]] std::uint64_t frames();
    [[nodiscard]] tsLinkTrace trace();
    /// \param number from 1 on, of a frame that counts since the inputs last changed
    /// \return when its rows had come [ns]
    [[nodiscard]] std::uint64_t frameDoneNs(std::uint64_t number) const;

private:
    // Steps of a lane's reset
    enum class teStep : std::uint8_t { idle, reset, fifoReset, training };
    struct tsLane {
        teStep step = teStep::idle;
        bool locked = false;
        std::uint64_t fromNs = 0;   // of training, or of the last change of polarity
        std::uint64_t lockedNs = 0; // when it locked
    };

    // A flag of the PLL, or alignment.
    struct tsLock {
        bool set = false;
        std::uint64_t fromNs = 0;  // since when nothing but time is missing, as far as it knows
        std::uint64_t sinceNs = 0; // when it was set
    };

    [[nodiscard]] bool receiving() const;
    [[nodiscard]] bool pllLost(std::size_t flag) const {
        return (m_facts.lostPll >> flag & 1) != 0;
    }
    [[nodiscard]] bool allPll() const;
    [[nodiscard]] std::uint64_t pllNs(std::size_t flag) const;
    [[nodiscard]] std::uint64_t allPllNs() const; // when the last flag is set
    [[nodiscard]] bool polarityRight(std::size_t lane) const;
    void settle();
    void lockLanes(std::uint64_t now);
    void startAgain(bool wasReceiving);
    void drop();
    void dropLanesThatAreNotHeld();
    void dropWhatItNeeds();
    void changePll(const tsLinkFacts& facts);
    void changeLanes(const tsLinkFacts& facts);
    void changeAlignment(const tsLinkFacts& facts);
    [[nodiscard]] bool framesBegin() const;
    void countFrames();
    void countCarried(std::uint64_t now);
    void planFrames(const tsLinkInputs& before);
    [[nodiscard]] bool canAlign() const;
    [[nodiscard]] std::uint64_t alignedNs() const;
    void stepLane(std::size_t lane, bool reset, bool fifoReset);
    void checkResets(std::uint32_t value);

    tcJournal& m_journal;
    tsLinkFacts m_facts;
    tsLinkInputs m_inputs;
    std::uint32_t m_inversion;
    std::uint32_t m_resets = 0;
    std::uint32_t m_hold = 0;
    std::array<tsLock, kPllFlags> m_pll{};
    tsLock m_aligned;
    std::uint64_t m_heldNs = 0; // since when all lanes are held
    std::array<tsLane, kLinkLanes> m_lanes{};
    tsLinkState m_ever;
    std::uint64_t m_frames = 0;
    // A frame that had begun when the inputs changed, and whose rows still come.
    struct tsCarried {
        bool valid = false;
        std::uint64_t beginNs = 0;
        std::uint64_t doneNs = 0;
    };
    tsCarried m_carried;
    std::uint64_t m_carriedNumber = 0; // which one the last carried frame became
    std::uint64_t m_carriedDoneNs = 0;
    std::uint64_t m_lastDoneNs = 0; // when the rows of frame `m_frames` had come
    std::uint64_t m_nextNs = 0;     // when the first frame begins, or began, that is not counted
    std::uint64_t m_trainNs = 0;    // the same as things were when inputs or alignment changed
    std::uint64_t m_beganNs = 0;    // the frame before that one
    bool m_hasBegun = false;        // there is a frame before that one
    bool m_arriving = false;        // frames have begun to arrive
};

} // namespace sim

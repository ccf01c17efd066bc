/// \file
/// The serial link: how the frame-control core's receiver locks on the sensor's twelve lanes.
#pragma once

#include <array>
#include <cstdint>

#include "sim/base/states.h"
#include "sim/chips/frame_schedule.h"
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

/// What the receiver depends on.
struct tsLinkInputs {
    bool enabled = false;       // core enable
    bool sensorSending = false; // lanes carry something
    bool clockKnown = true;
    tsFrameTiming frames;
    friend bool operator==(const tsLinkInputs&, const tsLinkInputs&) = default;
};

/// A flag, and when it was set.
struct tsTimedFlag {
    bool set = false;
    std::uint64_t sinceNs = 0;
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
    /// \return how often something was done to the link, by the program or a fault
    [[nodiscard]] std::uint64_t changes() const { return m_changes; }
    /// \return whether `trace` stays as it is now until something is done
    [[nodiscard]] bool settled() const;
    /// \param number from 1 on, of a frame that counts since the inputs last changed
    /// \return when its rows had come [ns]
    [[nodiscard]] std::uint64_t frameDoneNs(std::uint64_t number) const {
        return m_frames.doneNs(number);
    }

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
    void countFrames();
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
    tcFrameSchedule m_frames;
    std::uint64_t m_changes = 0;
};

} // namespace sim

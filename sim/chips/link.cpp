#include "sim/chips/link.h"

#include <algorithm>

#include "fpga/registers.h"
#include "sim/base/rules.h"
#include "sim/base/states.h"
#include "sim/base/text.h"

namespace sim {

namespace {

constexpr std::uint32_t kAllLanes = frameCtrlRegisters::kAllLanes;
constexpr std::uint64_t kForEver = tsLinkFacts::kForEver;

std::uint64_t later(std::uint64_t from, std::uint64_t duration) {
    return from == kForEver || duration == kForEver ? kForEver : from + duration;
}

} // namespace

bool tcLink::receiving() const {
    return m_inputs.enabled && m_inputs.sensorSending && m_inputs.frames.pulsesRun &&
           m_inputs.clockKnown;
}

bool tcLink::allPll() const {
    return m_pll[0].set && m_pll[1].set && m_pll[2].set;
}

// When the flag was set, or will be with everything as it is now.
std::uint64_t tcLink::pllNs(std::size_t flag) const {
    if (m_pll[flag].set) {
        return m_pll[flag].sinceNs;
    }
    return !receiving() || pllLost(flag) ? kForEver
                                         : later(m_pll[flag].fromNs, m_facts.pllNs[flag]);
}

std::uint64_t tcLink::allPllNs() const {
    return std::max({pllNs(0), pllNs(1), pllNs(2)});
}

bool tcLink::polarityRight(std::size_t lane) const {
    return ((m_inversion ^ m_facts.polarity) >> lane & 1) == 0;
}

// Everything locks by itself as time passes; every look at the link brings it up to date first.
void tcLink::settle() {
    const std::uint64_t now = m_journal.clock.now();
    for (std::size_t flag = 0; flag < kPllFlags; ++flag) {
        const std::uint64_t lockNs = pllNs(flag);
        if (!m_pll[flag].set && now >= lockNs) {
            m_pll[flag].set = true;
            m_pll[flag].sinceNs = lockNs;
        }
    }
    lockLanes(now);
    const std::uint64_t alignNs = alignedNs();
    if (!m_aligned.set && now >= alignNs) {
        m_aligned.set = true;
        m_aligned.sinceNs = alignNs;
    }
    m_ever.enabled = m_ever.enabled || m_inputs.enabled;
    m_ever.locked = m_ever.locked || m_pll[0].set;
    m_ever.rgLocked = m_ever.rgLocked || m_pll[1].set;
    m_ever.gbLocked = m_ever.gbLocked || m_pll[2].set;
    m_ever.aligned = m_ever.aligned || m_aligned.set;
}

void tcLink::lockLanes(std::uint64_t now) {
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        tsLane& lane = m_lanes[at];
        if (lane.locked || lane.step != teStep::training || !polarityRight(at) ||
            (m_facts.lostLanes >> at & 1) != 0) {
            continue;
        }
        const std::uint64_t lockNs = later(std::max(lane.fromNs, allPllNs()), m_facts.laneNs[at]);
        if (now >= lockNs) {
            lane.locked = true;
            lane.lockedNs = lockNs;
            m_ever.dpaLock |= 1U << at;
        }
    }
}

tsLinkState tcLink::everReached() {
    settle();
    return m_ever;
}

void tcLink::setInputs(const tsLinkInputs& inputs) {
    if (inputs == m_inputs) {
        return;
    }
    ++m_changes;
    settle();
    countFrames();
    const bool wasReceiving = receiving();
    m_inputs = inputs;
    if (!m_inputs.enabled) {
        drop();
    }
    startAgain(wasReceiving);
    dropWhatItNeeds();
    m_frames.change(inputs.frames, m_journal.clock.now());
}

void tcLink::startAgain(bool wasReceiving) {
    if (receiving() && !wasReceiving) {
        for (tsLock& flag : m_pll) {
            flag = {false, m_journal.clock.now(), 0};
        }
    } else if (!receiving() && wasReceiving) {
        for (tsLock& flag : m_pll) {
            flag.set = false;
        }
        dropLanesThatAreNotHeld();
    }
}

// A lane that is held keeps its phase without a signal; the others lose it.
void tcLink::dropLanesThatAreNotHeld() {
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        m_lanes[at].locked = m_lanes[at].locked && (m_hold >> at & 1) != 0;
    }
}

// Alignment does not outlive what it was found with.
void tcLink::dropWhatItNeeds() {
    m_aligned.set = m_aligned.set && canAlign() && allPll();
    if (!m_aligned.set) {
        m_frames.cut();
    }
}

void tcLink::setFacts(const tsLinkFacts& facts) {
    if (facts == m_facts) {
        return;
    }
    ++m_changes;
    settle();
    countFrames();
    changePll(facts);
    changeLanes(facts);
    changeAlignment(facts);
    m_facts = facts;
    dropWhatItNeeds();
}

void tcLink::changePll(const tsLinkFacts& facts) {
    const bool hadAll = allPll();
    const std::uint32_t changed = facts.lostPll ^ m_facts.lostPll;
    for (std::size_t flag = 0; flag < kPllFlags; ++flag) {
        const std::uint32_t bit = 1U << flag;
        if ((changed & bit) == 0 && facts.pllNs[flag] == m_facts.pllNs[flag]) {
            continue;
        }
        m_pll[flag].set = m_pll[flag].set && (facts.lostPll & bit) == 0;
        m_pll[flag].fromNs = m_journal.clock.now();
    }
    if (hadAll && !allPll()) {
        dropLanesThatAreNotHeld();
    }
}

// By masks, not by flags shifted out one by one: g++ 12 at -O2 takes the comparison of two such
// flags for always equal afterwards, and no lane is lost.
void tcLink::changeLanes(const tsLinkFacts& facts) {
    const std::uint32_t turned = facts.polarity ^ m_facts.polarity;
    const std::uint32_t changed = turned | (facts.lostLanes ^ m_facts.lostLanes);
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        const std::uint32_t bit = 1U << at;
        tsLane& lane = m_lanes[at];
        if ((changed & bit) == 0 && facts.laneNs[at] == m_facts.laneNs[at]) {
            continue;
        }
        if ((facts.lostLanes & m_hold & bit) != 0) {
            lane.step = teStep::idle; // a frozen lane does not train
        }
        lane.locked = lane.locked && ((facts.lostLanes | turned) & bit) == 0;
        lane.fromNs = m_journal.clock.now();
    }
}

void tcLink::changeAlignment(const tsLinkFacts& facts) {
    if (facts.alignmentLost != m_facts.alignmentLost || facts.alignmentNs != m_facts.alignmentNs) {
        m_aligned.set = m_aligned.set && !facts.alignmentLost;
        m_aligned.fromNs = m_journal.clock.now();
    }
}

void tcLink::drop() {
    for (tsLane& lane : m_lanes) {
        lane = tsLane{};
    }
}

void tcLink::setInversion(std::uint32_t inversion) {
    ++m_changes;
    settle();
    countFrames();
    const std::uint32_t changed = m_inversion ^ inversion;
    m_inversion = inversion;
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        if ((changed >> at & 1) != 0) {
            m_lanes[at].locked = false;
            m_lanes[at].fromNs = m_journal.clock.now();
        }
    }
    dropWhatItNeeds();
}

void tcLink::setResets(std::uint32_t value) {
    ++m_changes;
    settle();
    countFrames();
    if (m_inputs.enabled) {
        checkResets(value);
    }
    m_resets = value;
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        stepLane(at, (value >> at & 1) != 0, (value >> (at + kLinkLanes) & 1) != 0);
    }
    dropWhatItNeeds();
}

void tcLink::stepLane(std::size_t at, bool reset, bool fifoReset) {
    tsLane& lane = m_lanes[at];
    if (reset || fifoReset) {
        lane.locked = false;
        // Only DPA reset and then FIFO reset leads to training.
        const bool second = fifoReset && !reset && lane.step == teStep::reset;
        const bool still = fifoReset && !reset && lane.step == teStep::fifoReset;
        lane.step = reset ? teStep::reset : (second || still ? teStep::fifoReset : teStep::idle);
    } else if (lane.step == teStep::fifoReset) {
        const bool free = m_inputs.enabled && (m_hold >> at & 1) == 0;
        lane.step = free ? teStep::training : teStep::idle;
        lane.fromNs = m_journal.clock.now();
    } else if (lane.step == teStep::reset) {
        lane.step = teStep::idle;
    }
}

void tcLink::checkResets(std::uint32_t value) {
    if (value == m_resets) {
        return;
    }
    tcText text;
    text.add("word 10 <- ").hex(value, 6);
    const std::uint32_t reset = value & kAllLanes;
    const std::uint32_t fifoReset = value >> kLinkLanes & kAllLanes;
    const std::uint32_t oldReset = m_resets & kAllLanes;
    const std::uint32_t oldFifoReset = m_resets >> kLinkLanes & kAllLanes;
    if (reset != 0 && (m_hold & reset) != 0) {
        text.add(" while lanes ").hex(m_hold & reset, 3).add(" are held");
        m_journal.violation(teRule::dpaSequence, text.view());
    } else if (reset != 0 && m_journal.clock.now() < allPllNs()) {
        m_journal.violation(teRule::dpaSequence,
                            text.add(" while the PLL flags are not all set").view());
    } else if ((fifoReset & ~(oldReset | oldFifoReset)) != 0) {
        text.add(": FIFO reset without DPA reset before");
        m_journal.violation(teRule::dpaSequence, text.view());
    } else if (value == 0 && oldReset != 0) {
        text.add(": DPA reset ends without FIFO reset");
        m_journal.violation(teRule::dpaSequence, text.view());
    }
}

void tcLink::setHold(std::uint32_t hold) {
    ++m_changes;
    settle();
    countFrames();
    std::uint32_t unlocked = 0;
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        if ((hold & ~m_hold) >> at & 1 && !m_lanes[at].locked) {
            unlocked |= 1U << at;
            m_lanes[at].step = teStep::idle; // a frozen lane does not train
        }
    }
    if (m_inputs.enabled && unlocked != 0) {
        tcText text;
        text.add("word 11 <- ").hex(hold, 3).add(": lanes ").hex(unlocked, 3);
        m_journal.violation(teRule::dpaHold, text.add(" are not locked").view());
    }
    if (hold == kAllLanes && m_hold != kAllLanes) {
        m_heldNs = m_journal.clock.now();
    }
    m_hold = hold;
    dropWhatItNeeds();
}

bool tcLink::canAlign() const {
    return receiving() && m_hold == kAllLanes &&
           std::all_of(m_lanes.begin(), m_lanes.end(),
                       [](const tsLane& lane) { return lane.locked; });
}

// When frame alignment was found, or will be with everything as it is now.
std::uint64_t tcLink::alignedNs() const {
    if (m_aligned.set) {
        return m_aligned.sinceNs;
    }
    if (!canAlign() || m_facts.alignmentLost) {
        return kForEver;
    }
    std::uint64_t fromNs = std::max({m_heldNs, m_aligned.fromNs, allPllNs()});
    for (const tsLane& lane : m_lanes) {
        fromNs = std::max(fromNs, lane.lockedNs);
    }
    return later(fromNs, m_facts.alignmentNs);
}

tsLinkState tcLink::state() {
    settle();
    tsLinkState result;
    result.enabled = m_inputs.enabled;
    result.locked = m_pll[0].set;
    result.rgLocked = m_pll[1].set;
    result.gbLocked = m_pll[2].set;
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        result.dpaLock |= (m_lanes[at].locked ? 1U : 0U) << at;
    }
    result.aligned = m_aligned.set;
    return result;
}

tsLinkTrace tcLink::trace() {
    const tsLinkState now = state();
    tsLinkTrace result;
    result.enabled = now.enabled;
    for (std::size_t at = 0; at < kPllFlags; ++at) {
        result.pll[at] = {m_pll[at].set, m_pll[at].sinceNs};
    }
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        result.lanes[at] = {m_lanes[at].locked, m_lanes[at].lockedNs};
    }
    result.aligned = {now.aligned, alignedNs()};
    result.resets = m_resets;
    result.hold = m_hold;
    countFrames();
    result.frames = m_frames.train();
    return result;
}

// Without a signal nothing locks. With everything locked only frames are still to come.
bool tcLink::settled() const {
    return !receiving() || (m_aligned.set && (!m_frames.framesBegin() || m_frames.train().arrive));
}

// Frames that began before alignment are not whole, and do not count.
void tcLink::countFrames() {
    if (m_aligned.set && m_frames.framesBegin()) {
        m_frames.count(m_journal.clock.now(), m_aligned.sinceNs);
    } else {
        m_frames.pause();
    }
}

std::uint64_t tcLink::frames() {
    settle();
    countFrames();
    return m_frames.frames();
}

} // namespace sim

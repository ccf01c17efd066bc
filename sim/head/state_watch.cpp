#include "sim/head/state_watch.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "sim/base/text.h"

namespace sim {

namespace {

// Indices into the names.
constexpr std::size_t kRail = 0;
constexpr std::size_t kRailGood = kRail + kRails;
constexpr std::size_t kAwake = kRailGood + kRails;
constexpr std::size_t kEnabled = kAwake + 1;
constexpr std::size_t kPll = kEnabled + 1;
constexpr std::size_t kLane = kPll + kPllFlags;
constexpr std::size_t kAligned = kLane + kLinkLanes;
constexpr std::size_t kDpaReset = kAligned + 1;
constexpr std::size_t kFifoReset = kDpaReset + 1;
constexpr std::size_t kHold = kFifoReset + 1;
constexpr std::size_t kPulses = kHold + 1;
constexpr std::size_t kFrames = kPulses + 1;

constexpr std::array<std::string_view, kFrames + 1> kNames{
    "VDD1.2",           "VDD3.3SVDD",   "VDD3.3AVDDH",  "VDD1.2-GOOD", "VDD3.3SVDD-GOOD",
    "VDD3.3AVDDH-GOOD", "SENSOR-AWAKE", "CORE-ENABLED", "PLL-LOCKED",  "PLL-RG-LOCKED",
    "PLL-GB-LOCKED",    "LANE0-LOCK",   "LANE1-LOCK",   "LANE2-LOCK",  "LANE3-LOCK",
    "LANE4-LOCK",       "LANE5-LOCK",   "LANE6-LOCK",   "LANE7-LOCK",  "LANE8-LOCK",
    "LANE9-LOCK",       "LANE10-LOCK",  "LANE11-LOCK",  "ALIGNED",     "DPA-RESET",
    "DPA-FIFO-RESET",   "DPA-HOLD",     "PULSES",       "FRAMES"};

constexpr std::uint64_t kLaneBits = (1U << kLinkLanes) - 1;

// How many of its numbers are told.
std::size_t numbersOf(std::size_t what) {
    if (what == kPulses) {
        return 4;
    }
    if (what == kFrames) {
        return 3;
    }
    return what < kRailGood ? 2 : 1;
}

} // namespace

void tcStateWatch::watch(std::size_t what, const tsValue& value, std::uint64_t sinceNs) {
    if (m_values[what] != value) {
        m_values[what] = value;
        m_changes[m_changeCount++] = {sinceNs, what};
    }
}

// A flag falls when the program makes it fall; it rises when its time has come.
void tcStateWatch::watchFlag(std::size_t what, const tsTimedFlag& flag) {
    watch(what, {flag.set ? 1U : 0U, 0}, flag.set ? flag.sinceNs : m_journal.clock.now());
}

void tcStateWatch::watchSupplies(const tcSupplies& supplies) {
    const std::uint64_t now = m_journal.clock.now();
    for (std::size_t at = 0; at < kRails; ++at) {
        const auto rail = static_cast<teRail>(at);
        const auto target = static_cast<std::uint64_t>(std::llround(supplies.target(rail) * 1e6));
        if (m_values[kRail + at].first != target) { // the time that is left changes by itself
            watch(kRail + at, {target, supplies.targetNs(rail)}, now);
        }
        const std::optional<std::uint64_t> up = supplies.upNs(rail);
        watchFlag(kRailGood + at, {up.has_value(), up.value_or(0)});
    }
    const std::optional<std::uint64_t> awake = supplies.awakeNs();
    watchFlag(kAwake, {awake.has_value(), awake.value_or(0)});
}

void tcStateWatch::watchLink(tcLink& link) {
    const std::uint64_t now = m_journal.clock.now();
    const tsLinkTrace trace = link.trace();
    watch(kEnabled, {trace.enabled ? 1U : 0U, 0}, now);
    for (std::size_t at = 0; at < kPllFlags; ++at) {
        watchFlag(kPll + at, trace.pll[at]);
    }
    for (std::size_t at = 0; at < kLinkLanes; ++at) {
        watchFlag(kLane + at, trace.lanes[at]);
    }
    watchFlag(kAligned, trace.aligned);
    watch(kDpaReset, {trace.resets & kLaneBits, 0}, now);
    watch(kFifoReset, {trace.resets >> kLinkLanes & kLaneBits, 0}, now);
    watch(kHold, {trace.hold, 0}, now);
}

void tcStateWatch::watchPulses(const tcFpga& fpga) {
    const tcFrameStartPulses& pulses = fpga.pulses();
    const tsPulseTrain& train = pulses.train();
    watch(kPulses,
          {train.periodNs, train.periodNs == 0 ? 0 : pulses.lengthNs(), pulses.inverted() ? 1U : 0U,
           train.fromNs},
          m_journal.clock.now());
}

bool tcStateWatch::nothingNew(const tcSupplies& supplies, const tcLink& link) const {
    return m_settled && m_suppliesChanges == supplies.changes() && m_linkChanges == link.changes();
}

// Most calls of a program change nothing that is watched.
void tcStateWatch::look(const tcSupplies& supplies, tcLink& link, const tcFpga& fpga) {
    static_assert(kWatched == kNames.size());
    m_changeCount = 0;
    if (nothingNew(supplies, link)) {
        watchPulses(fpga);
    } else {
        watchSupplies(supplies);
        watchLink(link);
        watchPulses(fpga);
        // The first frame is told when it has begun; from then on what changes is told when it
        // does.
        const std::uint64_t now = m_journal.clock.now();
        const tsFrameTrain frames = link.trace().frames;
        const bool begin = m_values[kFrames].first == 0;
        watch(kFrames,
              frames.arrive ? tsValue{frames.periodNs, frames.rowsNs, frames.fromNs} : tsValue{},
              begin ? std::min(now, frames.fromNs) : now);
        m_settled = supplies.settled() && link.settled();
        m_suppliesChanges = supplies.changes();
        m_linkChanges = link.changes();
    }
    tell();
}

void tcStateWatch::tell() {
    if (m_changeCount == 0) {
        return;
    }
    std::sort(m_changes.begin(), m_changes.begin() + static_cast<std::ptrdiff_t>(m_changeCount),
              [](const tsChange& one, const tsChange& other) {
                  return one.timeNs < other.timeNs ||
                         (one.timeNs == other.timeNs && one.what < other.what);
              });
    for (std::size_t at = 0; at < m_changeCount; ++at) {
        const tsChange& change = m_changes[at];
        const tsValue& value = m_values[change.what];
        tcText text;
        text.add(kNames[change.what]);
        const std::array numbers{value.first, value.second, value.third, value.fourth};
        for (const std::uint64_t number : std::span(numbers).first(numbersOf(change.what))) {
            text.add(" ").decimal(number);
        }
        m_journal.state(change.timeNs, text.view());
    }
}

} // namespace sim

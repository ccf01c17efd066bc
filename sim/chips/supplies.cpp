#include "sim/chips/supplies.h"

#include <algorithm>
#include <cmath>

#include "sim/base/healthy_head.h"
#include "sim/base/rules.h"
#include "sim/base/text.h"

namespace sim {

namespace {

using limits::kMillisecond;
using limits::kWakesNs;

struct tsRailSheet {
    std::string_view name;
    std::string_view line;
    double nominal;           // V
    std::uint64_t riseNs;     // from enable to the settled voltage, as a straight line
    std::uint64_t requiredNs; // from enable to the next step of the sequence
};
constexpr std::array<tsRailSheet, kRails> kFacts{{
    {kRail1V2, "PS_1.2V_EN", 1.2, kMillisecond / 2, limits::kCoreSettlesNs},
    {kRailSvdd, "PS_3.3SVDD_EN", 3.3, 20 * kMillisecond, limits::kThreeVoltsSettleNs},
    {kRailAvddh, "PS_3.3AVDDH_EN", 3.3, 20 * kMillisecond, limits::kThreeVoltsSettleNs},
}};
constexpr double kUpFraction = 0.85; // of the nominal voltage: below, the sensor is dead
constexpr double kRounding = 1e-9;   // V, below what a step of the clock makes

const tsRailSheet& factsOf(teRail rail) {
    return kFacts[static_cast<std::size_t>(rail)];
}

double partOf(std::uint64_t age, std::uint64_t duration) {
    return age >= duration ? 1.0 : static_cast<double>(age) / static_cast<double>(duration);
}

tcText& microseconds(tcText& text, std::uint64_t ns) {
    return text.decimal(ns / 1000).add(".").decimal(ns % 1000, 3).add(" us");
}

} // namespace

std::optional<teRail> railNamed(std::string_view name) {
    for (std::size_t at = 0; at < kRails; ++at) {
        if (kFacts[at].name == name) {
            return static_cast<teRail>(at);
        }
    }
    return std::nullopt;
}

std::string_view nameOf(teRail rail) {
    return factsOf(rail).name;
}

double nominalVolts(teRail rail) {
    return factsOf(rail).nominal;
}

std::uint64_t tcSupplies::since(teRail rail) const {
    return m_journal.clock.now() - m_switchedNs[static_cast<std::size_t>(rail)];
}

std::uint64_t tcSupplies::sinceRelease() const {
    return m_released ? m_journal.clock.now() - m_releasedNs : 0;
}

void tcSupplies::enable(teRail rail, bool on, bool requested) {
    const auto at = static_cast<std::size_t>(rail);
    if (m_on[at] == on) {
        return;
    }
    if (on) {
        checkSwitchOn(rail);
    } else if (m_released && !requested) {
        tcText text;
        m_journal.violation(
            teRule::supplyOffRunning,
            text.add(factsOf(rail).line).add(" went low while RESET_B is high").view());
    }
    m_on[at] = on;
    ++m_changes;
    m_switchedNs[at] = m_journal.clock.now();
    changed(rail);
}

void tcSupplies::setRails(const tcRails& rails) {
    for (const teRail rail : {teRail::core, teRail::svdd, teRail::avddh}) {
        const auto at = static_cast<std::size_t>(rail);
        if (m_rails[at] != rails[at]) {
            m_rails[at] = rails[at];
            changed(rail);
        }
    }
}

// The voltage jumps, or its line begins anew.
void tcSupplies::changed(teRail rail) {
    ++m_changes;
    m_changedNs[static_cast<std::size_t>(rail)] = m_journal.clock.now();
}

void tcSupplies::fall() {
    for (const teRail rail : {teRail::core, teRail::svdd, teRail::avddh}) {
        if (!up(rail)) {
            changed(rail);
        }
    }
}

void tcSupplies::checkSwitchOn(teRail rail) {
    if (rail == teRail::core) {
        if (on(teRail::svdd) || on(teRail::avddh)) {
            m_journal.violation(teRule::supplyOrder,
                                "PS_1.2V_EN went high after a 3.3 V supply was on");
        }
        return;
    }
    tcText text;
    text.add(factsOf(rail).line);
    if (!on(teRail::core)) {
        m_journal.violation(teRule::supplyOrder,
                            text.add(" went high while PS_1.2V_EN is low").view());
    } else if (since(teRail::core) < factsOf(teRail::core).requiredNs) {
        text.add(" went high ");
        microseconds(text, since(teRail::core));
        m_journal.violation(teRule::supplyDelay,
                            text.add(" after PS_1.2V_EN; 1000 us are needed").view());
    } else if (rail == teRail::avddh && !on(teRail::svdd)) {
        m_journal.violation(teRule::supplyOrder,
                            text.add(" went high while PS_3.3SVDD_EN is low").view());
    }
}

void tcSupplies::releaseReset(bool released) {
    if (m_released == released) {
        return;
    }
    if (released) {
        checkRelease();
        m_releasedNs = m_journal.clock.now();
    }
    m_released = released;
    ++m_changes;
}

void tcSupplies::checkRelease() {
    for (const teRail rail : {teRail::core, teRail::svdd, teRail::avddh}) {
        tcText text;
        if (!on(rail)) {
            m_journal.violation(
                teRule::resetEarly,
                text.add("RESET_B went high while ").add(factsOf(rail).line).add(" is low").view());
            return;
        }
        if (since(rail) < factsOf(rail).requiredNs) {
            text.add("RESET_B went high ");
            microseconds(text, since(rail)).add(" after ").add(factsOf(rail).line).add("; ");
            m_journal.violation(
                teRule::resetEarly,
                text.decimal(factsOf(rail).requiredNs / 1000).add(" us are needed").view());
            return;
        }
    }
}

double tcSupplies::volts(teRail rail) const {
    return voltsAt(rail, m_journal.clock.now());
}

double tcSupplies::voltsAt(teRail rail, std::uint64_t timeNs) const {
    const auto at = static_cast<std::size_t>(rail);
    if (!m_on[at]) {
        return 0;
    }
    const double risen = partOf(timeNs - m_switchedNs[at], factsOf(rail).riseNs);
    const tsRailFacts& now = facts(rail);
    const double sunk = timeNs < now.sinksFromNs || now.sunkVolts == 0
                            ? 0
                            : now.sunkVolts * partOf(timeNs - now.sinksFromNs, now.sinksForNs);
    return std::max(0.0, now.settledVolts * risen - sunk);
}

double tcSupplies::target(teRail rail) const {
    return on(rail) ? std::max(0.0, facts(rail).settledVolts - facts(rail).sunkVolts) : 0;
}

std::uint64_t tcSupplies::targetNs(teRail rail) const {
    if (!on(rail)) {
        return 0;
    }
    const tsRailFacts& now = facts(rail);
    const std::uint64_t last =
        std::max(m_switchedNs[static_cast<std::size_t>(rail)] + factsOf(rail).riseNs,
                 now.sunkVolts == 0 ? 0 : now.sinksFromNs + now.sinksForNs);
    return last - std::min(last, m_journal.clock.now());
}

bool tcSupplies::upAt(teRail rail, std::uint64_t timeNs) const {
    return voltsAt(rail, timeNs) >= kUpFraction * factsOf(rail).nominal - kRounding;
}

// Where the line of the voltage can have a bend: in order.
std::array<std::uint64_t, 5> tcSupplies::bends(teRail rail) const {
    const auto at = static_cast<std::size_t>(rail);
    std::array<std::uint64_t, 5> times{
        m_changedNs[at], m_switchedNs[at], m_switchedNs[at] + factsOf(rail).riseNs,
        facts(rail).sinksFromNs, facts(rail).sinksFromNs + facts(rail).sinksForNs};
    std::sort(times.begin(), times.end());
    return times;
}

// The first time from one on at which the rail is up, or is not up any more.
std::optional<std::uint64_t> tcSupplies::crossingNs(teRail rail, std::uint64_t fromNs,
                                                    bool upwards) const {
    if (upAt(rail, fromNs) == upwards) {
        return fromNs;
    }
    for (const std::uint64_t bendNs : bends(rail)) {
        if (bendNs <= fromNs) {
            continue;
        }
        if (upAt(rail, bendNs) != upwards) {
            fromNs = bendNs;
            continue;
        }
        const double before = voltsAt(rail, fromNs);
        const double limit = kUpFraction * factsOf(rail).nominal - (upwards ? 0 : kRounding);
        const double part =
            std::clamp((limit - before) / (voltsAt(rail, bendNs) - before), 0.0, 1.0);
        std::uint64_t crossing =
            fromNs +
            static_cast<std::uint64_t>(std::llround(static_cast<double>(bendNs - fromNs) * part));
        while (crossing < bendNs && upAt(rail, crossing) != upwards) {
            ++crossing; // the line's last nanosecond, where rounding hides it
        }
        return crossing;
    }
    return std::nullopt;
}

std::optional<std::uint64_t> tcSupplies::nextFallNs() const {
    std::optional<std::uint64_t> next;
    for (const teRail rail : {teRail::core, teRail::svdd, teRail::avddh}) {
        const auto at = static_cast<std::size_t>(rail);
        if (!on(rail) || facts(rail).sunkVolts == 0) {
            continue;
        }
        const std::optional<std::uint64_t> upFrom = crossingNs(rail, m_changedNs[at], true);
        const std::optional<std::uint64_t> down =
            upFrom ? crossingNs(rail, *upFrom, false) : std::nullopt;
        if (down && (!next || *down < *next)) {
            next = down;
        }
    }
    return next;
}

std::optional<std::uint64_t> tcSupplies::upNs(teRail rail) const {
    return up(rail) ? crossingNs(rail, m_changedNs[static_cast<std::size_t>(rail)], true)
                    : std::nullopt;
}

std::optional<std::uint64_t> tcSupplies::awakeNs() const {
    if (!sensorAwake()) {
        return std::nullopt;
    }
    std::uint64_t latest = m_releasedNs + kWakesNs;
    for (const teRail rail : {teRail::core, teRail::svdd, teRail::avddh}) {
        latest = std::max(latest, upNs(rail).value_or(0));
    }
    return latest;
}

bool tcSupplies::up(teRail rail) const {
    return upAt(rail, m_journal.clock.now());
}

void tcSupplies::checkMeasurable(teRail rail) {
    if (!on(rail)) {
        return; // an unpowered rail reads 0 V, and may be read
    }
    tcText text;
    text.add(factsOf(rail).name).add(" was measured ");
    if (since(rail) < factsOf(rail).requiredNs) {
        microseconds(text, since(rail)).add(" after ").add(factsOf(rail).line);
        text.add("; ").decimal(factsOf(rail).requiredNs / 1000).add(" us are needed");
        m_journal.violation(teRule::adcEarly, text.view());
    } else if (m_released && sinceRelease() < kWakesNs) {
        microseconds(text, sinceRelease()).add(" after RESET_B; 10000 us are needed");
        m_journal.violation(teRule::adcEarly, text.view());
    }
}

bool tcSupplies::sensorKeepsState() const {
    return m_released && up(teRail::core) && up(teRail::svdd) && up(teRail::avddh);
}

bool tcSupplies::settled() const {
    for (const teRail rail : {teRail::core, teRail::svdd, teRail::avddh}) {
        if (on(rail) != up(rail) || facts(rail).sunkVolts != 0) {
            return false;
        }
    }
    return sensorAwake() == sensorKeepsState();
}

bool tcSupplies::sensorAwake() const {
    return sensorKeepsState() && sinceRelease() >= kWakesNs;
}

} // namespace sim

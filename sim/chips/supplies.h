/// \file
/// The sensor's supplies and its reset line.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "sim/journal/journal.h"

namespace sim {

/// Supplies, in the order in which they go on.
enum class teRail : std::uint8_t { core, svdd, avddh };
inline constexpr std::size_t kRails = 3;

/// What a supply does when it is switched on.
struct tsRailFacts {
    double settledVolts = 0;       // to which it rises
    double sunkVolts = 0;          // by which it then sinks, in a straight line
    std::uint64_t sinksFromNs = 0; // since when
    std::uint64_t sinksForNs = 0;  // how long it takes
    bool unreadable = false;       // the monitor drives no bit for it
    friend bool operator==(const tsRailFacts&, const tsRailFacts&) = default;
};
using tcRails = std::array<tsRailFacts, kRails>;

/// \return the rail of that name
std::optional<teRail> railNamed(std::string_view name);
std::string_view nameOf(teRail rail);
double nominalVolts(teRail rail);

/// Rails rise after their enable, and the sensor lives when all are up and reset is released.
class tcSupplies {
public:
    /// \param journal told about every broken rule
    tcSupplies(tcJournal& journal, const tcRails& rails) : m_journal(journal), m_rails(rails) {}

    /// From now on the supplies behave like this.
    void setRails(const tcRails& rails);
    /// \return when the next rail sinks below what the sensor needs [ns]; empty when none does
    [[nodiscard]] std::optional<std::uint64_t> nextFallNs() const;
    /// That time has come.
    void fall();
    [[nodiscard]] bool unreadable(teRail rail) const { return facts(rail).unreadable; }

    /// \param requested true: somebody takes the line over and cannot know what it was before
    void enable(teRail rail, bool on, bool requested);
    void releaseReset(bool released);

    /// \return [V] now
    [[nodiscard]] double volts(teRail rail) const;
    /// Reports when the rail has not settled yet.
    void checkMeasurable(teRail rail);
    /// \return whether the sensor listens now
    [[nodiscard]] bool sensorAwake() const;
    /// \return whether the sensor keeps what it holds
    [[nodiscard]] bool sensorKeepsState() const;
    [[nodiscard]] bool resetReleased() const { return m_released; }
    /// \return the voltage that the rail has, rises to or sinks to [V]; 0 when it is off
    [[nodiscard]] double target(teRail rail) const;
    /// \return how long the rail takes to that voltage from when it changed last [ns]
    [[nodiscard]] std::uint64_t targetNs(teRail rail) const;
    /// \return when the rail reached what the sensor needs, or its voltage last changed since then
    ///         [ns]; empty while it has not
    [[nodiscard]] std::optional<std::uint64_t> upNs(teRail rail) const;
    /// \return when the sensor woke [ns]; empty while it is not awake
    [[nodiscard]] std::optional<std::uint64_t> awakeNs() const;
    /// \return how often something was done to the supplies or to reset
    [[nodiscard]] std::uint64_t changes() const { return m_changes; }
    /// \return whether everything stays as it is now until something is done
    [[nodiscard]] bool settled() const;
    /// \return since reset was released [ns]; 0 while it is not
    [[nodiscard]] std::uint64_t sinceRelease() const;

private:
    [[nodiscard]] bool on(teRail rail) const { return m_on[static_cast<std::size_t>(rail)]; }
    [[nodiscard]] std::uint64_t since(teRail rail) const;
    [[nodiscard]] const tsRailFacts& facts(teRail rail) const {
        return m_rails[static_cast<std::size_t>(rail)];
    }
    [[nodiscard]] bool up(teRail rail) const;
    [[nodiscard]] double voltsAt(teRail rail, std::uint64_t timeNs) const;
    [[nodiscard]] bool upAt(teRail rail, std::uint64_t timeNs) const;
    [[nodiscard]] std::array<std::uint64_t, 5> bends(teRail rail) const;
    [[nodiscard]] std::optional<std::uint64_t> crossingNs(teRail rail, std::uint64_t fromNs,
                                                          bool upwards) const;
    void changed(teRail rail);
    void checkSwitchOn(teRail rail);
    void checkRelease();

    tcJournal& m_journal;
    tcRails m_rails;
    std::array<std::uint64_t, kRails> m_changedNs{}; // when its voltage last jumped or turned
    std::array<bool, kRails> m_on{};
    std::array<std::uint64_t, kRails> m_switchedNs{};
    bool m_released = false;
    std::uint64_t m_releasedNs = 0;
    std::uint64_t m_changes = 0;
};

} // namespace sim

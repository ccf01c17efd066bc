/// \file
/// The sensor's supplies and its reset line.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "sim/journal.h"

namespace sim {

/// Supplies, in the order in which they go on.
enum class teRail : std::uint8_t { core, svdd, avddh };
inline constexpr std::size_t kRails = 3;

/// \return the rail of that name
std::optional<teRail> railNamed(std::string_view name);
std::string_view nameOf(teRail rail);
double nominalVolts(teRail rail);

/// Rails rise after their enable, and the sensor lives when all are up and reset is released.
class tcSupplies {
public:
    /// \param journal told about every broken rule
    /// \param volts   to which each rail rises
    tcSupplies(tcJournal& journal, const std::array<double, kRails>& volts)
        : m_journal(journal), m_settledVolts(volts) {}

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
    /// \return the voltage that the rail has or rises to [V]; 0 when it is off
    [[nodiscard]] double target(teRail rail) const;
    /// \return how long the rail rises [ns]
    [[nodiscard]] static std::uint64_t riseNs(teRail rail);
    /// \return when the rail was switched last [ns]
    [[nodiscard]] std::uint64_t switchedNs(teRail rail) const;
    /// \return when the rail reached what the sensor needs [ns]; empty while it has not
    [[nodiscard]] std::optional<std::uint64_t> upNs(teRail rail) const;
    /// \return when the sensor woke [ns]; empty while it is not awake
    [[nodiscard]] std::optional<std::uint64_t> awakeNs() const;
    /// \return since reset was released [ns]; 0 while it is not
    [[nodiscard]] std::uint64_t sinceRelease() const;

private:
    [[nodiscard]] bool on(teRail rail) const { return m_on[static_cast<std::size_t>(rail)]; }
    [[nodiscard]] std::uint64_t since(teRail rail) const;
    [[nodiscard]] bool up(teRail rail) const;
    void checkSwitchOn(teRail rail);
    void checkRelease();

    tcJournal& m_journal;
    std::array<double, kRails> m_settledVolts;
    std::array<bool, kRails> m_on{};
    std::array<std::uint64_t, kRails> m_switchedNs{};
    bool m_released = false;
    std::uint64_t m_releasedNs = 0;
};

} // namespace sim

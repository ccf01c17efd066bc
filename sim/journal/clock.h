/// \file
/// The head's time.
#pragma once

#include <cstdint>
#include <optional>

namespace sim {

/// Counts nanoseconds since the head was built, on the kernel's clock or on its own.
class tcClock {
public:
    /// \param real true: the kernel's monotonic clock; false: virtual time
    explicit tcClock(bool real);

    [[nodiscard]] bool isReal() const { return m_real; }
    /// \return [ns] since the head was built
    [[nodiscard]] std::uint64_t now() const;
    /// Goes back, until `release`, to a time that passed while nobody looked, so that what happened
    /// then can be made up for. \param ns never taken for less than what `now` gave last
    void holdAt(std::uint64_t ns) { m_held = ns < m_latestNs ? m_latestNs : ns; }
    void release() { m_held.reset(); }
    /// \return as `now`, but no bound for `holdAt`: nothing happens at this time yet
    [[nodiscard]] std::uint64_t peek() const;
    /// Virtual time passes; real time passes by itself. \param durationNs [ns]
    void advance(std::uint64_t durationNs);
    /// Virtual time is what it was when a recording was made. \param timeNs [ns]
    void setTo(std::uint64_t timeNs) { m_virtualNs = timeNs; }
    /// What CLOCK_MONOTONIC reads. A program that only ever reads it sees it move: after many
    /// readings in a row each one takes a microsecond, so that a loop that waits for a deadline
    /// ends. \return [ns]
    std::uint64_t readMonotonic();
    /// The program did something else than reading the clock.
    void touched() { m_readingsInARow = 0; }
    /// \return CLOCK_MONOTONIC at which the head was built [ns]
    [[nodiscard]] std::uint64_t base() const { return m_baseNs; }

private:
    bool m_real;
    std::uint64_t m_baseNs;
    std::uint64_t m_virtualNs = 0;
    std::optional<std::uint64_t> m_held;
    mutable std::uint64_t m_latestNs = 0; // that `now` gave
    unsigned m_readingsInARow = 0;
};

} // namespace sim

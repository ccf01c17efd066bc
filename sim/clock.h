/// \file
/// The head's time.
#pragma once

#include <cstdint>

namespace sim {

/// Counts nanoseconds since the head was built, on the kernel's clock or on its own.
class tcClock {
public:
    /// \param real true: the kernel's monotonic clock; false: virtual time
    explicit tcClock(bool real);

    [[nodiscard]] bool isReal() const { return m_real; }
    /// \return [ns] since the head was built
    [[nodiscard]] std::uint64_t now() const;
    /// Virtual time passes; real time passes by itself. \param durationNs [ns]
    void advance(std::uint64_t durationNs);
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
    unsigned m_readingsInARow = 0;
};

} // namespace sim

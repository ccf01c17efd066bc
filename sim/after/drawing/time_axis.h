/// \file
/// The time axis of a drawing: times in which nothing happens are cut short.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/after/drawing/dump_reader.h"

namespace sim {

/// A stretch of time on the axis. Places are in px.
struct tsStretch {
    std::uint64_t fromNs = 0;
    std::uint64_t toNs = 0;
    bool cut = false; ///< nothing happens, and it has the width of all that are cut
    double x = 0;
    double width = 0;
};

/// From times to places.
class tcTimeAxis {
public:
    /// \param left, width of the axis [px]
    tcTimeAxis(const std::vector<tsSignal>& signals, std::uint64_t endNs, double left,
               double width);

    /// \return the place of a time [px]
    [[nodiscard]] double x(std::uint64_t timeNs) const;
    /// \return all of the axis, from left to right
    [[nodiscard]] const std::vector<tsStretch>& stretches() const { return m_stretches; }

private:
    void split(const std::vector<std::uint64_t>& times, std::uint64_t longestNs);
    void place(double left, double width);

    std::vector<tsStretch> m_stretches;
};

} // namespace sim

#include "sim/after/drawing/time_axis.h"

#include <algorithm>
#include <cstddef>

namespace sim {

namespace {

constexpr std::uint64_t kIdleParts = 16; // idle longer than this part of the run is cut short

} // namespace

tcTimeAxis::tcTimeAxis(const std::vector<tsSignal>& signals, std::uint64_t endNs, double left,
                       double width) {
    std::vector<std::uint64_t> times{0, endNs};
    for (const tsSignal& signal : signals) {
        for (const auto& [timeNs, value] : signal.changes) {
            times.push_back(timeNs);
        }
    }
    std::sort(times.begin(), times.end());
    split(times, std::max<std::uint64_t>(endNs / kIdleParts, 1));
    place(left, width);
}

void tcTimeAxis::split(const std::vector<std::uint64_t>& times, std::uint64_t longestNs) {
    m_stretches.push_back({0, 0, false, 0, 0});
    for (std::size_t at = 1; at < times.size(); ++at) {
        if (times[at] - times[at - 1] > longestNs) {
            m_stretches.back().toNs = times[at - 1];
            m_stretches.push_back({times[at - 1], times[at], true, 0, 0});
            m_stretches.push_back({times[at], times[at], false, 0, 0});
        }
        m_stretches.back().toNs = times[at];
    }
}

// Cut stretches have all the same width; the others share the rest by their length.
void tcTimeAxis::place(double left, double width) {
    constexpr double cutWidth = 56;
    std::uint64_t lengthNs = 0;
    double rest = width;
    for (const tsStretch& stretch : m_stretches) {
        lengthNs += stretch.cut ? 0 : stretch.toNs - stretch.fromNs;
        rest -= stretch.cut ? cutWidth : 0;
    }
    double x = left;
    for (tsStretch& stretch : m_stretches) {
        const auto length = static_cast<double>(stretch.toNs - stretch.fromNs);
        stretch.x = x;
        stretch.width =
            stretch.cut ? cutWidth
                        : rest * length / static_cast<double>(std::max<std::uint64_t>(lengthNs, 1));
        x += stretch.width;
    }
}

double tcTimeAxis::x(std::uint64_t timeNs) const {
    auto stretch = m_stretches.begin();
    while (stretch + 1 != m_stretches.end() && timeNs > stretch->toNs) {
        ++stretch;
    }
    const auto length =
        static_cast<double>(std::max<std::uint64_t>(stretch->toNs - stretch->fromNs, 1));
    return stretch->x + stretch->width * static_cast<double>(timeNs - stretch->fromNs) / length;
}

} // namespace sim

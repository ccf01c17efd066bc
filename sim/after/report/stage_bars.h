/// \file
/// Stages of a run as bars along its time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim::page {

/// A stage that the run reached.
struct tsStage {
    std::uint64_t startNs = 0;
    std::uint64_t endNs = 0; ///< the next stage's start, or the end of the run
    const char* name = "";
};

/// Draws the run from left to right, one line a stage:
///
///     1.2 V on       |#                        1.000 ms
///     reset released |          ####          10.000 ms
///                    0.000 ms                389.272 ms
///
/// \param runNs length of the run
/// \return SVG; empty for a run in which nothing was reached
[[nodiscard]] std::string stageBars(const std::vector<tsStage>& reached, std::uint64_t runNs);

} // namespace sim::page

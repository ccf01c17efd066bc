#include "sim/after/waveform/bits.h"

#include <algorithm>

namespace sim {

tsBits fittedBits(std::uint64_t startNs, std::uint64_t untilNs, std::uint64_t count,
                  std::uint64_t nominalNs, std::uint64_t shortestNs) {
    const std::uint64_t leftNs = untilNs > startNs ? untilNs - startNs : 0;
    return {startNs, std::max(std::min(leftNs, nominalNs), count * shortestNs), count};
}

} // namespace sim

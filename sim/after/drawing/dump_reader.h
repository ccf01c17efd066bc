/// \file
/// Reads a value-change dump.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

/// A variable of a dump.
struct tsSignal {
    std::string name;
    bool real = false;
    std::vector<std::pair<std::uint64_t, double>> changes; ///< time [ns], value; NaN: unknown
};

/// A dump, variables in its order.
struct tsDump {
    std::vector<tsSignal> signals;
    std::uint64_t endNs = 0;
};

/// \param text value-change dump of scalar and real variables, with a time scale of 1 ns
/// \throws std::runtime_error "line N: ..." for what is not such a dump
[[nodiscard]] tsDump readDump(std::string_view text);

} // namespace sim

/// \file
/// What is known of a run beside its trace: what was run, and how it ended.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// What the makers of a board know of a failure.
struct tsKnown {
    std::string cause;
    std::string measure; ///< what to measure, and where
};

/// Empty: nobody told.
struct tsRunFacts {
    std::string command;      ///< the program with its arguments, as a shell takes them
    std::string version;      ///< of the virtual head
    std::string scenario;     ///< path
    std::string scenarioText; ///< content of that file
    /// What the program printed. Empty: nobody kept it.
    std::optional<std::string> printed;
    std::optional<int> status;             ///< of the program; 128 and the signal that ended it
    std::optional<std::uint64_t> pictures; ///< that were delivered
    std::vector<std::string> silences;     ///< times in which none came, and why
    std::map<std::string, tsKnown> known;  ///< by the failure's name in the board's own table

    /// \return the scenario's file and the comment that it begins with: "dead-lane.ini: Lane 3
    ///         carries nothing."; empty without one
    [[nodiscard]] std::string scenarioTitle() const;
};

} // namespace sim

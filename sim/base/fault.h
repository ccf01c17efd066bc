/// \file
/// Faults that come and go: as they are asked for, and what became of them.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace sim {

/// Something that goes wrong while the head runs. The texts are those of a scenario's section
/// "[Fault NAME]"; docs/scenarios.md has all of them. Of faults that last at the same time and set
/// the same thing, the one that was named later wins.
struct tsFault {
    std::string name = {};  ///< of your choice, without line breaks
    std::string what = {};  ///< for example "lanes 3 7 lost"
    std::string at = {};    ///< begins: milliseconds since the head was built, "450"
    std::string after = {}; ///< begins: with an event of the log, "3 GPIO RESET_B = 1"
    std::string lasts = {}; ///< ends: milliseconds after it began (`for` in a scenario)
    std::string until = {}; ///< ends: a time as `at`, or an event as `after`
};

/// What became of a fault.
struct tsFaultRecord {
    std::string name;                              ///< as `tsFault::name`
    std::optional<std::chrono::nanoseconds> began; ///< empty: it never did
    std::optional<std::chrono::nanoseconds> ended; ///< empty: it lasts, or never began
    /// \return whether all fields are the same
    friend bool operator==(const tsFaultRecord& one, const tsFaultRecord& other) {
        return one.name == other.name && one.began == other.began && one.ended == other.ended;
    }
    /// \return whether a field differs
    friend bool operator!=(const tsFaultRecord& one, const tsFaultRecord& other) {
        return !(one == other);
    }
};

} // namespace sim

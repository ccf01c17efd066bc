/// \file
/// The keys of a scenario's section [Fault NAME].
#pragma once

#include <optional>
#include <span>
#include <string>

#include "sim/base/fault.h"

namespace sim {

/// A key of a fault's section.
struct tsFaultKey {
    const char* name;
    std::string tsFault::*text;
    const char* values;
    const char* meaning;
    bool (*understood)(const std::string& value);
};

/// \return all of them, in the order of the reference
[[nodiscard]] std::span<const tsFaultKey> faultKeys();

/// A text of a fault that cannot be understood.
struct tsFaultError {
    std::string key;
    std::string value;
    std::string why; // "allowed is ..."
};

/// Puts one text into its place. \param key "what", "at", "after", "for" or "until"
/// \return empty, or what is wrong
[[nodiscard]] std::optional<tsFaultError> setFaultText(tsFault& fault, const std::string& key,
                                                       const std::string& value);

/// \return the forms of everything that a fault can be, as an error lists them
[[nodiscard]] std::string allowedFaults();

} // namespace sim

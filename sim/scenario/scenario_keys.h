/// \file
/// The sections and keys of a scenario, but for those of its faults.
#pragma once

#include <span>
#include <string>

#include "sim/scenario/head_options.h"

namespace sim {

/// A key of a scenario. An empty name stands for any.
struct tsScenarioKey {
    const char* section;
    const char* name;
    const char* values;
    const char* meaning;
    /// Puts the value into the options. \return false when it is not allowed
    bool (*apply)(tsHeadOptions& options, const std::string& name, const std::string& value);
};

/// Section of the files that stand in for others: its keys are names, its values paths.
inline constexpr const char* kFilesSection = "Files";

/// \return all of them, section by section, in the order of the reference
[[nodiscard]] std::span<const tsScenarioKey> scenarioKeys();

/// \param name of a key in the same section \return whether it is this one
[[nodiscard]] bool isKey(const tsScenarioKey& key, const std::string& name);

} // namespace sim

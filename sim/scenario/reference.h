/// \file
/// What a scenario can say, for those who only want to know: launcher, tests and documents.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/export.h"

namespace sim {

/// A file that a scenario puts in place of one in the program's working directory.
struct tsReplacedFile {
    std::string name; ///< in the working directory
    std::string path; ///< of its replacement
};

/// \return section [Files] of a scenario, paths resolved against the scenario's folder
/// \throws std::runtime_error with file, key and what is allowed, for any key of the scenario
[[nodiscard]] SIM_API std::vector<tsReplacedFile> replacedFiles(const std::string& scenarioPath);

/// \return the forms of everything that a fault can be, as docs/scenarios.md has them
[[nodiscard]] SIM_API std::vector<std::string> faultKinds();
/// \param what as `tsFault::what` \return its index in `faultKinds`; empty when it is none
[[nodiscard]] SIM_API std::optional<std::size_t> faultKindOf(const std::string& what);

/// \return Markdown of every scenario key
[[nodiscard]] SIM_API std::string scenarioKeysMarkdown();

} // namespace sim

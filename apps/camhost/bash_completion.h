/// \file
/// Completion of the program's command line for bash.
#pragma once

#include <string>
#include <vector>

#include "apps/camhost/command_table.h"

namespace camhost {

/// An option of the command line.
struct tsOfferedOption {
    std::vector<std::string> names; ///< with their dashes; none: an argument without a name
    std::string type;               ///< of the argument behind it, "FILE"
    bool takesArgument = false;
};

/// \param options every option, in the order of the help
/// \param table   behind `--command`
/// \return a script for bash: each option, what may stand behind it, and each command
[[nodiscard]] std::string bashCompletion(const std::vector<tsOfferedOption>& options,
                                         const tcCommandTable& table);

} // namespace camhost

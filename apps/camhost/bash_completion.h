/// \file
/// Completion of the program's command line for bash.
#pragma once

#include <string>

#include "apps/camhost/command_table.h"

namespace CLI {
class App;
}

namespace camhost {

/// \param app   with every option
/// \param table behind `--command`
/// \return a script for bash: each option, what may stand behind it, and each command
[[nodiscard]] std::string bashCompletion(const CLI::App& app, const tcCommandTable& table);

} // namespace camhost

/// \file
/// What the console completes with the tab key: commands, keywords and arguments.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "apps/camhost/call.h"

namespace camhost {

/// \return what a line may begin with: keywords of the plug-in, and commands
std::vector<std::string> firstWords(tcCall& call);

/// \param line as typed so far
/// \return what the last word of the line may become, in alphabetical order
std::vector<std::string> completionsOf(std::string_view line, tcCall& call);

} // namespace camhost

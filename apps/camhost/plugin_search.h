/// \file
/// Where installed plug-ins are.
#pragma once

#include <string>
#include <vector>

namespace camhost {

/// Looks where plug-ins lie when this program was installed, and in the build folder when it was
/// not: beside the program's folder.
/// \return the plug-ins' absolute paths, in alphabetical order; of the first folder that has any
[[nodiscard]] std::vector<std::string> installedPlugins();

/// \return the only plug-in that is installed
/// \throws tcFatalError (`ePlugin`) when there is none or more than one
[[nodiscard]] std::string onlyPlugin();

} // namespace camhost

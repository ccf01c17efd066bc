/// \file
/// What can be wrong with a file before it is opened or trusted.
#pragma once

#include <string>
#include <vector>

namespace camhost {

/// Opening a pipe would wait for its other end, and a device may never end.
/// \param path followed where it is a link; a file that does not exist is none of this
/// \return "it is a folder" or "it is a pipe, a socket or a device"; empty for a regular file
std::string notRegular(const std::string& path);

/// The files of the working directory drive voltages and registers, the plug-in and the script are
/// programs: only who may do that may be able to write them. Looks at both, at the plug-in's
/// folder, the working directory, its folder "version" and the files directly in these two. A
/// plug-in opens its files as they stand, whatever is there: a pipe among them would make it wait.
/// \param plugin its library
/// \param script empty or "-" for none
/// \return a line for each that everybody, or a group other than root's and the process's own, can
///         write; a line for each that belongs to neither root, nor the present user, nor who
///         became root by sudo, but for files in a folder of the same owner; a line for each pipe,
///         socket or device in the two folders; a count in the place of the lines behind the eighth
std::vector<std::string> trustWarnings(const std::string& plugin, const std::string& script);

} // namespace camhost

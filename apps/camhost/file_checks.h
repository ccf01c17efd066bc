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

/// The files of the working directory drive voltages and registers, and the plug-in is a program:
/// only who may do that may be able to write them.
/// \param plugin its library
/// \return a line for everything that everybody can write, and for every file that belongs to
///         neither root, nor the present user, nor the owner of its folder; a count in the place of
///         the lines behind the eighth
std::vector<std::string> trustWarnings(const std::string& plugin);

} // namespace camhost

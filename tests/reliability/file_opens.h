/// \file
/// Stands before the C library's `open` and `fopen`, and refuses files with any errno: some come
/// from disks and networks that no test has, others not to the superuser.
#pragma once

#include <string>

/// From now on the file cannot be opened. \param path as the program says it \param error errno
void refuseOpening(const std::string& path, int error);
/// The file can be opened again.
void allowOpening(const std::string& path);
/// \return whether the file was refused since `refuseOpening` named it last
bool wasRefused(const std::string& path);

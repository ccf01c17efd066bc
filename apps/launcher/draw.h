/// \file
/// A value-change dump as a picture.
#pragma once

#include <string>

/// \param dump, picture paths
/// \throws tcUsageError when the dump cannot be read or drawn, or the picture not be written
void draw(const std::string& dump, const std::string& picture);

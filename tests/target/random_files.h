/// \file
/// The files that a board finds in its working directory, by chance.
#pragma once

#include <ostream>

#include "tests/target/chance.h"

/// Writes settings files, INI files and version files into the working directory, or removes those
/// of the board before. \param to what was written: "FILE NAME TEXT"
void writeAnyFiles(tcChance& chance, std::ostream& to);

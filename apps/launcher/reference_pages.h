/// \file
/// Pages of the documentation that follow from the head's tables.
#pragma once

#include "apps/launcher/command_line.h"

/// Prints the pages that the command line asks for. \return whether it asks for any
bool printReferencePages(const tsArguments& arguments);

/// \file
/// The program from beginning to end.
#pragma once

#include "apps/camhost/errors.h"
#include "apps/camhost/options.h"

namespace camhost {

/// Loads the plug-in, builds the board, carries out what was asked for and takes everything down
/// again. Errors are reported on standard error.
/// \return what the program ends with
teExit run(const tsOptions& options);

} // namespace camhost

/// \file
/// Makes one allocation of the process fail.
#pragma once

/// Counts down with every allocation; the one that reaches 0 throws. 0: none does.
extern int allocationsUntilFailure;

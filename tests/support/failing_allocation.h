/// \file
/// Makes one allocation of the process fail, and sees one that is released.
#pragma once

#include <functional>

/// Counts down with every allocation; the one that reaches 0 throws. 0: none does.
extern int allocationsUntilFailure;

/// \param released called once the memory of the next allocation is released
void watchNextAllocation(std::function<void()> released);

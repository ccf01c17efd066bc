/// \file
/// Waiting for hardware.
#pragma once

#include <chrono>

/// Sleeps, in one `nanosleep` that goes on with the remaining time when a signal interrupts it.
/// \param duration zero or more; a pause of zero is a call as well
void pauseFor(std::chrono::microseconds duration);

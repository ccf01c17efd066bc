/// \file
/// Counts the allocations of a thread.
#pragma once

#include <cstddef>

/// \return how often this thread has called any operator new so far
std::size_t allocations();

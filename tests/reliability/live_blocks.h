/// \file
/// Counts what is allocated and not yet freed.
#pragma once

#include <cstdint>

/// \return blocks that operator new gave to this process and that were not given back. Always 0
///         with a sanitizer, which has a heap of its own and looks for leaks itself.
std::int64_t liveBlocks();

/// \file
/// What the functions that stand in for the C library's have in common.
#pragma once

namespace sim {

/// \return whether a call goes straight to the C library: there is no head, or the call comes from
///         inside the head (an allocator that maps memory, for example)
bool outside();

} // namespace sim

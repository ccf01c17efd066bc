/// \file
/// Descriptors that the head itself keeps open in the program's process.
#pragma once

namespace sim {

/// Moves a descriptor of the head's own up, where programs do not count on their own being.
/// \return the new descriptor; the old one is closed
int outOfTheWay(int descriptor);

} // namespace sim

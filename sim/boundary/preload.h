/// \file
/// The head of a program that does not know of it: built when the library is preloaded.
#pragma once

namespace sim {

/// The program is perhaps about to end without running its exit handlers: says what the head saw
/// so far.
void programMayDie();

} // namespace sim

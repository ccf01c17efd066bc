/// \file
/// A program's head for whoever looks at it while the program runs: its events and latest picture
/// in shared memory, and a thread that takes orders.
#pragma once

#include <string>

namespace sim::live {

/// Makes the memory. Events are kept there from now on, by nobody's leave.
/// \param folder  of the one who looks; see `launch::kLive`
/// \param stopped whether calls wait from the first one that uses the head; needs virtual time
void prepare(const std::string& folder, bool stopped);

/// The program uses the head: starts the thread, once, and waits until it knows what was ordered
/// before. Does nothing when nobody looks. Takes the head's lock.
///
/// The thread blocks all signals, and takes the head's lock only to look and to put in what it has
/// prepared.
void firstUse();

/// This process is a copy of the one that is shown: it must not write into that one's memory. Only
/// for who holds the head's lock.
void forget();

} // namespace sim::live

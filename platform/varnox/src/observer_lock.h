/// \file
/// The lock that all observables of a process share.
#pragma once

#include <mutex>

namespace Varnox {

/// Recursive, so that an observer may do from its `update` whatever it may do outside.
std::recursive_mutex& observerLock();

} // namespace Varnox

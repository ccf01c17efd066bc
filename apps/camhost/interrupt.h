/// \file
/// Requests from outside to stop what is going on.
#pragma once

#include <chrono>
#include <functional>

namespace camhost {

/// Turns SIGINT and SIGTERM into a request that long steps look at. There is one for the program.
///
/// `requested` and `sleep` may be called from several threads.
class tcInterrupt {
public:
    /// Takes the two signals over.
    static void install();

    /// \return whether a signal came since `clear`
    static bool requested();
    /// \return whether the program was asked to end (SIGTERM), now or ever
    static bool endRequested();
    /// Forgets SIGINT.
    static void clear();
    /// Requests as a signal does.
    static void request();

    /// Sleeps, in slices short enough to notice a request.
    /// \param tick called before every slice with the time slept so far; may be empty
    /// \return false when a request cut the sleep short
    static bool sleep(std::chrono::milliseconds duration,
                      const std::function<void(std::chrono::milliseconds)>& tick);
};

} // namespace camhost

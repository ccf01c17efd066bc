/// \file
/// Requests from outside to stop what is going on.
#pragma once

#include <chrono>
#include <functional>

namespace camhost {

/// Turns SIGINT and SIGTERM into a request that long steps look at. There is one for the program.
/// All operations may be called from several threads.
class tcInterrupt {
public:
    /// Takes the two signals over.
    static void install();

    /// \return whether a signal came since `clear`
    static bool requested();
    /// \return whether the program was asked to end (SIGTERM), ever
    static bool endRequested();
    /// Forgets SIGINT. A request to end stays.
    static void clear();
    /// Requests as SIGINT does.
    static void request();

    /// \return a descriptor that is readable while there is a request
    static int descriptor();
    /// Returns when there is a request.
    static void waitForRequest();

    /// Sleeps, in slices short enough to notice a request.
    /// \param goOn asked before every slice, with the time slept so far; may be empty
    /// \return false when a request or `goOn` cut the sleep short
    static bool sleep(std::chrono::milliseconds duration,
                      const std::function<bool(std::chrono::milliseconds)>& goOn);
};

} // namespace camhost

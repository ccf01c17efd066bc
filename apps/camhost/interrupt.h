/// \file
/// Requests from outside to stop what is going on.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>

namespace camhost {

/// Longest wait for a request at a time [ms]. In a build for the thread sanitizer, a signal that
/// comes just before a wait is handed on only when the wait is over.
inline constexpr int kLookAgain = 1000;

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

/// Threads that are started while one lives never get the two signals: those are the main thread's,
/// which waits for them.
class tcStartsUninterrupted {
public:
    tcStartsUninterrupted();
    tcStartsUninterrupted(const tcStartsUninterrupted&) = delete;
    tcStartsUninterrupted& operator=(const tcStartsUninterrupted&) = delete;
    ~tcStartsUninterrupted();

private:
    sigset_t m_before;
};

} // namespace camhost

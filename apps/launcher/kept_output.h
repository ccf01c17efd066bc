/// \file
/// What a program prints, passed on and kept.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <thread>

/// Stands between a program's standard output and one's own.
class tcKeptOutput {
public:
    /// \throws std::runtime_error when there is no pipe
    tcKeptOutput();
    tcKeptOutput(const tcKeptOutput&) = delete;
    tcKeptOutput& operator=(const tcKeptOutput&) = delete;
    ~tcKeptOutput();

    /// In the program's process: from now on this is its standard output.
    void take() const;
    /// In one's own process, once the program's is there: passes on what comes. From now on a
    /// reader that goes away ends the program, not this process.
    void begin();
    /// The program has ended. \return all that came; what a process that it leaves behind prints
    /// later is lost
    std::string finish();

private:
    void passOn();
    void closeEnd(std::size_t end);

    std::array<int, 2> m_ends{-1, -1};
    std::thread m_thread;
    std::atomic<bool> m_ended{false};
    std::string m_text;
};

/// \file
/// What a program prints, passed on and kept.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <sys/types.h>
#include <thread>

/// Stands between a program's standard output and one's own. Where one's own is a terminal, the
/// program's is one as well, of the same size; a standard error that is a terminal goes the same
/// way then, or the order of the two would be lost. Its standard input stays what it is: keys,
/// signals of the keyboard and the modes of the terminal need nobody in between.
class tcKeptOutput {
public:
    /// \param shown whether what the program prints is passed on at all; if not, it prints into a
    ///        pipe, and a standard error that is a terminal stays what it is
    /// \throws std::runtime_error when there is no pipe, or no pseudo-terminal
    explicit tcKeptOutput(bool shown = true);
    tcKeptOutput(const tcKeptOutput&) = delete;
    tcKeptOutput& operator=(const tcKeptOutput&) = delete;
    ~tcKeptOutput();

    /// In the program's process: from now on this is its standard output.
    void take() const;
    /// In one's own process, once the program's is there: passes on what comes. From now on a
    /// reader that goes away ends the program, not this process, and the program is told of
    /// changes of the terminal's size.
    void begin(pid_t program);
    /// The program has ended. \return all that came; what a process that it leaves behind prints
    /// later is lost
    std::string finish();

private:
    void openPipe();
    void openTerminal();
    void passOn();
    void followSize();
    void closeEnd(std::size_t end);

    std::array<int, 2> m_ends{-1, -1};
    bool m_shown;
    bool m_terminal;
    int m_changes = -1; // of the terminal's size, one signal each
    pid_t m_program = 0;
    std::thread m_thread;
    std::atomic<bool> m_ended{false};
    std::string m_text;
};

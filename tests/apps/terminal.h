/// \file
/// Runs the host application on a terminal of its own, as a person does.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

/// A program on a pseudo-terminal.
class tcTerminal {
public:
    /// \param arguments of the host application's command line
    explicit tcTerminal(const std::vector<std::string>& arguments);
    tcTerminal(const tcTerminal&) = delete;
    tcTerminal& operator=(const tcTerminal&) = delete;
    ~tcTerminal(); ///< ends the program when it still runs

    /// Presses keys.
    void type(const std::string& keys);

    /// Waits until a text comes.
    /// \return what came up to the end of that text, without the terminal's control sequences; a
    ///         failure when it does not come
    std::string until(const std::string& text);

    /// \return the exit status
    int finish();

    void signal(int number) const;

private:
    bool fetch();

    int m_terminal = -1;
    pid_t m_child = -1;
    std::string m_got;
};

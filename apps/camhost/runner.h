/// \file
/// Carries out the commands that the command line and a script ask for.
#pragma once

#include <istream>
#include <string>

#include "apps/camhost/executor.h"

namespace camhost {

/// Carries out lines and prints their replies, errors with the place they come from.
class tcRunner {
public:
    /// \param keepGoing go on after a line that failed
    /// \param echo      print every line before its reply
    tcRunner(tcExecutor& executor, tcOutput& output, bool keepGoing, bool echo)
        : m_executor(executor), m_output(output), m_keepGoing(keepGoing), m_echo(echo) {}

    /// \param place where the line comes from, for errors
    /// \return whether there may be more lines
    bool runLine(const std::string& line, const std::string& place);

    /// \param name of the script, for errors
    /// \return whether there may be more lines
    bool runLines(std::istream& lines, const std::string& name);

    /// \param script a file, or "-" for standard input
    /// \throws tcFatalError (`eScript`) when it cannot be read
    bool runScript(const std::string& script);

    /// \return whether a line asked for the end, failed, or was interrupted: nothing more is wanted
    [[nodiscard]] bool ended() const { return m_ended; }

    /// \return what the program ends with: the first failure, or success
    [[nodiscard]] teExit status() const { return m_status.get(); }

private:
    void fail(teExit status, const std::string& place, const std::string& text);

    tcExecutor& m_executor;
    tcOutput& m_output;
    bool m_keepGoing;
    bool m_echo;
    bool m_ended = false;
    tcScriptStatus m_status;
};

} // namespace camhost

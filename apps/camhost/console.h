/// \file
/// The interactive console.
#pragma once

#include <memory>
#include <string>

#include "apps/camhost/executor.h"

namespace camhost {

/// Asks for lines on a terminal and carries them out: line editing, history, completion of
/// commands, arguments and names with the tab key. Ctrl-C ends a running command or capture, Ctrl-D
/// the console.
class tcConsole {
public:
    /// \param history file that keeps the lines from one time to the next; empty: none
    tcConsole(tcExecutor& executor, tcOutput& output, std::string history);
    tcConsole(const tcConsole&) = delete;
    tcConsole& operator=(const tcConsole&) = delete;
    ~tcConsole();

    /// Returns when the person has had enough or the program was asked to end.
    void run();

private:
    class tcEditor;
    std::unique_ptr<tcEditor> m_editor;
    tcExecutor& m_executor;
    tcOutput& m_output;
};

/// \return where the console's history is kept: in the person's folder for states; empty when there
///         is none
std::string historyFile();

} // namespace camhost

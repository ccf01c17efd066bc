/// \file
/// What the program ends with.
#pragma once

#include <string>

namespace camhost {

/// Exit statuses of the program. Scripts rely on them: they never change their meaning.
enum class teExit : int {
    eSuccess = 0,
    eInternal = 1,      ///< a defect of this program
    eUsage = 2,         ///< command line not understood
    ePlugin = 3,        ///< plug-in not loadable
    eBoard = 4,         ///< board not constructed
    eInitialize = 5,    ///< the board's initialization failed
    eCommand = 6,       ///< a command failed
    eScript = 7,        ///< script not readable
    eListen = 8,        ///< address not to be had
    eInterrupted = 130, ///< Ctrl-C or a request to end
};

/// \param command that failed, without its arguments; empty for a line that was not understood
/// \return what the program would end with
teExit statusOfFailed(const std::string& command);

/// What the lines of the command line and of a script end with: the first failure, or success.
class tcScriptStatus {
public:
    void failed(teExit status);
    [[nodiscard]] teExit get() const { return m_status; }

private:
    teExit m_status = teExit::eSuccess;
};

} // namespace camhost

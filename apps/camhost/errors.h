/// \file
/// What goes wrong in the host application, by stage.
#pragma once

#include <stdexcept>
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

/// Ends the program: which stage failed, and a text that says what, where, why and what to do.
class tcFatalError : public std::runtime_error {
public:
    tcFatalError(teExit status, const std::string& text)
        : std::runtime_error(text), m_status(status) {}

    [[nodiscard]] teExit status() const { return m_status; }

private:
    teExit m_status;
};

/// A command that cannot be carried out. The text is the reply.
class tcCommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A command that was stopped from outside.
class tcInterrupted : public tcCommandError {
public:
    using tcCommandError::tcCommandError;
};

} // namespace camhost

/// \file
/// What goes wrong in the host application, by stage.
#pragma once

#include <stdexcept>
#include <string>

#include "apps/camhost/exit_status.h"

namespace camhost {

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

/// An operation that the board answered with a failure.
class tcBoardError : public tcCommandError {
public:
    tcBoardError(const std::string& text, int result) : tcCommandError(text), m_result(result) {}
    /// \return what the board answered
    [[nodiscard]] int result() const { return m_result; }

private:
    int m_result;
};

/// A diagnosis that found something. The text says what; the whole of it was shown before.
class tcDiagnosed : public tcCommandError {
public:
    tcDiagnosed(teExit status, const std::string& text) : tcCommandError(text), m_status(status) {}
    /// \return what the program would end with
    [[nodiscard]] teExit status() const { return m_status; }

private:
    teExit m_status;
};

/// A command that was stopped from outside.
class tcInterrupted : public tcCommandError {
public:
    using tcCommandError::tcCommandError;
};

} // namespace camhost

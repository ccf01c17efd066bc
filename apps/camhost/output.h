/// \file
/// Where the program's texts go.
#pragma once

#include <mutex>
#include <string>

#include "apps/camhost/descriptor.h"

namespace camhost {

/// The program's three streams: replies and the board's log on standard output, errors on standard
/// error. With a log file, the log and whatever a plug-in prints by itself go there instead, and
/// standard output carries replies only.
///
/// All operations may be called from several threads; every text comes out in one piece.
class tcOutput {
public:
    tcOutput();
    tcOutput(const tcOutput&) = delete;
    tcOutput& operator=(const tcOutput&) = delete;

    /// Sends the log, and what plug-ins print on standard output, to a file.
    /// \param file appended to; "-" is standard error
    /// \throws tcFatalError when it cannot be written
    void sendLogTo(const std::string& file);

    /// \param text without its last newline; nothing is printed for an empty one
    void reply(const std::string& text);
    void log(const std::string& text);
    void error(const std::string& text);

    /// Shows how far a long step is, on a terminal only. The next text replaces it.
    void progress(const std::string& text);
    /// Takes the progress line away.
    void endProgress();

    /// \return where replies go
    [[nodiscard]] int replyDescriptor() const;
    /// \return whether replies may have colours: on a terminal, unless NO_COLOR is set
    [[nodiscard]] bool coloured() const;

private:
    void eraseProgress();
    void print(int descriptor, const std::string& text);

    std::mutex m_lock;
    tcDescriptor m_replies; // open while replies do not go where the log goes
    std::string m_progress; // the progress line on the screen
    const bool m_terminal;  // standard error is one
};

} // namespace camhost

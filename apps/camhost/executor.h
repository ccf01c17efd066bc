/// \file
/// From a line of text to a reply.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "apps/camhost/command_table.h"
#include "apps/camhost/errors.h"
#include "apps/camhost/head.h"
#include "apps/camhost/output.h"

namespace camhost {

/// What became of a line.
struct tsReply {
    teExit status = teExit::eSuccess; ///< what the program would end with
    std::string text;                 ///< may be empty and may hold several lines
    bool quit = false;                ///< whoever sent the line wants no more

    [[nodiscard]] bool ok() const { return status == teExit::eSuccess; }
};

/// What a command being carried out may use.
class tcCall {
public:
    using Line = std::function<void(const std::string&)>;

    tcCall(tcHead& head, tcOutput& output, const tcCommandTable& table,
           std::unique_lock<std::mutex>& lock, Line line)
        : m_head(head), m_output(output), m_table(table), m_lock(lock), m_line(std::move(line)) {}

    [[nodiscard]] tcHead& head() { return m_head; }
    [[nodiscard]] Varnox::tcSensorBoard& board() { return m_head.board(); }
    [[nodiscard]] const tcCommandTable& table() const { return m_table; }

    /// Shows a line before the reply comes.
    void line(const std::string& text) { m_line(text); }

    /// Sleeps. Commands of others are served meanwhile.
    /// \param what for the progress line, for example "capture"
    /// \return false when a request cut the sleep short
    bool wait(std::chrono::milliseconds duration, const std::string& what);

    /// Sleeps for a moment without showing progress.
    /// \return false when a request cut the sleep short
    bool pause(std::chrono::milliseconds duration);

    void requestQuit() { m_quit = true; }
    [[nodiscard]] bool quitRequested() const { return m_quit; }

private:
    tcHead& m_head;
    tcOutput& m_output;
    const tcCommandTable& m_table;
    std::unique_lock<std::mutex>& m_lock;
    Line m_line;
    bool m_quit = false;
};

/// Hands a command to the plug-in's handlers.
/// \return the handler's reply as it is
/// \throws tcCommandError with the reply when it is a refusal
std::string executeKeyword(tcHead& head, const std::string& keyword, const std::string& arguments);

/// Carries out lines, one after the other, whoever sends them. May be called from several threads.
class tcExecutor {
public:
    /// All three outlive the executor.
    tcExecutor(tcHead& head, const tcCommandTable& table, tcOutput& output)
        : m_head(head), m_table(table), m_output(output) {}

    /// Carries out one line. A blank line or a comment answers nothing.
    /// \param line     as typed
    /// \param showLine takes lines that come before the reply
    tsReply execute(std::string_view line, const tcCall::Line& showLine);

    /// The same, with such lines on the reply stream.
    tsReply execute(std::string_view line);

    /// \param line  as typed so far
    /// \return what the last word of the line may become, in alphabetical order
    std::vector<std::string> completions(std::string_view line);

private:
    std::string run(tcCall& call, tsLine line);

    tcHead& m_head;
    const tcCommandTable& m_table;
    tcOutput& m_output;
    std::mutex m_lock; // one command at a time: a board serves one caller
};

} // namespace camhost

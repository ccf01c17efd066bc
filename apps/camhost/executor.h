/// \file
/// From a line of text to a reply.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
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

/// Who sent a line.
struct tsCaller {
    using Show = std::function<void(const std::string&)>;

    Show line;                  ///< shows a line that comes before the reply
    Show progress;              ///< shows how far a long step is; an empty text takes it away
    std::function<bool()> gone; ///< whether nobody waits for the reply any more; may be empty
    bool mayUseFiles = true;    ///< may name files of this machine
};

/// What a command being carried out may use.
class tcCall {
public:
    tcCall(tcHead& head, const tcCommandTable& table, std::unique_lock<std::mutex>& lock,
           const tsCaller& caller)
        : m_head(head), m_table(table), m_lock(lock), m_caller(caller) {}

    [[nodiscard]] tcHead& head() { return m_head; }
    [[nodiscard]] Varnox::tcSensorBoard& board() { return m_head.board(); }
    [[nodiscard]] const tcCommandTable& table() const { return m_table; }
    [[nodiscard]] const tsCaller& caller() const { return m_caller; }

    /// Shows a line before the reply comes.
    void line(const std::string& text) { m_caller.line(text); }

    /// Sleeps. Commands of others are served meanwhile.
    /// \param what for the progress line, for example "capture"
    /// \return false when a request cut the sleep short, or nobody waits for the reply any more
    bool wait(std::chrono::milliseconds duration, const std::string& what);

    /// The same for a moment, without showing progress.
    bool pause(std::chrono::milliseconds duration);

    void requestQuit() { m_quit = true; }
    [[nodiscard]] bool quitRequested() const { return m_quit; }

private:
    [[nodiscard]] bool isWaitedFor() const { return !m_caller.gone || !m_caller.gone(); }

    tcHead& m_head;
    const tcCommandTable& m_table;
    std::unique_lock<std::mutex>& m_lock;
    const tsCaller& m_caller;
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
    tcExecutor(tcHead& head, const tcCommandTable& table, tcOutput& output);

    /// Carries out one line. A blank line or a comment answers nothing.
    /// \param line as typed
    tsReply execute(std::string_view line, const tsCaller& caller);

    /// The same for whoever sits at the program itself: lines and progress on its own streams.
    tsReply execute(std::string_view line);

    /// \return whether the board captures
    bool isCapturing();

    /// Ends a running capture.
    /// \return the board's result, or nothing when there was no capture
    std::optional<int> stopCapture();

    /// \param line  as typed so far
    /// \return what the last word of the line may become, in alphabetical order
    std::vector<std::string> completions(std::string_view line);

private:
    std::string run(tcCall& call, tsLine line);

    tcHead& m_head;
    const tcCommandTable& m_table;
    tsCaller m_operator;
    std::mutex m_lock; // one command at a time: a board serves one caller
};

} // namespace camhost

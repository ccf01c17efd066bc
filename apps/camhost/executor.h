/// \file
/// From a line of text to a reply.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/camhost/call.h"
#include "apps/camhost/command_table.h"
#include "apps/camhost/exit_status.h"
#include "apps/camhost/head.h"
#include "apps/camhost/output.h"

namespace camhost {

/// What became of a line.
struct tsReply {
    teExit status = teExit::eSuccess;  ///< what the program would end with
    std::string text;                  ///< may be empty and may hold several lines
    bool quit = false;                 ///< whoever sent the line wants no more
    tcFacts facts = tcFacts::object(); ///< what it tells, for programs
    bool json = false;                 ///< the text is a JSON object: it tells a failure as well

    [[nodiscard]] bool ok() const { return status == teExit::eSuccess; }
};

/// Hands a command to the plug-in's handlers.
/// \return the handler's reply as it is
/// \throws tcCommandError with the reply when it is a refusal
std::string executeKeyword(tcCall& call, const std::string& keyword, const std::string& arguments);

/// Carries out lines, one after the other, whoever sends them. May be called from several threads.
class tcExecutor {
public:
    /// All three outlive the executor.
    tcExecutor(tcHead& head, const tcCommandTable& table, tcOutput& output);

    /// Carries out one line. A blank line or a comment answers nothing.
    /// \param line as typed; with "--json" as its last word it is answered by a JSON object
    tsReply execute(std::string_view line, const tsCaller& caller);

    /// The same for whoever sits at the program itself: lines and progress on its own streams.
    tsReply execute(std::string_view line);

    /// From now on whoever sits at the program itself gets every reply as a JSON object.
    void answerInJson() { m_operator.json = true; }

    /// \return whether the board captures
    bool isCapturing();

    /// Ends a running capture.
    /// \return the board's result, or nothing when there was no capture
    std::optional<int> stopCapture();

    /// \param line  as typed so far
    /// \return as `completionsOf`
    std::vector<std::string> completions(std::string_view line);

private:
    tsReply carryOut(const tsLine& line, const tsCaller& caller);
    std::string run(tcCall& call, tsLine line);

    tcHead& m_head;
    const tcCommandTable& m_table;
    tsCaller m_operator;
    std::mutex m_lock; // one command at a time: a board serves one caller
};

} // namespace camhost

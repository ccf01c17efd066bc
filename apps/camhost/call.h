/// \file
/// What a command being carried out may use.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "apps/camhost/command_table.h"
#include "apps/camhost/errors.h"
#include "apps/camhost/facts.h"
#include "apps/camhost/head.h"

namespace camhost {

/// Who sent a line.
struct tsCaller {
    using Show = std::function<void(const std::string&)>;

    Show line;                  ///< shows a line that comes before the reply
    Show progress;              ///< shows how far a long step is; an empty text takes it away
    std::function<bool()> gone; ///< whether nobody waits for the reply any more; may be empty
    bool mayUseFiles = true;    ///< may name files of this machine
    bool json = false;          ///< wants every reply as a JSON object
    bool colour = false;        ///< replies go to a terminal that shows colours
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

    /// What the reply tells, for programs: members of the object that `--json` asks for.
    [[nodiscard]] tcFacts& facts() { return m_facts; }
    /// Keeps a board's answer among the facts.
    /// \return the answer
    int told(int result) {
        m_facts["result"] = result;
        return result;
    }

    void requestQuit() { m_quit = true; }
    [[nodiscard]] bool quitRequested() const { return m_quit; }

private:
    [[nodiscard]] bool isWaitedFor() const { return !m_caller.gone || !m_caller.gone(); }

    tcHead& m_head;
    const tcCommandTable& m_table;
    std::unique_lock<std::mutex>& m_lock;
    const tsCaller& m_caller;
    tcFacts m_facts = tcFacts::object();
    bool m_quit = false;
};

} // namespace camhost

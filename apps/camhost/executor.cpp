#include "apps/camhost/executor.h"

#include <algorithm>
#include <exception>
#include <iomanip>
#include <sstream>

#include "apps/camhost/interrupt.h"

namespace camhost {

namespace {

constexpr const char* kInitialize = "init";

/// Unlocks for as long as it lives.
class tcUnlocked {
public:
    explicit tcUnlocked(std::unique_lock<std::mutex>& lock) : m_lock(lock) { m_lock.unlock(); }
    tcUnlocked(const tcUnlocked&) = delete;
    tcUnlocked& operator=(const tcUnlocked&) = delete;
    ~tcUnlocked() { m_lock.lock(); }

private:
    std::unique_lock<std::mutex>& m_lock;
};

std::string seconds(std::chrono::milliseconds time) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << static_cast<double>(time.count()) / 1000.0
         << " s";
    return text.str();
}

/// \return for example "capture [#####     ] 2.5 s of 5.0 s"
std::string progressLine(const std::string& what, std::chrono::milliseconds done,
                         std::chrono::milliseconds all) {
    constexpr int kWidth = 30;
    const auto full = static_cast<std::size_t>(kWidth * done.count() / all.count());
    return what + " [" + std::string(full, '#') + std::string(kWidth - full, ' ') + "] " +
           seconds(done) + " of " + seconds(all);
}

teExit failedStage(const tsLine& line) {
    return !line.words.empty() && line.words.front() == kInitialize ? teExit::eInitialize
                                                                    : teExit::eCommand;
}

} // namespace

std::string executeKeyword(tcHead& head, const std::string& keyword, const std::string& arguments) {
    std::string reply = head.execute(keyword, arguments);
    // Some handlers answer a success with the refusal number 0.
    if (reply.starts_with("<nack ") && reply != "<nack 0>")
        throw tcCommandError(reply);
    return reply;
}

bool tcCall::wait(std::chrono::milliseconds duration, const std::string& what) {
    const tcUnlocked unlocked(m_lock);
    const bool whole = tcInterrupt::sleep(duration, [&](std::chrono::milliseconds slept) {
        m_caller.progress(progressLine(what, slept, duration));
        return isWaitedFor();
    });
    m_caller.progress("");
    return whole;
}

bool tcCall::pause(std::chrono::milliseconds duration) {
    const tcUnlocked unlocked(m_lock);
    return tcInterrupt::sleep(duration,
                              [this](std::chrono::milliseconds) { return isWaitedFor(); });
}

tcExecutor::tcExecutor(tcHead& head, const tcCommandTable& table, tcOutput& output)
    : m_head(head), m_table(table) {
    m_operator.line = [&output](const std::string& text) { output.reply(text); };
    m_operator.progress = [&output](const std::string& text) {
        if (text.empty())
            output.endProgress();
        else
            output.progress(text);
    };
}

bool tcExecutor::isCapturing() {
    const std::lock_guard lock(m_lock);
    return m_head.board().isCapturing();
}

std::optional<int> tcExecutor::stopCapture() {
    const std::lock_guard lock(m_lock);
    if (!m_head.board().isCapturing())
        return std::nullopt;
    return m_head.board().stop();
}

tsReply tcExecutor::execute(std::string_view line) {
    return execute(line, m_operator);
}

tsReply tcExecutor::execute(std::string_view line, const tsCaller& caller) {
    tsLine split;
    try {
        split = splitLine(line);
        if (split.words.empty())
            return {};
        std::unique_lock lock(m_lock);
        tcCall call(m_head, m_table, lock, caller);
        const std::string text = run(call, split);
        return {teExit::eSuccess, text, call.quitRequested()};
    } catch (const tcInterrupted& exception) {
        return {teExit::eInterrupted, exception.what()};
    } catch (const tcCommandError& exception) {
        return {failedStage(split), exception.what()};
    } catch (const std::exception& exception) {
        return {failedStage(split), split.words.front() + ": the plug-in threw \"" +
                                        exception.what() + "\"; see the board's lines above"};
    }
}

std::string tcExecutor::run(tcCall& call, tsLine line) {
    const std::string name = line.words.front();
    m_head.talk().beginCommand();
    if (const tsCommand* command = m_table.find(name)) {
        tcArguments arguments(name, command->arguments, std::move(line));
        return command->run(call, arguments);
    }
    if (m_head.hasKeyword(name))
        return executeKeyword(m_head, name, line.rest);
    const std::string similar = m_table.similarTo(name);
    throw tcCommandError("\"" + name + "\" is no command and no keyword of the plug-in; " +
                         (similar.empty() ? "" : "did you mean \"" + similar + "\"? ") +
                         "\"help\" lists all");
}

std::vector<std::string> tcExecutor::completions(std::string_view line) {
    tsLine split;
    try {
        split = splitLine(line);
    } catch (const tcCommandError&) {
        return {};
    }
    const bool newWord = line.empty() || line.back() == ' ' || line.back() == '\t';
    if (newWord)
        split.words.emplace_back();
    if (split.words.empty())
        return {};

    std::vector<std::string> candidates;
    std::unique_lock lock(m_lock);
    if (split.words.size() == 1) {
        candidates = m_head.keywords();
        for (const tsCommand& command : m_table.commands())
            candidates.push_back(command.name);
    } else if (const tsCommand* command = m_table.find(split.words.front());
               command != nullptr && command->choices) {
        tcCall call(m_head, m_table, lock, m_operator);
        candidates = command->choices(call, split.words.size() - 2);
    }
    std::erase_if(candidates, [&](const std::string& candidate) {
        return !candidate.starts_with(split.words.back());
    });
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
    return candidates;
}

} // namespace camhost

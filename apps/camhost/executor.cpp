#include "apps/camhost/executor.h"

#include <exception>

#include "apps/camhost/completion.h"

namespace camhost {

namespace {

teExit failedStage(const tsLine& line) {
    return statusOfFailed(line.words.empty() ? "" : line.words.front());
}

} // namespace

std::string executeKeyword(tcHead& head, const std::string& keyword, const std::string& arguments) {
    std::string reply = head.execute(keyword, arguments);
    // Some handlers answer a success with the refusal number 0.
    if (reply.starts_with("<nack ") && reply != "<nack 0>")
        throw tcCommandError(reply);
    return reply;
}

tcExecutor::tcExecutor(tcHead& head, const tcCommandTable& table, tcOutput& output)
    : m_head(head), m_table(table) {
    m_operator.colour = output.coloured();
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
    return m_head.hasBoard() && m_head.board().isCapturing();
}

std::optional<int> tcExecutor::stopCapture() {
    const std::lock_guard lock(m_lock);
    if (!m_head.hasBoard() || !m_head.board().isCapturing())
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
    } catch (const tcDiagnosed& exception) {
        return {exception.status(), exception.what()};
    } catch (const tcBoardError& exception) {
        return {failedStage(split), exception.what() + m_head.explanation(exception.result())};
    } catch (const tcCommandError& exception) {
        return {failedStage(split), exception.what()};
    } catch (const std::exception& exception) {
        return {failedStage(split), split.words.front() + ": the plug-in threw \"" +
                                        exception.what() + "\"; see the board's lines above"};
    }
}

std::string tcExecutor::run(tcCall& call, tsLine line) {
    const std::string name = line.words.front();
    if (!m_head.hasBoard()) // it could not be made again after a diagnosis: now, perhaps
        m_head.rebuild();
    m_head.beginCommand();
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
    std::unique_lock lock(m_lock);
    if (!m_head.hasBoard())
        return {};
    tcCall call(m_head, m_table, lock, m_operator);
    return completionsOf(line, call);
}

} // namespace camhost

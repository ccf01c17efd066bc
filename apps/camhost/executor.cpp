#include "apps/camhost/executor.h"

#include <exception>

#include "apps/camhost/completion.h"
#include "apps/camhost/reply_json.h"

namespace camhost {

namespace {

teExit failedStage(const tsLine& line) {
    return statusOfFailed(line.words.empty() ? "" : line.words.front());
}

/// Takes the last word away where it asks for a reply in JSON.
/// \return whether it did
bool takeJsonRequest(tsLine& line) {
    constexpr std::string_view kRequest = "--json";
    // In quotes it is an argument like any other.
    if (line.words.size() < 2 || line.words.back() != kRequest || !line.rest.ends_with(kRequest))
        return false;
    line.words.pop_back();
    line.rest = trimmed(line.rest.substr(0, line.rest.size() - kRequest.size()));
    return true;
}

tsReply inJson(const std::string& command, tsReply reply, const std::vector<std::string>& lines) {
    reply.text = jsonText(command, reply, lines);
    reply.json = true;
    return reply;
}

std::string commandText(const tsLine& line) {
    return line.words.front() + (line.rest.empty() ? "" : " " + line.rest);
}

} // namespace

std::string executeKeyword(tcCall& call, const std::string& keyword, const std::string& arguments) {
    std::string reply = call.head().execute(keyword, arguments);
    call.facts() = {{"keyword", keyword}, {"answer", reply}};
    // Some handlers answer a success with the refusal number 0.
    if (reply.starts_with("<nack ") && reply != "<nack 0>")
        throw tcCommandError(reply);
    return reply;
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
    } catch (const tcCommandError& exception) {
        tsReply reply{failedStage(split), exception.what()};
        return caller.json ? inJson(trimmed(line), std::move(reply), {}) : reply;
    }
    const bool json = takeJsonRequest(split) || caller.json;
    if (split.words.empty())
        return {};
    if (!json)
        return carryOut(split, caller);
    std::vector<std::string> lines;
    tsCaller gathering = caller;
    gathering.line = [&lines](const std::string& text) { lines.push_back(text); };
    return inJson(commandText(split), carryOut(split, gathering), lines);
}

tsReply tcExecutor::carryOut(const tsLine& line, const tsCaller& caller) {
    std::unique_lock lock(m_lock);
    tcCall call(m_head, m_table, lock, caller);
    const auto failed = [&](teExit status, const std::string& text) {
        return tsReply{status, text, false, call.facts()};
    };
    try {
        const std::string text = run(call, line);
        return {teExit::eSuccess, text, call.quitRequested(), call.facts()};
    } catch (const tcInterrupted& exception) {
        return failed(teExit::eInterrupted, exception.what());
    } catch (const tcBoardError& exception) {
        call.told(exception.result());
        std::string text = exception.what();
        if (const auto explanation = m_head.explanation(exception.result())) {
            call.facts()["explanation"] = explanationFacts(*explanation);
            text += "\n" + failures::textOf(*explanation);
        }
        return failed(failedStage(line), text);
    } catch (const tcCommandError& exception) {
        return failed(failedStage(line), exception.what());
    } catch (const std::exception& exception) {
        return failed(failedStage(line), line.words.front() + ": the plug-in threw \"" +
                                             exception.what() + "\"; see the board's lines above");
    }
}

std::string tcExecutor::run(tcCall& call, tsLine line) {
    const std::string name = line.words.front();
    m_head.beginCommand();
    if (const tsCommand* command = m_table.find(name)) {
        tcArguments arguments(name, command->arguments, std::move(line));
        return command->run(call, arguments);
    }
    if (m_head.hasKeyword(name))
        return executeKeyword(call, name, line.rest);
    const std::string similar = m_table.similarTo(name);
    throw tcCommandError("\"" + name + "\" is no command and no keyword of the plug-in; " +
                         (similar.empty() ? "" : "did you mean \"" + similar + "\"? ") +
                         "\"help\" lists all");
}

std::vector<std::string> tcExecutor::completions(std::string_view line) {
    std::unique_lock lock(m_lock);
    tcCall call(m_head, m_table, lock, m_operator);
    return completionsOf(line, call);
}

} // namespace camhost

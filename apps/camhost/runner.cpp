#include "apps/camhost/runner.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "apps/camhost/file_checks.h"
#include "apps/camhost/interrupt.h"

namespace camhost {

namespace {

/// \return that a command failed whose reply tells why
std::string failedText(const std::string& line) {
    return "\"" + line + "\" failed; its reply tells more";
}

} // namespace

void tcRunner::fail(teExit status, const std::string& place, const std::string& text) {
    m_status.failed(status);
    m_output.error("camhost: " + place + ": " + text);
}

bool tcRunner::runLine(const std::string& line, const std::string& place) {
    if (m_echo && line.find_first_not_of(" \t\r") != std::string::npos)
        m_output.reply("> " + line);
    const tsReply reply = m_executor.execute(line);
    if (reply.ok() || reply.json)
        m_output.reply(reply.text);
    if (!reply.ok())
        fail(reply.status, place, reply.json ? failedText(line) : reply.text);
    if (tcInterrupt::requested()) {
        if (reply.status != teExit::eInterrupted)
            fail(teExit::eInterrupted, place, "interrupted; nothing more is carried out");
        m_ended = true;
    }
    m_ended = m_ended || reply.quit || (!reply.ok() && !m_keepGoing);
    return !m_ended;
}

bool tcRunner::runLines(std::istream& lines, const std::string& name) {
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        if (!runLine(line, name + ":" + std::to_string(number)))
            return false;
    }
    return true;
}

bool tcRunner::runScript(const std::string& script) {
    if (script == "-")
        return runLines(std::cin, "standard input");
    const std::string hint = ". Give the file of a script, or - for standard input.";
    if (const std::string why = notRegular(script); !why.empty())
        throw tcFatalError(teExit::eScript, "script " + script + " not read: " + why + hint);
    errno = 0;
    std::ifstream file(script);
    if (!file)
        throw tcFatalError(teExit::eScript,
                           "script " + script + " not read: " + std::strerror(errno) + hint);
    return runLines(file, script);
}

} // namespace camhost

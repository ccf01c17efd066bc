// camhost's command line grammar and its commands, on a board without hardware: one command a line,
// as a client of the network sends it.

#include <iostream>
#include <memory>

#include "apps/camhost/arguments.h"
#include "apps/camhost/executor.h"
#include "tests/apps/fake_board.h"
#include "tests/fuzz/support.h"

namespace {

/// A host with a head of its own, as the program builds it.
struct tsHost {
    camhost::tcOutput output;
    camhost::tcCommandTable table = camhost::makeCommandTable();
    camhost::tcHead head{42, std::make_unique<tcFakeBoard>("x"), output};
    camhost::tcExecutor executor{head, table, output};
};

bool isPlain(std::string_view line) {
    for (const char c : line) {
        const auto code = static_cast<unsigned char>(c);
        if ((code < ' ' && c != '\t' && c != '\r') || code == 0x7F)
            return false;
    }
    return true;
}

/// \return the words, blanks between, with the quotes that keep each in one piece
std::string quoted(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "\"" : " \"") + word + "\"";
    return line;
}

/// What is quoted again comes apart again in the same words.
void checkGrammar(std::string_view line) {
    try {
        const camhost::tsLine split = camhost::splitLine(line);
        fuzz::require(isPlain(line), "control characters are refused");
        const camhost::tsLine again = camhost::splitLine(quoted(split.words));
        fuzz::require(again.words == split.words, "a quoted line has the same words");
        fuzz::require(split.rest.size() <= line.size(), "the rest is part of the line");
    } catch (const camhost::tcCommandError&) {
        std::size_t quotes = 0;
        for (const char c : line)
            quotes += c == '"' ? 1U : 0U;
        fuzz::require(!isPlain(line) || quotes > 0, "only quotes and control characters confuse");
    }
}

void checkReply(const std::string& line, const camhost::tsReply& reply) {
    // "COMMAND: the plug-in threw" is what a defect of program or board looks like from here.
    if (!reply.ok() && isPlain(line)) {
        const std::string report = ": the plug-in threw \"";
        const std::size_t found = reply.text.find(report);
        fuzz::require(found == std::string::npos ||
                          reply.text.substr(0, found).find_first_of(" \"") != std::string::npos,
                      reply.text);
    }
    fuzz::require(reply.ok() || !reply.text.empty(), "a refusal says why");
    using camhost::teExit;
    const bool failedInit = reply.status == teExit::eInitialize && line.find("init") != line.npos;
    fuzz::require(reply.status == teExit::eSuccess || reply.status == teExit::eCommand ||
                      reply.status == teExit::eInterrupted || failedInit,
                  "a command ends well, fails or is interrupted");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::silenceStandardOutput();
    std::cout.setstate(std::ios::failbit); // formatted for nobody
    fuzz::enterScratchFolder();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static tsHost host;
    camhost::tsCaller caller;
    caller.mayUseFiles = false;
    caller.gone = [] { return true; }; // nobody waits: waiting ends at once
    caller.line = [](const std::string&) {};
    caller.progress = caller.line;

    const std::string text = fuzz::text({data, size});
    for (std::size_t at = 0; at < text.size();) {
        const std::string line = text.substr(at, text.find('\n', at) - at);
        at += line.size() + 1;
        checkGrammar(line);
        static_cast<void>(host.executor.completions(line));
        checkReply(line, host.executor.execute(line, caller));
    }
    static_cast<void>(host.executor.execute("stop", caller));
    return 0;
}

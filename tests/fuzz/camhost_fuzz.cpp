// camhost's command line grammar and its commands, on a board without hardware: one command a line,
// as a client of the network sends it.

#include <iostream>
#include <memory>
#include <optional>

#include "apps/camhost/arguments.h"
#include "apps/camhost/executor.h"
#include "tests/apps/fake_board.h"
#include "tests/fuzz/command_line.h"
#include "tests/fuzz/support.h"

namespace {

/// A host with a head of its own, as the program builds it.
struct tsHost {
    camhost::tcOutput output;
    camhost::tcCommandTable table = camhost::makeCommandTable();
    camhost::tcHead head{42, [] { return std::make_unique<tcFakeBoard>("x"); }, output};
    camhost::tcExecutor executor{head, table, output};
};

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += "[" + word + "]";
    return text;
}

/// \return the words, blanks between, with the quotes that keep each in one piece
std::string quoted(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "\"" : " \"") + word + "\"";
    return line;
}

/// A line comes apart as a second reading of it says, and quoted again in the same words.
void checkGrammar(std::string_view line, const fuzz::tsCommandLine& expected) {
    try {
        const camhost::tsLine split = camhost::splitLine(line);
        fuzz::require(expected.good, "control characters and open quotes are refused");
        fuzz::requireEqual("words", joined(expected.words), joined(split.words));
        fuzz::requireEqual("rest", expected.rest, split.rest);
        const camhost::tsLine again = camhost::splitLine(quoted(split.words));
        fuzz::requireEqual("words of a quoted line", joined(split.words), joined(again.words));
    } catch (const camhost::tcCommandError& error) {
        fuzz::require(!expected.good, "only quotes and control characters confuse");
        fuzz::require(*error.what() != '\0', "what confuses is named");
    }
}

std::string numberText(std::optional<std::int64_t> number) {
    return number ? std::to_string(*number) : "none";
}

void checkNumbers(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        std::int64_t value = 0;
        const bool is = camhost::parseNumber(word, value);
        fuzz::requireEqual("number", numberText(fuzz::readCommandNumber(word)),
                           numberText(is ? std::optional(value) : std::nullopt));
    }
}

/// What the last word may become begins with it, in alphabetical order, each once.
void checkCompletions(std::string_view line, const fuzz::tsCommandLine& read,
                      const std::vector<std::string>& completions) {
    const bool newWord = line.empty() || line.ends_with(' ') || line.ends_with('\t');
    const std::string begun = newWord || read.words.empty() ? "" : read.words.back();
    const std::string* before = nullptr;
    for (const std::string& completion : completions) {
        fuzz::requireEqual("begin of a completion", begun, completion.substr(0, begun.size()));
        fuzz::require(before == nullptr || *before < completion, "completions in order, each once");
        before = &completion;
    }
}

/// A setting that was taken was asked for the number that the line says. Depths of a pixel have
/// names that are numbers.
void checkAsked(const fuzz::tsCommandLine& read, const std::string& reply) {
    const std::string head = read.words.front() + ": asked ";
    if (read.words.size() != 2 || read.words[0] == "bpp" || !reply.starts_with(head))
        return;
    const std::size_t end = reply.find_first_not_of("-0123456789", head.size());
    const std::string asked = reply.substr(head.size(), end - head.size());
    if (const auto number = fuzz::readCommandNumber(read.words[1]); number && !asked.empty())
        fuzz::requireEqual("number asked for", std::to_string(*number), asked);
}

void checkReply(const fuzz::tsCommandLine& read, const camhost::tsReply& reply) {
    using camhost::teExit;
    if (!read.good)
        fuzz::require(reply.status == teExit::eCommand, "a confused line fails");
    // "COMMAND: the plug-in threw" is what a defect of program or board looks like from here.
    if (!reply.ok() && read.good) {
        const std::string report = ": the plug-in threw \"";
        const std::size_t found = reply.text.find(report);
        fuzz::require(found == std::string::npos ||
                          reply.text.substr(0, found).find_first_of(" \"") != std::string::npos,
                      reply.text);
    }
    fuzz::require(reply.ok() || !reply.text.empty(), "a refusal says why");
    const bool failedInit =
        reply.status == teExit::eInitialize && read.good && read.words.front() == "init";
    // Beside this board lies no table: a diagnosis says so.
    const bool diagnosed =
        reply.status == teExit::eNoFacts && read.good && read.words.front() == "diagnose";
    fuzz::require(reply.status == teExit::eSuccess || reply.status == teExit::eCommand ||
                      reply.status == teExit::eInterrupted || failedInit || diagnosed,
                  "a command ends well, fails or is interrupted");
    if (read.good && read.words.empty())
        fuzz::require(reply.ok() && reply.text.empty(), "a line without words answers nothing");
    else if (reply.ok())
        checkAsked(read, reply.text);
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
        const fuzz::tsCommandLine read = fuzz::readCommandLine(line);
        checkGrammar(line, read);
        checkNumbers(read.words);
        checkCompletions(line, read, host.executor.completions(line));
        checkReply(read, host.executor.execute(line, caller));
    }
    static_cast<void>(host.executor.execute("stop", caller));
    return 0;
}

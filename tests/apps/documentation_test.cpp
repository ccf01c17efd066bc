// The examples of the documentation are carried out, on the real plug-in and the virtual head.

#include <filesystem>
#include <fstream>
#include <iostream>
#include <regex>
#include <set>
#include <sstream>

#include <gmock/gmock.h>

#include "apps/camhost/executor.h"
#include "apps/camhost/plugin.h"
#include "apps/tables/beside.h"
#include "sim/virtual_head.h"
#include "tests/apps/process.h"

using testing::HasSubstr;

namespace {

/// A line that is typed and what is answered.
struct tsExample {
    int number = 0; ///< of the line in the document
    std::string line;
    std::string reply; ///< may hold "...": any text
};

std::string textOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// \return the examples in the fenced blocks of a document: "> LINE", then the reply
std::vector<tsExample> examplesOf(const std::string& path) {
    std::istringstream document(textOf(path));
    std::vector<tsExample> examples;
    bool inside = false;
    bool replied = false;
    std::string line;
    for (int number = 1; std::getline(document, line); ++number) {
        if (line.starts_with("```")) {
            inside = !inside;
            replied = false;
        } else if (inside && line.starts_with("> ")) {
            examples.push_back({number, line.substr(2), ""});
            replied = true;
        } else if (inside && replied) {
            std::string& reply = examples.back().reply;
            reply += (reply.empty() ? "" : "\n") + line;
        }
    }
    return examples;
}

/// \return whether a text is as expected, where "..." stands for any text
bool matches(const std::string& expected, const std::string& text) {
    const auto gap = expected.find("...");
    if (gap == std::string::npos)
        return text == expected;
    return text.starts_with(expected.substr(0, gap)) && text.ends_with(expected.substr(gap + 3));
}

/// The example head with a session on it, in a working directory of its own.
class DocumentationTest : public testing::Test {
protected:
    DocumentationTest() {
        std::filesystem::copy(HEAD_DATA, folder.path(), std::filesystem::copy_options::recursive);
        std::filesystem::current_path(folder.path());
        testing::internal::CaptureStdout();
        session.emplace(
            plugin.sensorType(), [&] { return plugin.makeBoard("/dev/spidev1.0"); }, output);
        session->knowRegisters(
            registers::tcRegisterTable(tables::beside(plugin.path(), "registers").value()));
        session->knowSettings(
            settings::tcSettingsTable(tables::beside(plugin.path(), "settings").value()));
        executor.emplace(*session, table, output);
    }
    ~DocumentationTest() override {
        executor.reset();
        session.reset();
        const std::string printed = testing::internal::GetCapturedStdout();
        if (HasFailure())
            std::cout << printed; // the failures are in it
        std::filesystem::current_path("/");
    }

    /// \return the reply as the documents show it
    std::string reply(const std::string& line) {
        std::string before;
        camhost::tsCaller caller;
        caller.line = [&](const std::string& text) { before += text + "\n"; };
        caller.progress = [](const std::string&) {};
        const camhost::tsReply got = executor->execute(line, caller);
        return before + (got.ok() ? "" : "error: ") + got.text;
    }

    tcFolder folder;
    sim::tcVirtualHead head = sim::aVirtualHead().build();
    camhost::tcOutput output;
    camhost::tcPlugin plugin{SENSOR_PLUGIN};
    camhost::tcCommandTable table = camhost::makeCommandTable();
    std::optional<camhost::tcHead> session;
    std::optional<camhost::tcExecutor> executor;
};

} // namespace

TEST_F(DocumentationTest, ExamplesOfTheCommandsAnswerAsTheyAreShown) {
    const std::vector<tsExample> examples = examplesOf(HEAD_DOCS "/commands.md");
    EXPECT_GT(examples.size(), 80U);
    std::string failures;
    for (const tsExample& example : examples) {
        const std::string got = reply(example.line);
        if (!matches(example.reply, got))
            failures += "commands.md:" + std::to_string(example.number) + "\n> " + example.line +
                        "\n" + got + "\n";
    }
    EXPECT_EQ(failures, "");
    EXPECT_TRUE(head.violations().empty()) << head.summary();
}

TEST_F(DocumentationTest, EveryCommandAndEveryKeywordHasAnExample) {
    std::set<std::string> shown;
    for (const tsExample& example : examplesOf(HEAD_DOCS "/commands.md"))
        shown.insert(example.line.substr(0, example.line.find(' ')));
    for (const camhost::tsCommand& command : table.commands())
        EXPECT_TRUE(shown.contains(command.name)) << command.name;
    for (const std::string& keyword : session->keywords())
        EXPECT_TRUE(shown.contains(keyword)) << keyword;
}

TEST_F(DocumentationTest, ShowsEveryCommandAsItsHelpDoes) {
    const std::string text = textOf(HEAD_DOCS "/commands.md");
    for (const camhost::tsCommand& command : table.commands()) {
        EXPECT_THAT(text, HasSubstr("### " + command.name + "\n")) << command.name;
        const std::string usage =
            command.name + (command.arguments.empty() ? "" : " " + command.arguments);
        EXPECT_THAT(text, HasSubstr("`" + usage + "`: " + command.summary + ".")) << command.name;
    }
}

TEST(ManualPage, NamesEveryOptionAndEveryExitStatus) {
    const tsFinished help = runCamhost({"--help"});
    const std::string page =
        std::regex_replace(textOf(CAMHOST_SOURCES "/camhost.1"), std::regex("\\\\-"), "-");
    std::smatch match;
    std::string rest = help.out;
    int options = 0;
    for (const std::regex option("--[a-z-]+"); std::regex_search(rest, match, option);
         rest = match.suffix()) {
        EXPECT_THAT(page, HasSubstr(match.str()));
        ++options;
    }
    EXPECT_GE(options, 10);
    for (const char* status : {"0", "1", "2", "3", "4", "5", "6", "7", "8", "130"})
        EXPECT_THAT(page, HasSubstr(std::string(".IP ") + status + " ")) << status;
}

TEST(Completion, IsWhatTheProgramPrints) {
    const tsFinished printed = runCamhost({"--print-completion"});
    EXPECT_EQ(printed.status, 0);
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(printed.out, textOf(CAMHOST_SOURCES "/camhost.bash"));
}

TEST(Completion, KnowsEveryOptionAndEveryCommand) {
    const std::string script = textOf(CAMHOST_SOURCES "/camhost.bash");
    const tsFinished help = runCamhost({"--help"});
    std::smatch match;
    std::string rest = help.out;
    for (const std::regex option("--[a-z-]+"); std::regex_search(rest, match, option);
         rest = match.suffix())
        EXPECT_THAT(script, HasSubstr(match.str()));
    for (const char* const command : {"init", "roi", "registers", "diff", "exit"})
        EXPECT_THAT(script, testing::ContainsRegex(std::string("[ \"]") + command + "[ \"\n]"));
}

TEST(Completion, CompletesInTheShell) {
    const auto completed = [](const std::string& before, const std::string& word) {
        const std::string script = std::string("source \"" CAMHOST_SOURCES "/camhost.bash\"; ") +
                                   "COMP_WORDS=(camhost " + before + " '" + word +
                                   "'); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _camhost; "
                                   "echo \"${COMPREPLY[@]}\"";
        return run({"bash", "-c", script}).out;
    };
    EXPECT_EQ(completed("", "--li"), "--list --listen\n");
    EXPECT_EQ(completed("", "--j"), "--json\n");
    EXPECT_EQ(completed("--command", "regi"), "regions region registers\n");
    EXPECT_EQ(completed("", "--b"), "--board-output\n");
    EXPECT_EQ(completed("-c", "expo"), "exposure\n");
    EXPECT_EQ(completed("--spi", "/dev/nul"), "/dev/null\n");
    EXPECT_EQ(completed("", "--nothing"), "\n");
}

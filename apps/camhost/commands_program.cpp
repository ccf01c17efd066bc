#include "apps/camhost/commands.h"
#include "apps/camhost/completion.h"
#include "apps/camhost/executor.h"

namespace camhost {

namespace {

constexpr const char* kProgramGroup = "Program";

std::string keywordHelp(tcCall& call) {
    std::string text;
    for (const std::string& keyword : call.head().keywords())
        text += "\n  " + keyword;
    return text.empty() ? "" : "\n\nKeywords of the plug-in, passed on as they are:" + text;
}

/// \return how the board stands to a command, as a remark in brackets; empty for full support
std::string supportText(tcCall& call, const tsCommand& command) {
    const auto* const settings = call.head().settings();
    switch (settings != nullptr ? settings->supportOf(command.name) : settings::teSupport::eFull) {
    case settings::teSupport::eNone:
        return " (not supported by this board)";
    case settings::teSupport::eReadsOnly:
        return " (this board tells it only)";
    default:
        return {};
    }
}

/// \return lines of a command's help that the board knows: what it takes, and what holds now
std::vector<std::string> boardLines(tcCall& call, const tsCommand& command) {
    std::vector<std::string> lines;
    const auto* const settings = call.head().settings();
    if (settings != nullptr && settings->takenBy(command.name) != nullptr)
        lines = settings::linesOf(*settings->takenBy(command.name));
    if (command.now)
        lines.push_back(command.now(call));
    return lines;
}

std::string commandHelp(tcCall& call, const tsCommand& command) {
    std::string text = command.usage() + "\n  " + command.summary + supportText(call, command);
    if (!command.details.empty())
        text += "\n  " + command.details;
    for (const std::string& line : boardLines(call, command))
        text += "\n  " + line;
    if (supportText(call, command).empty()) {
        for (const std::string& example : command.examples)
            text += "\n  example: " + example;
    }
    return text;
}

tcFacts commandFacts(tcCall& call, const tsCommand& command) {
    return {{"name", command.name},
            {"group", command.group},
            {"arguments", command.arguments},
            {"summary", command.summary},
            {"details", command.details},
            {"examples", command.examples},
            {"supported", supportText(call, command).empty()},
            {"takes", boardLines(call, command)}};
}

tcFacts tableFacts(tcCall& call) {
    tcFacts commands = tcFacts::list();
    for (const tsCommand& command : call.table().commands())
        commands.push_back(commandFacts(call, command));
    return {{"commands", commands}, {"keywords", call.head().keywords()}};
}

std::string help(tcCall& call, tcArguments& arguments) {
    if (!arguments.more()) {
        call.facts() = tableFacts(call);
        return call.table().help([&](const tsCommand& command) {
            return supportText(call, command);
        }) + keywordHelp(call);
    }
    const std::string name = arguments.takeWord("COMMAND");
    arguments.end();
    if (const tsCommand* command = call.table().find(name)) {
        call.facts() = commandFacts(call, *command);
        return commandHelp(call, *command);
    }
    if (call.head().hasKeyword(name))
        return name + "\n  a keyword of the plug-in, passed on with its arguments as they are";
    arguments.refuse("COMMAND", name, "is not known; \"help\" lists all");
}

std::string quit(tcCall& call, tcArguments& arguments) {
    arguments.end();
    call.requestQuit();
    return {};
}

std::string keyword(tcCall& call, tcArguments& arguments) {
    const std::string name = arguments.takeWord("KEYWORD");
    std::string rest = arguments.takeRest();
    rest.erase(0, rest.find_first_of(" \t"));
    rest.erase(0, rest.find_first_not_of(" \t"));
    return executeKeyword(call, name, rest);
}

tsCommand programCommand(const char* name, const char* arguments, const char* summary,
                         std::vector<std::string> examples, tsCommand::Run run) {
    return {kProgramGroup, name, arguments, summary, "", std::move(examples), std::move(run)};
}

} // namespace

void addProgramCommands(tcCommandTable& table) {
    tsCommand helpCommand = programCommand(
        "help", "[COMMAND]", "list the commands, or tell about one", {"help exposure"}, help);
    helpCommand.choices = [](tcCall& call, std::size_t index) {
        return index == 0 ? firstWords(call) : std::vector<std::string>{};
    };
    tsCommand questionMark = helpCommand;
    questionMark.name = "?";
    questionMark.summary = "as \"help\"";
    questionMark.examples = {"? exposure"};
    table.add(std::move(helpCommand));
    table.add(std::move(questionMark));
    tsCommand keywordCommand =
        programCommand("keyword", "KEYWORD [ARGUMENTS]", "hand a command to the plug-in's handlers",
                       {"keyword CLKS"}, keyword);
    keywordCommand.details =
        "For keywords that are called as a command is; all others can be typed "
        "as they are.";
    keywordCommand.choices = [](tcCall& call, std::size_t index) {
        return index == 0 ? call.head().keywords() : std::vector<std::string>{};
    };
    table.add(std::move(keywordCommand));
    table.add(programCommand("quit", "", "end the session", {"quit"}, quit));
    table.add(programCommand("exit", "", "as \"quit\"", {"exit"}, quit));
}

tcCommandTable makeCommandTable() {
    tcCommandTable table;
    addCaptureCommands(table);
    addTimingCommands(table);
    addGeometryCommands(table);
    addPixelCommands(table);
    addIdentityCommands(table);
    addDiagnoseCommand(table);
    addRegisterCommands(table);
    addWatchCommand(table);
    addSettingsCommands(table);
    addPinCommands(table);
    addProgramCommands(table);
    return table;
}

} // namespace camhost

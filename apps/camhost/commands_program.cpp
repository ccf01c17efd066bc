#include "apps/camhost/commands.h"
#include "apps/camhost/completion.h"
#include "apps/camhost/executor.h"

namespace camhost {

namespace {

constexpr const char* kGroup = "Program";

std::string keywordHelp(tcCall& call) {
    std::string text;
    for (const std::string& keyword : call.head().keywords())
        text += "\n  " + keyword;
    return text.empty() ? "" : "\n\nKeywords of the plug-in, passed on as they are:" + text;
}

std::string help(tcCall& call, tcArguments& arguments) {
    if (!arguments.more())
        return call.table().help() + keywordHelp(call);
    const std::string name = arguments.takeWord("COMMAND");
    arguments.end();
    if (const tsCommand* command = call.table().find(name))
        return tcCommandTable::help(*command);
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
    return executeKeyword(call.head(), name, rest);
}

tsCommand command(const char* name, const char* arguments, const char* summary,
                  std::vector<std::string> examples, tsCommand::Run run) {
    return {kGroup, name, arguments, summary, "", std::move(examples), std::move(run)};
}

} // namespace

void addProgramCommands(tcCommandTable& table) {
    tsCommand helpCommand = command("help", "[COMMAND]", "list the commands, or tell about one",
                                    {"help exposure"}, help);
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
        command("keyword", "KEYWORD [ARGUMENTS]", "hand a command to the plug-in's handlers",
                {"keyword CLKS"}, keyword);
    keywordCommand.details =
        "For keywords that are called as a command is; all others can be typed "
        "as they are.";
    keywordCommand.choices = [](tcCall& call, std::size_t index) {
        return index == 0 ? call.head().keywords() : std::vector<std::string>{};
    };
    table.add(std::move(keywordCommand));
    table.add(command("quit", "", "end the session", {"quit"}, quit));
    table.add(command("exit", "", "as \"quit\"", {"exit"}, quit));
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

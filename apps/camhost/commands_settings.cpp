#include <algorithm>
#include <map>

#include "apps/camhost/commands.h"
#include "apps/camhost/saved_settings.h"

namespace camhost {

namespace {

constexpr const char* kSettingsGroup = "Settings";

std::string takeFile(tcCall& call, tcArguments& arguments) {
    std::string file = arguments.takeWord("FILE");
    arguments.end();
    if (!call.caller().mayUseFiles)
        throw tcCommandError(arguments.command() + " is not served over the network, for it names "
                                                   "a file of this machine; use the console or a "
                                                   "script there");
    return file;
}

/// \return settings that the board neither tells nor was told here
std::string unknownSettings(tcCall& call) {
    std::string names;
    tcFacts facts = tcFacts::list();
    for (const tsCommand* command : call.table().settings()) {
        if (!command->saved(call).empty() || command->name == "regions")
            continue;
        names += " " + command->name;
        facts.push_back(command->name);
    }
    call.facts()["not_told"] = facts;
    return names;
}

std::string save(tcCall& call, tcArguments& arguments) {
    const std::string file = takeFile(call, arguments);
    const std::vector<std::string> lines = presentSettings(call);
    writeSettings(file, lines);
    call.facts() = {{"file", file}, {"settings", lines.size()}};
    const std::string unknown = unknownSettings(call);
    return "save: " + std::to_string(lines.size()) + " settings in \"" + file + "\"" +
           (unknown.empty() ? "" : "; without those that the board does not tell:" + unknown);
}

/// Carries out one line of a settings file.
/// \return empty, or why it failed
std::string apply(tcCall& call, const tsSettingLine& line) {
    tsLine split = splitLine(line.text);
    const tsCommand& command = *call.table().find(split.words.front());
    tcArguments arguments(command.name, command.arguments, std::move(split));
    try {
        command.run(call, arguments);
    } catch (const tcCommandError& error) {
        return error.what();
    }
    return {};
}

std::string load(tcCall& call, tcArguments& arguments) {
    const std::string file = takeFile(call, arguments);
    const std::vector<tsSettingLine> lines = readSettings(call.table(), file);
    std::string failures;
    tcFacts failed = tcFacts::list();
    for (const tsSettingLine& line : lines) {
        const std::string why = apply(call, line);
        if (why.empty())
            continue;
        failed.push_back({{"line", line.number}, {"error", why}});
        failures.append("\n").append(file).append(":").append(std::to_string(line.number));
        failures.append(": ").append(why);
    }
    call.facts() = {{"file", file}, {"settings", lines.size()}, {"failed", failed}};
    if (!failed.empty())
        throw tcCommandError("load: " + std::to_string(failed.size()) + " of " +
                             std::to_string(lines.size()) + " settings failed, the others hold" +
                             failures);
    return "load: " + std::to_string(lines.size()) + " settings from \"" + file + "\"";
}

/// \return the words with one blank between them
std::string normalized(const std::string& line) {
    std::string text;
    for (const std::string& word : splitLine(line).words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string diff(tcCall& call, tcArguments& arguments) {
    const std::string file = takeFile(call, arguments);
    std::map<std::string, std::string> present;
    for (const std::string& line : presentSettings(call))
        present[settingKey(line)] = line;
    std::string text;
    tcFacts differences = tcFacts::list();
    for (const tsSettingLine& line : readSettings(call.table(), file)) {
        const std::string wanted = normalized(line.text);
        const auto now = present.find(settingKey(wanted));
        if (now != present.end() && now->second == wanted)
            continue;
        const bool known = now != present.end();
        text += (text.empty() ? "" : "\n") + ("file: " + wanted) +
                ", now: " + (known ? now->second : "not known");
        differences.push_back(
            {{"file", wanted}, {"now", known ? tcFacts(now->second) : tcFacts(nullptr)}});
    }
    call.facts() = {{"file", file}, {"differences", differences}};
    return text.empty() ? "diff: no difference" : text;
}

tsCommand command(const char* name, const char* summary, const char* details, const char* example,
                  tsCommand::Run run) {
    tsCommand made{kSettingsGroup, name, "FILE", summary, details, {example}, std::move(run)};
    made.takesFile = true;
    return made;
}

} // namespace

void addSettingsCommands(tcCommandTable& table) {
    table.add(command("save", "write the settings to a file",
                      "The file is a script of the commands that bring them back.",
                      "save my.settings", save));
    table.add(command("load", "bring the settings of a file back",
                      "Settings only; a line that fails does not keep the others from holding.",
                      "load my.settings", load));
    table.add(command("diff", "show where the settings differ from those of a file",
                      "Lines are compared as \"save\" writes them.", "diff my.settings", diff));
}

} // namespace camhost

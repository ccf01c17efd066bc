#include "apps/camhost/setting.h"

#include <memory>
#include <optional>

#include <varnox/codes.h>

#include "apps/camhost/results.h"

namespace camhost {

namespace {

std::string valueText(const tsSetting& setting, int value) {
    return nameOf(setting.choices, value) + setting.unit;
}

/// \return what the board tells, or what it took last where it does not tell
std::optional<int> present(const tsSetting& setting, tcCall& call) {
    const std::optional<int> taken = call.head().remembered(setting.name);
    if (taken && (setting.remember || !setting.get))
        return taken;
    int value = 0;
    if (!setting.get || setting.get(call.board(), value) != Varnox::eSuccess)
        return std::nullopt;
    return value;
}

std::string ask(const tsSetting& setting, tcCall& call) {
    int value = 0;
    if (setting.get) {
        const int result = setting.get(call.board(), value);
        requireSuccess(setting.name, result);
        return setting.name + " " + valueText(setting, value);
    }
    if (const auto taken = call.head().remembered(setting.name))
        return setting.name + " " + valueText(setting, *taken) +
               " (as it was set; the board does not tell)";
    return setting.name + " is not known: the board does not tell, and it was not set here";
}

std::string change(const tsSetting& setting, tcCall& call, int asked) {
    const int result = setting.set(call.board(), asked);
    int now = 0;
    const bool told = setting.get && setting.get(call.board(), now) == Varnox::eSuccess;
    const std::string what = setting.name + " " + valueText(setting, asked);
    requireSuccess(what, result, told ? setting.name + " is " + valueText(setting, now) : "");
    call.head().remember(setting.name, asked);
    return setting.name + ": asked " + valueText(setting, asked) +
           (told ? ", applied " + valueText(setting, now) : ", taken; the board does not tell") +
           " (" + resultText(result) + ")";
}

std::string run(const tsSetting& setting, tcCall& call, tcArguments& arguments) {
    if (!arguments.more())
        return ask(setting, call);
    if (!setting.set)
        arguments.end();
    const int asked =
        arguments.takeChoice(setting.argument, setting.choices, setting.lowest, setting.highest);
    arguments.end();
    return change(setting, call, asked);
}

std::vector<std::string> choiceNames(const tsSetting& setting, std::size_t index) {
    std::vector<std::string> names;
    for (const tsChoice& choice : setting.choices) {
        if (index == 0)
            names.emplace_back(choice.name);
    }
    return names;
}

std::vector<std::string> savedLine(const tsSetting& setting, tcCall& call) {
    const std::optional<int> value = present(setting, call);
    if (!value)
        return {};
    return {setting.name + " " + nameOf(setting.choices, *value)};
}

} // namespace

tsCommand settingCommand(tsSetting settingToServe) {
    const auto setting = std::make_shared<const tsSetting>(std::move(settingToServe));
    tsCommand command;
    command.group = setting->group;
    command.name = setting->name;
    command.arguments = setting->set ? "[" + setting->argument + "]" : "";
    command.summary = setting->summary;
    command.details = setting->details;
    command.examples = setting->examples;
    command.run = [setting](tcCall& call, tcArguments& arguments) {
        return run(*setting, call, arguments);
    };
    command.choices = [setting](tcCall&, std::size_t index) {
        return choiceNames(*setting, index);
    };
    if (setting->order >= 0) {
        command.saved = [setting](tcCall& call) { return savedLine(*setting, call); };
        command.order = setting->order;
    }
    return command;
}

} // namespace camhost

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

/// \return what the board tells; nothing where it does not
std::optional<int> told(const tsSetting& setting, tcCall& call) {
    int value = 0;
    if (!setting.get || setting.get(call.board(), value) != Varnox::eSuccess)
        return std::nullopt;
    return value;
}

/// \return how a setting that the host keeps stands to what the board tells
std::string toldText(const tsSetting& setting, tcCall& call) {
    const std::optional<int> value = told(setting, call);
    return value ? "the board tells " + valueText(setting, *value) : "the board does not tell";
}

std::string ask(const tsSetting& setting, tcCall& call) {
    const std::optional<int> taken = call.head().remembered(setting.name);
    if (taken && (setting.remember || !setting.get))
        return setting.name + " " + valueText(setting, *taken) + " (as it was set; " +
               toldText(setting, call) + ")";
    if (!setting.get)
        return setting.name + " is not known: the board does not tell, and it was not set here";
    int value = 0;
    requireSuccess(setting.name, setting.get(call.board(), value));
    return setting.name + " " + valueText(setting, value);
}

/// \return what was applied, with the bound that limited it
std::string appliedText(const tsSetting& setting, tcCall& call, int asked, int applied) {
    const std::string bound =
        setting.bound && applied != asked ? setting.bound(call.board(), asked, applied) : "";
    return ", applied " + valueText(setting, applied) +
           (bound.empty() ? "" : ", limited by " + bound);
}

/// A setting as it was before a change, and as it is after it.
struct tsChange {
    std::string name;
    std::string before;
    std::string after;
};

std::vector<int> companionValues(const tsSetting& setting, tcCall& call) {
    std::vector<int> values;
    for (const tsCompanion& companion : setting.companions)
        values.push_back(companion.get(call.board()));
    return values;
}

/// \return the companions that a change moved
std::vector<tsChange> movedCompanions(const tsSetting& setting, tcCall& call,
                                      const std::vector<int>& before) {
    std::vector<tsChange> moved;
    for (std::size_t n = 0; n < before.size(); ++n) {
        const tsCompanion& companion = setting.companions[n];
        const int after = companion.get(call.board());
        if (after != before[n])
            moved.push_back({companion.name, std::to_string(before[n]),
                             std::to_string(after) + companion.unit});
    }
    return moved;
}

/// \return what holds after a refusal, and the commands that bring back what held before it
std::string stillText(const tsSetting& setting, std::optional<int> before, std::optional<int> now,
                      const std::vector<tsChange>& moved) {
    if (!now)
        return {};
    std::string text = setting.name + " is " + valueText(setting, *now);
    std::vector<tsChange> changes = moved;
    if (before && *before != *now) {
        text += " now";
        changes.insert(changes.begin(), {setting.name, nameOf(setting.choices, *before), ""});
    }
    std::string back;
    for (const tsChange& change : changes) {
        if (!change.after.empty())
            text += ", " + change.name + " is " + change.after + " now";
        back += (back.empty() ? "\"" : ", then \"") + change.name + " " + change.before + "\"";
    }
    return text + (back.empty() ? "" : "; as before with " + back);
}

std::string change(const tsSetting& setting, tcCall& call, int asked) {
    const std::optional<int> before = told(setting, call);
    const std::vector<int> companions = companionValues(setting, call);
    const int result = setting.set(call.board(), asked);
    const std::optional<int> now = told(setting, call);
    requireSuccess(setting.name + " " + valueText(setting, asked), result,
                   stillText(setting, before, now, movedCompanions(setting, call, companions)));
    call.head().remember(setting.name, asked);
    const bool readBack = now && !setting.remember;
    const std::string warning =
        readBack && setting.warning ? setting.warning(call.board(), asked, *now) : "";
    return setting.name + ": asked " + valueText(setting, asked) +
           (readBack ? appliedText(setting, call, asked, *now)
                     : ", taken; " + toldText(setting, call)) +
           " (" + resultText(result) + ")" + (warning.empty() ? "" : "; warning: " + warning);
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

/// \return what the board tells, or what it took last where that counts more
std::optional<int> present(const tsSetting& setting, tcCall& call) {
    const std::optional<int> taken = call.head().remembered(setting.name);
    return taken && (setting.remember || !setting.get) ? taken : told(setting, call);
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

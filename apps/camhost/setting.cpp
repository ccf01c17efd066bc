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

/// Keeps a value among the facts: by its name where it has one, with its unit.
void tellValue(const tsSetting& setting, tcCall& call, const char* member, int value) {
    const std::string name = nameOf(setting.choices, value);
    call.facts()[member] = name == std::to_string(value) ? tcFacts(value) : tcFacts(name);
    if (!setting.unit.empty())
        call.facts()["unit"] = trimmed(setting.unit);
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
    call.facts()["value"] = nullptr;
    if (taken && (setting.remember || !setting.get)) {
        tellValue(setting, call, "value", *taken);
        call.facts()["told_by"] = "host";
        return setting.name + " " + valueText(setting, *taken) + " (as it was set; " +
               toldText(setting, call) + ")";
    }
    if (!setting.get)
        return setting.name + " is not known: the board does not tell, and it was not set here";
    int value = 0;
    requireSuccess(setting.name, setting.get(call.board(), value));
    tellValue(setting, call, "value", value);
    call.facts()["told_by"] = "board";
    return setting.name + " " + valueText(setting, value);
}

/// \return what was applied, with the bound that limited it
std::string appliedText(const tsSetting& setting, tcCall& call, int asked, int applied) {
    tellValue(setting, call, "applied", applied);
    const std::string bound =
        setting.bound && applied != asked ? setting.bound(call.board(), asked, applied) : "";
    std::string text = "applied " + valueText(setting, applied);
    if (bound.empty())
        return text;
    call.facts()["limited_by"] = bound;
    return text + ", limited by " + bound;
}

/// \return that a value was taken whose effect the board does not tell
std::string takenText(const tsSetting& setting, tcCall& call) {
    call.facts()["applied"] = nullptr;
    return "taken; " + toldText(setting, call);
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

/// What the board answered to a change.
struct tsOutcome {
    int result = 0;
    std::optional<int> before; ///< what it told
    std::optional<int> now;
    std::vector<tsChange> moved; ///< along with the setting
};

tsOutcome makeChange(const tsSetting& setting, tcCall& call, int asked) {
    tsOutcome outcome;
    outcome.before = told(setting, call);
    const std::vector<int> companions = companionValues(setting, call);
    outcome.result = call.told(setting.set(call.board(), asked));
    outcome.now = told(setting, call);
    outcome.moved = movedCompanions(setting, call, companions);
    return outcome;
}

/// \return what holds after a refusal, and the commands that bring back what held before it
std::string stillText(const tsSetting& setting, tcCall& call, const tsOutcome& outcome) {
    if (!outcome.now)
        return {};
    tellValue(setting, call, "value", *outcome.now);
    std::string text = setting.name + " is " + valueText(setting, *outcome.now);
    std::vector<tsChange> changes = outcome.moved;
    if (outcome.before && *outcome.before != *outcome.now) {
        text += " now";
        changes.insert(changes.begin(),
                       {setting.name, nameOf(setting.choices, *outcome.before), ""});
    }
    std::string back;
    tcFacts commands = tcFacts::list();
    for (const tsChange& change : changes) {
        if (!change.after.empty())
            text += ", " + change.name + " is " + change.after + " now";
        commands.push_back(change.name + " " + change.before);
        back += (back.empty() ? "\"" : ", then \"") + change.name + " " + change.before + "\"";
    }
    call.facts()["as_before_with"] = commands;
    return text + (back.empty() ? "" : "; as before with " + back);
}

std::string change(const tsSetting& setting, tcCall& call, int asked) {
    tellValue(setting, call, "asked", asked);
    const tsOutcome outcome = makeChange(setting, call, asked);
    if (outcome.result != Varnox::eSuccess)
        requireSuccess(setting.name + " " + valueText(setting, asked), outcome.result,
                       stillText(setting, call, outcome));
    call.head().remember(setting.name, asked);
    std::string taken =
        setting.name + ": asked " + valueText(setting, asked) + ", " +
        (outcome.now && !setting.remember ? appliedText(setting, call, asked, *outcome.now)
                                          : takenText(setting, call)) +
        " (" + resultText(outcome.result) + ")";
    const std::string warning = outcome.now && !setting.remember && setting.warning
                                    ? setting.warning(call.board(), asked, *outcome.now)
                                    : "";
    if (warning.empty())
        return taken;
    call.facts()["warning"] = warning;
    return taken + "; warning: " + warning;
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
    if (setting->now)
        command.now = [setting](tcCall& call) { return setting->now(call.board()); };
    if (setting->order >= 0) {
        command.saved = [setting](tcCall& call) { return savedLine(*setting, call); };
        command.order = setting->order;
    }
    return command;
}

} // namespace camhost

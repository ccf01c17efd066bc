#include <limits>

#include "apps/camhost/call.h"
#include "apps/camhost/commands.h"
#include "apps/camhost/results.h"
#include "apps/camhost/setting.h"

namespace camhost {

namespace {

constexpr const char* kPinsGroup = "Pins";
constexpr int kMax = std::numeric_limits<int>::max();

using B = Varnox::tcSensorBoard;

constexpr tsChoice kDirections[] = {{"in", 0}, {"out", 1}};
constexpr tsChoice kLevels[] = {{"0", 0}, {"1", 1}};

/// One property of a pin.
struct tsPinProperty {
    const char* name;
    const char* argument;
    const char* summary;
    const char* example;
    std::span<const tsChoice> choices;
    int (B::*set)(int, int);
    int (B::*get)(int); // null: the board does not tell
};

constexpr tsPinProperty kProperties[] = {
    {"iodir", "in|out", "direction of a pin", "iodir 0 out", kDirections, &B::setIODirection,
     &B::getIODirection},
    {"iovalue", "0|1", "level of a pin", "iovalue 0 1", kLevels, &B::setIOValue, &B::getIOValue},
    {"ioinvert", "on|off", "whether a pin is inverted", "ioinvert 0 off", kOffOn, &B::setIOInverter,
     nullptr},
};

std::string run(const tsPinProperty& property, tcCall& call, tcArguments& arguments) {
    const int pin = arguments.takeInt("PIN", 0, kMax);
    const std::string title = std::string(property.name) + " " + std::to_string(pin);
    call.facts()["pin"] = pin;
    if (!arguments.more() && property.get != nullptr) {
        const int value = (call.board().*property.get)(pin);
        if (value < 0)
            throw tcCommandError(title + " failed: the board has no such pin; \"pins\" tells how "
                                         "many it has");
        call.facts()["value"] = nameOf(property.choices, value);
        return title + " " + nameOf(property.choices, value);
    }
    const int asked = arguments.takeChoice(property.argument, property.choices, 0, 1);
    arguments.end();
    const std::string value = nameOf(property.choices, asked);
    call.facts()["asked"] = value;
    const int result = (call.board().*property.set)(pin, asked);
    requireSuccess(title + " " + value, result);
    return title + ": asked " + value + " (" + resultText(call.told(result)) + ")";
}

std::string pins(tcCall& call, tcArguments& arguments) {
    arguments.end();
    call.facts()["pins"] = call.board().getNumPins();
    return "pins " + std::to_string(call.board().getNumPins());
}

tsCommand propertyCommand(const tsPinProperty& property) {
    tsCommand command;
    command.group = kPinsGroup;
    command.name = property.name;
    const std::string argument = property.argument;
    command.arguments = property.get != nullptr ? "PIN [" + argument + "]" : "PIN " + argument;
    command.summary = property.summary;
    command.examples = {property.example};
    command.run = [&property](tcCall& call, tcArguments& arguments) {
        return run(property, call, arguments);
    };
    command.choices = [&property](tcCall&, std::size_t index) {
        std::vector<std::string> names;
        for (const tsChoice& choice : property.choices) {
            if (index == 1)
                names.emplace_back(choice.name);
        }
        return names;
    };
    return command;
}

} // namespace

void addPinCommands(tcCommandTable& table) {
    tsCommand count;
    count.group = kPinsGroup;
    count.name = "pins";
    count.summary = "how many pins the board has";
    count.examples = {"pins"};
    count.run = pins;
    table.add(std::move(count));
    for (const tsPinProperty& property : kProperties)
        table.add(propertyCommand(property));
}

} // namespace camhost

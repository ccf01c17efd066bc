#include "apps/camhost/call.h"
#include "apps/camhost/commands.h"
#include "apps/camhost/diagnose.h"

namespace camhost {

namespace {

/// What a line asks for.
struct tsWanted {
    bool power = false;
    bool anew = false;
};

tsWanted wantedOf(tcArguments& arguments) {
    tsWanted wanted;
    while (arguments.more()) {
        const std::string word = arguments.takeWord("power");
        if (word == "power" && !wanted.power)
            wanted.power = true;
        else if (word == "anew" && wanted.power && !wanted.anew)
            wanted.anew = true;
        else
            arguments.refuse("argument", word, "is not known here");
    }
    return wanted;
}

/// Bringing a head up ends what holds: nobody loses that by the way.
void requireFree(tcCall& call, bool anew) {
    if (call.board().isCapturing())
        throw tcCommandError("diagnose power: the head captures, and would be switched off and on; "
                             "end the capture with \"stop\" first. \"diagnose\" looks at it as it "
                             "is");
    if (call.head().isUp() && !anew)
        throw tcCommandError("diagnose power: the head is up since \"init\", and bringing it up "
                             "anew ends what is set; \"diagnose power anew\" does that and leaves "
                             "it up. \"diagnose\" looks at it as it is");
}

std::string diagnose(tcCall& call, tcArguments& arguments) {
    const tsWanted wanted = wantedOf(arguments);
    if (wanted.power)
        requireFree(call, wanted.anew);
    const tsShown shown = wanted.power ? diagnoseWithPower(call.head(), call.caller().colour)
                                       : diagnoseSession(call.head(), call.caller().colour);
    call.facts() = shown.facts;
    if (shown.status == teExit::eSuccess)
        return shown.text;
    call.line(shown.text);
    throw tcDiagnosed(shown.status, "diagnose: " + shown.says);
}

} // namespace

void addDiagnoseCommand(tcCommandTable& table) {
    tsCommand command;
    command.group = "Identity";
    command.name = "diagnose";
    command.arguments = "[power [anew]]";
    command.summary = "examine the head, say what is wrong and what to measure";
    command.details = "Switches nothing on; with \"power\" the head is brought up, and is off "
                      "afterwards if it was off. A\n  head that is up is brought up once more only "
                      "with \"anew\", and stays up.";
    command.examples = {"diagnose", "diagnose power", "diagnose --json"};
    command.run = diagnose;
    command.choices = [](tcCall&, std::size_t index) {
        return index == 0   ? std::vector<std::string>{"--json", "power"}
               : index == 1 ? std::vector<std::string>{"anew"}
                            : std::vector<std::string>{};
    };
    table.add(std::move(command));
}

} // namespace camhost

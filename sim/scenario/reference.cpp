#include "sim/scenario/reference.h"

#include <string_view>

#include "sim/scenario/fault_keys.h"
#include "sim/scenario/fault_kinds.h"
#include "sim/scenario/scenario_keys.h"

namespace sim {

namespace {

std::string faultsMarkdown() {
    std::string text =
        "\n## [Fault NAME]\n\n"
        "Something that goes wrong while the program runs: `what`, from when, until when. NAME is "
        "of your\nchoice.\n\n"
        "    [Fault lanes lost]\n"
        "    what  = lanes 3 7 lost\n"
        "    after = 1 GPIO RESET_B = 1\n"
        "    for   = 20\n\n"
        "A fault acts at its time to the nanosecond, also in the middle of a sleep. Of faults that "
        "set the same\nthing at the same time, the later one of the file wins. When a fault ends, "
        "what the others and the keys\nabove say is back at once, as far as it does not need "
        "time: what locks begins its time anew. `never` and\n`late` leave locked what is locked; "
        "`lost` unlocks it. A lane that is held when it is lost locks only\nafter its next reset "
        "sequence. A sensor that a supply failed has forgotten its registers.\n\n"
        "The log says `NOTE fault NAME begins` and `NOTE fault NAME ends`. The summary names every "
        "fault with its\ntimes, and those that never struck: their event never came.\n\n"
        "| Key | Value | Meaning |\n|---|---|---|\n";
    for (const tsFaultKey& key : faultKeys()) {
        text += "| `" + std::string(key.name) + "` | " + key.values + " | " + key.meaning + " |\n";
    }
    text += "\n| `what` | What happens |\n|---|---|\n";
    for (const tsFaultKind* kind : allFaultKinds()) {
        text += "| " + std::string(kind->form) + " | " + kind->meaning + " |\n";
    }
    return text;
}

} // namespace

std::string scenarioKeysMarkdown() {
    std::string text =
        "# Scenario keys\n\n"
        "A scenario is an INI file that says what is wrong with the virtual head. "
        "What it does not\nmention is healthy. A line that begins with `;` or `#` is "
        "a comment. An unknown section, key\nor value is an error.\n";
    std::string_view section;
    for (const tsScenarioKey& key : scenarioKeys()) {
        if (section != key.section) {
            section = key.section;
            text +=
                "\n## [" + std::string(section) + "]\n\n| Key | Value | Meaning |\n|---|---|---|\n";
        }
        const std::string name = *key.name == '\0' ? "any" : "`" + std::string(key.name) + "`";
        text += "| " + name + " | " + key.values + " | " + key.meaning + " |\n";
    }
    return text + faultsMarkdown();
}

} // namespace sim

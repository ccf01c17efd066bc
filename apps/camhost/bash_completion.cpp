#include "apps/camhost/bash_completion.h"

#include <map>

namespace camhost {

namespace {

constexpr std::size_t kColumns = 100;

/// What bash's compgen offers for a kind of argument, before the word that is typed.
const std::map<std::string, std::string>& offers() {
    static const std::map<std::string, std::string> theOffers = {
        {"PLUGIN", R"(compgen -f -X '!*.so*' -- "$word"; compgen -d -- "$word")"},
        {"DEVICE", R"(compgen -f -- "${word:-/dev/spidev}")"},
        {"FILE", R"(compgen -f -- "$word")"},
        {"FOLDER", R"(compgen -d -- "$word")"},
        {"COMMAND", R"(compgen -W "$commands" -- "$word")"},
        {"[ADDRESS:]PORT", R"(compgen -W "127.0.0.1: [::1]:" -- "$word")"}};
    return theOffers;
}

std::string joined(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : between) + word;
    return text;
}

/// \return an assignment of the words, wrapped
std::string assignment(const std::string& name, const std::vector<std::string>& words) {
    std::string text;
    std::string line = "    local " + name + "=\"";
    for (std::size_t n = 0; n < words.size(); ++n) {
        if (line.size() + words[n].size() + 2 > kColumns) {
            text += line + "\n";
            line = "       ";
        }
        line += (n == 0 ? "" : " ") + words[n];
    }
    return text + line + "\"\n";
}

} // namespace

std::string bashCompletion(const std::vector<tsOfferedOption>& options,
                           const tcCommandTable& table) {
    std::vector<std::string> names;
    std::string cases;
    for (const tsOfferedOption& option : options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
        const auto offer = offers().find(option.type);
        if (!option.names.empty() && option.takesArgument && offer != offers().end())
            cases += "    " + joined(option.names, " | ") + ")\n        mapfile -t COMPREPLY < <(" +
                     offer->second + ")\n        ;;\n";
    }
    std::vector<std::string> commands;
    for (const tsCommand& command : table.commands())
        commands.push_back(command.name);

    return "# Completion of camhost's command line for bash. Made by camhost "
           "--print-completion.\n\n"
           "_camhost() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n" +
           assignment("options", names) + assignment("commands", commands) +
           "    COMPREPLY=()\n    case $before in\n" + cases +
           R"(    *)
        if [[ $word == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        else
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
        fi
        ;;
    esac
}
complete -o filenames -F _camhost camhost
)";
}

} // namespace camhost

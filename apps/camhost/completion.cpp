#include "apps/camhost/completion.h"

#include <algorithm>
#include <cstddef>

#include "apps/camhost/arguments.h"

namespace camhost {

namespace {

/// \param index of the argument, from 0
std::vector<std::string> argumentsOf(const std::string& name, std::size_t index, tcCall& call) {
    const tsCommand* const command = call.table().find(name);
    if (command == nullptr || !command->choices)
        return {};
    return command->choices(call, index);
}

} // namespace

std::vector<std::string> firstWords(tcCall& call) {
    std::vector<std::string> names = call.head().keywords();
    for (const tsCommand& command : call.table().commands())
        names.push_back(command.name);
    return names;
}

std::vector<std::string> completionsOf(std::string_view line, tcCall& call) {
    tsLine split;
    try {
        split = splitLine(line);
    } catch (const tcCommandError&) {
        return {};
    }
    const bool newWord = line.empty() || line.back() == ' ' || line.back() == '\t';
    if (newWord)
        split.words.emplace_back();
    if (split.words.empty())
        return {};

    std::vector<std::string> candidates =
        split.words.size() == 1 ? firstWords(call)
                                : argumentsOf(split.words.front(), split.words.size() - 2, call);
    std::erase_if(candidates, [&](const std::string& candidate) {
        return !candidate.starts_with(split.words.back());
    });
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
    return candidates;
}

} // namespace camhost

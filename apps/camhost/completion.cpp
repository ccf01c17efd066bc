#include "apps/camhost/completion.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>

#include "apps/camhost/arguments.h"

namespace camhost {

namespace {

/// \return what stands in the folder that a path begins with; folders end in a slash. Names that
///         would need quotes are left out, and hidden ones unless they are asked for
std::vector<std::string> pathsLike(const std::string& path) {
    namespace fs = std::filesystem;
    const std::string folder = path.substr(0, path.find_last_of('/') + 1); // npos + 1 is 0
    const bool hidden = path.substr(folder.size()).starts_with('.');
    std::vector<std::string> paths;
    std::error_code error;
    for (fs::directory_iterator entry(folder.empty() ? "." : folder, error), end;
         !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code ignored;
        if (name.find_first_of(" \t\"#") == name.npos && (hidden || !name.starts_with('.')))
            paths.push_back(folder + name + (entry->is_directory(ignored) ? "/" : ""));
    }
    return paths;
}

/// \param index of the argument, from 0
/// \param word  what is typed of it
std::vector<std::string> argumentsOf(const std::string& name, std::size_t index,
                                     const std::string& word, tcCall& call) {
    const tsCommand* const command = call.table().find(name);
    if (command == nullptr)
        return {};
    if (command->takesFile && index == 0 && call.caller().mayUseFiles)
        return pathsLike(word);
    return command->choices ? command->choices(call, index) : std::vector<std::string>{};
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
        split.words.size() == 1
            ? firstWords(call)
            : argumentsOf(split.words.front(), split.words.size() - 2, split.words.back(), call);
    if (split.words.size() > 1 && split.words.back().starts_with('-'))
        candidates.emplace_back("--json");
    std::erase_if(candidates, [&](const std::string& candidate) {
        return !candidate.starts_with(split.words.back());
    });
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
    return candidates;
}

} // namespace camhost

#include "apps/camhost/command_table.h"

#include <algorithm>
#include <iomanip>
#include <numeric>
#include <sstream>
#include <stdexcept>

namespace camhost {

namespace {

/// \return how many letters have to be changed, added or left out to get from one to the other
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string tsCommand::usage() const {
    return name + (arguments.empty() ? "" : " " + arguments);
}

void tcCommandTable::add(tsCommand command) {
    if (find(command.name) != nullptr)
        throw std::logic_error("two commands are called " + command.name);
    command.isSetting = command.isSetting || command.saved;
    m_commands.push_back(std::move(command));
}

const tsCommand* tcCommandTable::find(const std::string& name) const {
    const auto entry = std::find_if(m_commands.begin(), m_commands.end(),
                                    [&](const tsCommand& command) { return command.name == name; });
    return entry != m_commands.end() ? &*entry : nullptr;
}

std::vector<const tsCommand*> tcCommandTable::settings() const {
    std::vector<const tsCommand*> settings;
    for (const tsCommand& command : m_commands) {
        if (command.saved)
            settings.push_back(&command);
    }
    std::stable_sort(settings.begin(), settings.end(),
                     [](const tsCommand* a, const tsCommand* b) { return a->order < b->order; });
    return settings;
}

std::string tcCommandTable::similarTo(const std::string& name) const {
    constexpr std::size_t kClose = 2;
    std::string best;
    std::size_t bestDistance = kClose + 1;
    for (const tsCommand& command : m_commands) {
        const auto [shorter, longer] = std::minmax({name.size(), command.name.size()});
        if (longer - shorter >= bestDistance)
            continue; // it takes as many letters at least
        const std::size_t found = distance(command.name, name);
        if (found < bestDistance && found < command.name.size()) {
            bestDistance = found;
            best = command.name;
        }
    }
    return best;
}

std::string tcCommandTable::help(const std::function<std::string(const tsCommand&)>& remark) const {
    constexpr std::size_t kColumn = 34;
    std::ostringstream text;
    std::string group;
    for (const tsCommand& command : m_commands) {
        if (command.group != group)
            text << (group.empty() ? "" : "\n") << command.group << ":\n";
        group = command.group;
        const std::string usage = command.usage();
        text << "  " << std::left << std::setw(int{kColumn}) << usage << " ";
        if (usage.size() > kColumn)
            text << "\n  " << std::setw(int{kColumn}) << ""
                 << " ";
        text << command.summary << remark(command) << "\n";
    }
    text << "\nNumbers are decimal or, after 0x, hexadecimal. Settings without an argument answer "
            "what holds.\n\"help COMMAND\" tells more. \"COMMAND --json\" answers a JSON object, "
            "for "
            "programs.";
    return text.str();
}

} // namespace camhost

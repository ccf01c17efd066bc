#include "apps/settings/settings_table.h"

#include <set>
#include <stdexcept>

#include "apps/tables/table_file.h"

namespace settings {

namespace {

tsRange rangeOf(const nlohmann::json& entry) {
    tsRange range{entry.at("name").get<std::string>(), entry.at("least").get<std::int64_t>(),
                  entry.at("most").get<std::int64_t>(), entry.at("step").get<std::int64_t>(),
                  entry.at("unit").get<std::string>()};
    if (range.step < 1 || range.least > range.most || range.least % range.step != 0 ||
        range.most % range.step != 0)
        throw std::runtime_error("the range of " + range.name +
                                 " does not begin and end on its steps");
    return range;
}

tsTaken takenOf(const nlohmann::json& entry) {
    tsTaken taken;
    if (entry.contains("arguments")) {
        for (const auto& argument : entry.at("arguments"))
            taken.ranges.push_back(rangeOf(argument));
    }
    taken.values = entry.value("values", std::vector<std::string>{});
    taken.notes = entry.value("notes", std::vector<std::string>{});
    return taken;
}

} // namespace

tcSettingsTable::tcSettingsTable(const std::string& file) {
    tables::read(file, "settings", [this](const nlohmann::json& json) {
        m_device = json.at("device").get<std::string>();
        for (const auto& name : json.at("reads_only"))
            m_support[name.get<std::string>()] = teSupport::eReadsOnly;
        for (const auto& name : json.at("not_supported"))
            m_support[name.get<std::string>()] = teSupport::eNone;
        for (const auto& [command, entry] : json.at("takes").items())
            m_taken[command] = takenOf(entry);
    });
}

teSupport tcSettingsTable::supportOf(const std::string& command) const {
    const auto entry = m_support.find(command);
    return entry != m_support.end() ? entry->second : teSupport::eFull;
}

const tsTaken* tcSettingsTable::takenBy(const std::string& command) const {
    const auto entry = m_taken.find(command);
    return entry != m_taken.end() ? &entry->second : nullptr;
}

std::vector<std::string> tcSettingsTable::commands() const {
    std::set<std::string> names;
    for (const auto& [name, support] : m_support)
        names.insert(name);
    for (const auto& [name, taken] : m_taken)
        names.insert(name);
    return {names.begin(), names.end()};
}

std::vector<std::string> linesOf(const tsTaken& taken) {
    std::vector<std::string> lines;
    for (const tsRange& range : taken.ranges)
        lines.push_back(range.name + ": " + std::to_string(range.least) + " to " +
                        std::to_string(range.most) + (range.unit.empty() ? "" : " " + range.unit) +
                        (range.step > 1 ? ", in steps of " + std::to_string(range.step) : ""));
    if (!taken.values.empty()) {
        std::string names;
        for (const std::string& value : taken.values)
            names += (names.empty() ? "" : ", ") + value;
        lines.push_back("this board takes " + names);
    }
    lines.insert(lines.end(), taken.notes.begin(), taken.notes.end());
    return lines;
}

} // namespace settings

#include "sim/after/settings.h"

#include <array>
#include <cstddef>
#include <optional>
#include <sstream>

namespace sim {

namespace {

// What became of a setting follows behind one of these.
struct tsMark {
    std::string_view text;
    bool value; // the applied one follows; otherwise the mark's word belongs to what follows
};
constexpr std::array kMarks{tsMark{", applied ", true}, tsMark{", taken", false},
                            tsMark{", holds ", false}};

std::optional<tsSetting> settingIn(const std::string& line) {
    constexpr std::string_view asked = ": asked ";
    constexpr std::string_view limited = ", limited by ";
    const std::size_t name = line.find(asked);
    if (name == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t from = name + asked.size();
    const std::string text = line.substr(from, line.rfind(" (result ") - from);
    std::size_t end = std::string::npos;
    tsMark mark{};
    for (const tsMark& one : kMarks) { // an asked value may have commas
        if (const std::size_t at = text.find(one.text); at < end) {
            end = at;
            mark = one;
        }
    }
    if (end == std::string::npos) {
        return std::nullopt;
    }
    tsSetting setting{line.substr(0, name), text.substr(0, end), "", ""};
    setting.applied = text.substr(mark.value ? end + mark.text.size() : end + 2);
    if (const std::size_t at = setting.applied.find(limited); at != std::string::npos) {
        setting.limitedBy = setting.applied.substr(at + limited.size());
        setting.applied.erase(at);
    }
    return setting;
}

} // namespace

std::vector<tsSetting> settingsIn(std::string_view printed) {
    std::vector<tsSetting> settings;
    std::istringstream lines{std::string(printed)};
    for (std::string line; std::getline(lines, line);) {
        if (std::optional<tsSetting> setting = settingIn(line)) {
            settings.push_back(*setting);
        }
    }
    return settings;
}

} // namespace sim

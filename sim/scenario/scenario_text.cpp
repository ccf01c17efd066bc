#include "sim/scenario/scenario_text.h"

#include <cmath>
#include <cstring>
#include <sstream>

namespace sim::text {

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return "";
    }
    return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
}

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string word; stream >> word;) {
        result.push_back(word);
    }
    return result;
}

std::vector<std::string> listed(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string entry; std::getline(stream, entry, ',');) {
        result.push_back(trimmed(entry));
    }
    return result;
}

std::optional<double> number(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
    }
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::uint64_t> milliseconds(std::string_view text) {
    constexpr double longest = 1e9;
    constexpr double nsPerMs = 1e6;
    const std::optional<double> ms = number(text);
    if (!ms || *ms < 0 || *ms > longest) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(std::llround(*ms * nsPerMs));
}

std::optional<double> volts(teRail rail, const std::string& text) {
    const std::optional<double> value = number(text);
    if (!value) {
        return std::nullopt;
    }
    const bool offset = text.front() == '+' || text.front() == '-';
    const double settled = offset ? nominalVolts(rail) + *value : *value;
    return settled >= 0 ? std::optional(settled) : std::nullopt;
}

} // namespace sim::text

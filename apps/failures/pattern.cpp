#include "apps/failures/pattern.h"

#include <regex>

namespace failures {

struct tcPattern::tsCompiled {
    std::regex expression;
};

tcPattern::tcPattern(const std::string& text)
    : m_compiled(std::make_shared<tsCompiled>(tsCompiled{std::regex(text)})) {}

unsigned tcPattern::groups() const {
    return m_compiled ? m_compiled->expression.mark_count() : 0;
}

std::optional<std::vector<std::string>> tcPattern::in(const std::string& line) const {
    std::smatch match;
    if (!m_compiled || !std::regex_search(line, match, m_compiled->expression))
        return std::nullopt;
    std::vector<std::string> held;
    for (std::size_t group = 1; group < match.size(); ++group)
        held.push_back(match[group]);
    return held;
}

} // namespace failures

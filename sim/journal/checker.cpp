#include "sim/journal/checker.h"

#include <algorithm>

#include "sim/base/real_calls.h"
#include "sim/base/text.h"

namespace sim {

void tcChecker::violated(teRule rule, std::uint64_t timeNs, std::string_view text) {
    if (m_count < kKept) {
        tsEntry& entry = m_entries[static_cast<std::size_t>(m_count)];
        entry.timeNs = timeNs;
        entry.rule = rule;
        const std::size_t length = std::min(text.size(), entry.text.size());
        std::copy_n(text.begin(), length, entry.text.begin());
        entry.length = static_cast<std::uint8_t>(length);
    }
    ++m_count;
    bool& told = m_told[static_cast<std::size_t>(rule)];
    if (!told && !m_quiet) {
        print(rule, timeNs, text);
    }
    told = true;
}

void tcChecker::print(teRule rule, std::uint64_t timeNs, std::string_view text) {
    const tsRule& line = describe(rule);
    tcText head;
    writeError(head.add("virtual head: violation of the rule \"")
                   .add(line.name)
                   .add("\" at ")
                   .seconds(timeNs)
                   .add(" s\n  what happened: ")
                   .view());
    writeError(text);
    writeError("\n  rule: ");
    writeError(line.what);
    writeError("\n  reason: ");
    writeError(line.why);
    writeError("\n  remedy: ");
    writeError(line.remedy);
    writeError("\n");
}

void tcChecker::clear() {
    m_count = 0;
    m_told.fill(false);
}

std::vector<tsViolation> tcChecker::violations() const {
    std::vector<tsViolation> result;
    for (std::size_t at = 0; at < std::min<std::uint64_t>(m_count, kKept); ++at) {
        const tsEntry& entry = m_entries[at];
        result.push_back({std::chrono::nanoseconds(entry.timeNs), describe(entry.rule).name,
                          std::string(entry.text.data(), entry.length)});
    }
    return result;
}

} // namespace sim

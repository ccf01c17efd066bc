#include "apps/live/fault_session.h"

#include <algorithm>
#include <optional>

namespace live {

namespace {

// Milliseconds with the nanoseconds behind the point, as a scenario takes them.
std::string milliseconds(std::uint64_t ns) {
    constexpr std::uint64_t perMs = 1'000'000;
    constexpr std::size_t digits = 6;
    std::string text = std::to_string(ns / perMs);
    if (ns % perMs != 0) {
        const std::string rest = std::to_string(ns % perMs);
        text += "." + std::string(digits - rest.size(), '0') + rest;
        text.erase(text.find_last_not_of('0') + 1);
    }
    return text;
}

void addKey(std::string& text, const char* key, const std::string& value) {
    if (!value.empty()) {
        text += std::string(key) + " = " + value + "\n";
    }
}

std::optional<std::uint64_t> timeOf(const tcTimeLine& timeLine, const tsMadeFault& made,
                                    const std::string& text) {
    constexpr std::size_t atOnce = 4096;
    std::uint64_t from = made.from;
    for (;;) {
        const std::vector<tsShownEvent> events = timeLine.events(from, atOnce);
        for (const tsShownEvent& event : events) {
            if (event.text == text && (made.process == 0 || event.process == made.process)) {
                return event.timeNs;
            }
        }
        if (events.size() < atOnce) {
            return std::nullopt;
        }
        from = events.back().number + 1;
    }
}

} // namespace

std::string tcFaultSession::freeName() const {
    for (unsigned number = 1;; ++number) {
        std::string name = "fault " + std::to_string(number);
        if (!has(name)) {
            return name;
        }
    }
}

bool tcFaultSession::has(const std::string& name) const {
    const std::lock_guard lock(m_mutex);
    return std::any_of(m_faults.begin(), m_faults.end(),
                       [&name](const tsMadeFault& made) { return made.fault.name == name; });
}

void tcFaultSession::add(const tsMadeFault& fault) {
    const std::lock_guard lock(m_mutex);
    m_faults.push_back(fault);
}

std::vector<tsMadeFault> tcFaultSession::faults() const {
    const std::lock_guard lock(m_mutex);
    return m_faults;
}

std::string tcFaultSession::scenario() const {
    std::string text = m_scenario;
    for (const tsMadeFault& made : faults()) {
        const sim::tsFault& fault = made.fault;
        const std::string note = "NOTE fault " + fault.name;
        const auto began = timeOf(m_timeLine, made, note + " begins");
        const auto ended = timeOf(m_timeLine, made, note + " ends");
        text += std::string(text.empty() ? "" : "\n") + "[Fault " + fault.name + "]\n";
        addKey(text, "what", fault.what);
        if (fault.after.empty()) {
            addKey(text, "at", began ? milliseconds(*began) : fault.at);
        }
        addKey(text, "after", fault.after);
        if (fault.lasts.empty() && fault.until.empty() && began && ended) {
            addKey(text, "for", milliseconds(*ended - *began));
        }
        addKey(text, "for", fault.lasts);
        addKey(text, "until", fault.until);
    }
    return text;
}

} // namespace live

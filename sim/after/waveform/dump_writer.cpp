#include "sim/after/waveform/dump_writer.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

// Identifiers are one or two printable characters.
std::string identifier(std::size_t number) {
    constexpr std::size_t first = '!';
    constexpr std::size_t count = '~' - '!' + 1;
    std::string text(1, static_cast<char>(first + number % count));
    if (number >= count) {
        text += static_cast<char>(first + number / count - 1);
    }
    return text;
}

} // namespace

void tcDumpWriter::define(const std::string& scope, const std::string& name, const char* initial,
                          bool real) {
    m_byName[name] = m_wires.size();
    m_wires.push_back({scope, name, real, {{0, initial}}});
}

std::size_t tcDumpWriter::wire(const std::string& name) const {
    const auto found = m_byName.find(name);
    if (found == m_byName.end()) {
        throw std::runtime_error("the head has no wire \"" + name + "\"");
    }
    return found->second;
}

void tcDumpWriter::enter(std::uint64_t timeNs) {
    if (timeNs != m_instantNs) {
        m_instantNs = timeNs;
        m_shiftNs = 0;
    }
}

void tcDumpWriter::change(std::size_t wire, std::uint64_t timeNs, const std::string& value) {
    auto& changes = m_wires[wire].changes;
    if (changes.back().second == value) {
        return;
    }
    const std::uint64_t wanted = timeNs + (timeNs == m_instantNs ? m_shiftNs : 0);
    const std::uint64_t drawn = std::max(wanted, changes.back().first + 1);
    if (timeNs == m_instantNs) {
        m_shiftNs = drawn - timeNs; // what follows in this instant does not come before
    }
    changes.emplace_back(drawn, value);
}

void tcDumpWriter::level(std::size_t wire, std::uint64_t timeNs, bool high) {
    change(wire, timeNs, high ? "1" : "0");
}

void tcDumpWriter::level(const std::string& name, std::uint64_t timeNs, bool high) {
    level(wire(name), timeNs, high);
}

std::optional<std::string> tcDumpWriter::forgetAfter(std::size_t wire, std::uint64_t timeNs) {
    std::optional<std::string> left;
    auto& changes = m_wires[wire].changes;
    while (changes.size() > 1 && changes.back().first > timeNs) {
        changes.pop_back();
        left = changes.back().second;
    }
    return left;
}

std::string tcDumpWriter::text(std::uint64_t endNs) const {
    return definitions() + changes(endNs);
}

std::string tcDumpWriter::definitions() const {
    std::string result = "$comment a run of the virtual camera head $end\n$timescale 1 ns $end\n"
                         "$scope module head $end\n";
    std::string scope;
    for (std::size_t at = 0; at < m_wires.size(); ++at) {
        const tsWire& wire = m_wires[at];
        if (scope != wire.scope) {
            result += scope.empty() ? "" : "$upscope $end\n";
            result += "$scope module " + wire.scope + " $end\n";
            scope = wire.scope;
        }
        result += std::string("$var ") + (wire.real ? "real 64 " : "wire 1 ") + identifier(at) +
                  " " + wire.name + " $end\n";
    }
    return result + "$upscope $end\n$upscope $end\n$enddefinitions $end\n";
}

std::string tcDumpWriter::changes(std::uint64_t endNs) const {
    std::vector<std::pair<std::uint64_t, std::pair<std::size_t, std::size_t>>> order;
    for (std::size_t at = 0; at < m_wires.size(); ++at) {
        for (std::size_t number = 0; number < m_wires[at].changes.size(); ++number) {
            order.push_back({m_wires[at].changes[number].first, {at, number}});
        }
    }
    std::sort(order.begin(), order.end());
    // Every wire has a first value at time 0; these come in a section of their own.
    std::string result = "#0\n$dumpvars\n";
    std::uint64_t timeNs = 0;
    for (const auto& [changeNs, what] : order) {
        if (changeNs != timeNs) {
            result += (timeNs == 0 ? "$end\n#" : "#") + std::to_string(changeNs) + "\n";
        }
        timeNs = changeNs;
        const auto& [at, number] = what;
        const tsWire& wire = m_wires[at];
        const std::string& value = wire.changes[number].second;
        result += (wire.real ? "r" + value + " " : value) + identifier(at) + "\n";
    }
    result += timeNs == 0 ? "$end\n" : "";
    if (endNs > timeNs) {
        result += "#" + std::to_string(endNs) + "\n";
    }
    return result;
}

} // namespace sim

#include "apps/failures/failure_table.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "apps/failures/head_facts_reader.h"

namespace failures {

namespace {

constexpr int kFormat = 1;
constexpr int kHexadecimal = 16;
constexpr std::size_t kCausesShown = 3; // who has tried these reads the documentation

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string withoutBackquotes(std::string text) {
    std::erase(text, '`');
    return text;
}

/// Puts words in the places of a text that name them: "{supply}".
/// \throws std::runtime_error for a place that is open, or has no word
std::string filled(const std::string& text, const std::map<std::string, std::string>& words,
                   const char* whose = "\"says\"") {
    std::string result;
    std::size_t from = 0;
    for (auto open = text.find('{'); open != text.npos; open = text.find('{', from)) {
        const auto close = text.find('}', open);
        const std::string name = text.substr(open + 1, close - open - 1);
        const auto word = words.find(name);
        if (close == text.npos || word == words.end())
            throw std::runtime_error(std::string(whose) + " has a place {" + name +
                                     "} that nothing fills");
        result += text.substr(from, open - from) + word->second;
        from = close + 1;
    }
    return result + text.substr(from);
}

/// \return of "VDD1.2: 1.0498" the volts, for the name VDD1.2
std::optional<std::string> voltsOf(const std::string& line, const std::string& name) {
    const std::string start = name + ": ";
    if (!line.starts_with(start))
        return std::nullopt;
    return line.substr(start.size());
}

double numberOf(const std::string& text) {
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

std::string shortNumber(double value) {
    std::string text = std::to_string(value);
    text.erase(text.find_last_not_of('0') + 1);
    return text.ends_with('.') ? text.substr(0, text.size() - 1) : text;
}

tcFailureTable::teSupply supplyOf(const std::string& word) {
    if (word == "low")
        return tcFailureTable::teSupply::eLow;
    if (word == "high")
        return tcFailureTable::teSupply::eHigh;
    throw std::runtime_error("\"supply\" is low or high, not \"" + word + "\"");
}

/// What can be seen of a head without its board, and the places of a text about it.
const std::map<std::string, std::vector<std::string>>& findings() {
    static const std::vector<std::string> device{"path", "what", "error", "user"};
    static const std::map<std::string, std::vector<std::string>> known{
        {"device-missing", device},
        {"device-permission",
         {"path", "what", "error", "user", "mode", "owner", "group", "groups"}},
        {"device-refused", device},
        {"device-error", device},
        {"device-kind", {"path", "what", "kind"}},
        {"line-missing", {"line"}},
        {"line-busy", {"line", "chip", "offset", "consumer"}},
        {"monitor-silent", {"chip", "bus", "number", "address", "error"}},
        {"monitor-bus-busy", {"chip", "bus", "number", "address", "error"}},
        {"monitor-error", {"chip", "bus", "number", "address", "error"}},
        {"monitor-floats", {"chip", "bus", "number", "address", "byte"}},
        {"settings-missing", {"file", "error"}},
        {"settings-line", {"file", "number", "text"}},
        {"settings-empty", {"file"}},
        {"interval", {"interval", "least"}},
        {"no-frame-starts", {}},
        {"pipeline-held", {}},
        {"pll-lost", {}},
        {"lanes-lost", {}},
    };
    return known;
}

tsExplanation filledIn(tsExplanation explanation, const std::map<std::string, std::string>& words) {
    explanation.what = filled(explanation.what, words);
    for (tsCause& cause : explanation.causes) {
        cause.cause = filled(cause.cause, words, "\"cause\"");
        cause.measure = filled(cause.measure, words, "\"measure\"");
    }
    return explanation;
}

/// Fills text and causes with the words that the finding gives.
/// \throws std::runtime_error for a finding that is not known, or a place that nothing fills
void checkFinding(const tcFailureTable::tsFailure& failure) {
    const std::vector<std::string>* const places = placesOf(failure.finding);
    if (places == nullptr)
        throw std::runtime_error("\"finding\" is none that is known: \"" + failure.finding + "\"");
    std::map<std::string, std::string> words;
    for (const std::string& place : *places)
        words[place];
    (void)filledIn(failure.explanation, words);
}

/// Fills the text with words of the kinds that a match gives.
/// \throws std::runtime_error for a place that no match fills
void checkPlaces(const tcFailureTable::tsFailure& failure) {
    if (!failure.finding.empty()) {
        checkFinding(failure);
        return;
    }
    std::map<std::string, std::string> words;
    if (failure.blocks)
        words["blocks"];
    if (failure.supply != tcFailureTable::teSupply::eAny)
        words = {{"supply", ""}, {"volts", ""}, {"least", ""}, {"most", ""}};
    unsigned groups = 0;
    for (const tcPattern& line : failure.lines)
        groups += line.groups();
    for (unsigned group = 1; group <= groups; ++group) {
        words[std::to_string(group)];
        words["lanes " + std::to_string(group)];
    }
    (void)filled(failure.explanation.what, words);
}

std::string contentOf(const std::string& file) {
    std::ifstream stream(file);
    if (!stream)
        throw std::runtime_error(file + " cannot be read");
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

/// Masks of lanes have 32 bits.
unsigned lanesOf(const nlohmann::json& table) {
    constexpr unsigned most = 32;
    const auto lanes = table.at("lanes").get<unsigned>();
    if (lanes == 0 || lanes > most)
        throw std::runtime_error("there are 1 to 32 lanes, not " + std::to_string(lanes));
    return lanes;
}

tcFailureTable::tsFailure failureOf(const nlohmann::json& entry) {
    tcFailureTable::tsFailure failure;
    failure.explanation.name = entry.at("name").get<std::string>();
    failure.explanation.stage = entry.at("stage").get<std::string>();
    failure.explanation.what = entry.at("says").get<std::string>();
    for (const auto& cause : entry.at("causes"))
        failure.explanation.causes.push_back(
            {withoutBackquotes(cause.at("cause").get<std::string>()),
             withoutBackquotes(cause.at("measure").get<std::string>())});
    const auto& when = entry.at("when");
    if (when.contains("result"))
        failure.result = when.at("result").get<int>();
    failure.blocks = when.value("blocks", false);
    if (when.contains("supply"))
        failure.supply = supplyOf(when.at("supply").get<std::string>());
    for (const auto& line : when.value("lines", std::vector<std::string>{}))
        failure.lines.emplace_back(line);
    failure.finding = when.value("finding", "");
    failure.of = when.value("of", "");
    checkPlaces(failure);
    return failure;
}

} // namespace

tcFailureTable::tcFailureTable(const std::string& file) : tcFailureTable(contentOf(file), file) {}

tcFailureTable::tcFailureTable(const std::string& json, const std::string& file) {
    std::string place = "its beginning";
    try {
        const auto table = nlohmann::json::parse(json);
        if (table.at("format") != kFormat)
            throw std::runtime_error("its format is not 1");
        place = "\"lanes\"";
        m_lanes = lanesOf(table);
        place = "\"blocks\"";
        for (const auto& [bit, name] : table.at("blocks").items())
            m_blocks[static_cast<unsigned>(std::stoul(bit))] = name.get<std::string>();
        place = "\"supplies\"";
        for (const auto& [name, limits] : table.at("supplies").items())
            m_supplies[name] = {limits.at("least").get<double>(), limits.at("most").get<double>()};
        for (const auto& entry : table.at("failures")) {
            place = "failure " + std::to_string(m_failures.size() + 1);
            m_failures.push_back(failureOf(entry));
        }
        if (table.contains("head"))
            m_head = headFactsOf(table.at("head"), place);
    } catch (const std::exception& error) {
        throw std::runtime_error(file + " is no table of failures, at " + place + ": " +
                                 error.what());
    }
}

std::optional<tsExplanation> tcFailureTable::explain(int result,
                                                     const std::vector<std::string>& lines) const {
    for (const tsFailure& failure : m_failures) {
        if (!failure.finding.empty())
            continue;
        if (const std::optional<tmWords> words = matched(failure, result, lines)) {
            tsExplanation explanation = failure.explanation;
            explanation.what = filled(explanation.what, *words);
            return explanation;
        }
    }
    return std::nullopt;
}

std::vector<std::string> tcFailureTable::names() const {
    std::vector<std::string> names;
    for (const tsFailure& failure : m_failures)
        names.push_back(failure.explanation.name);
    return names;
}

const tsExplanation* tcFailureTable::named(const std::string& failure) const {
    const auto entry =
        std::find_if(m_failures.begin(), m_failures.end(),
                     [&](const tsFailure& one) { return one.explanation.name == failure; });
    return entry != m_failures.end() ? &entry->explanation : nullptr;
}

std::optional<tsExplanation> tcFailureTable::explain(const tsFinding& finding) const {
    for (const tsFailure& failure : m_failures) {
        if (failure.finding == finding.name && (failure.of.empty() || failure.of == finding.of))
            return filledIn(failure.explanation, finding.words);
    }
    return std::nullopt;
}

tcFailureTable tcFailureTable::withLimits(std::map<std::string, tsLimits> limits) const {
    tcFailureTable table = *this;
    table.m_supplies = std::move(limits);
    return table;
}

std::optional<tcFailureTable::tmWords>
tcFailureTable::matched(const tsFailure& failure, int result,
                        const std::vector<std::string>& lines) const {
    tmWords words;
    const bool fits =
        (!failure.result || *failure.result == result) &&
        (!failure.blocks || matchBlocks(result, words)) &&
        (failure.supply == teSupply::eAny || matchSupply(failure.supply, lines, words)) &&
        matchLines(failure, lines, words);
    return fits ? std::optional(words) : std::nullopt;
}

// Each expression takes the newest line that fits it: boards try again and print again.
bool tcFailureTable::matchLines(const tsFailure& failure, const std::vector<std::string>& lines,
                                tmWords& words) const {
    std::size_t number = 1;
    for (const tcPattern& wanted : failure.lines) {
        std::optional<std::vector<std::string>> held;
        for (auto line = lines.rbegin(); line != lines.rend() && !held; ++line)
            held = wanted.in(*line);
        if (!held)
            return false;
        for (const std::string& group : *held) {
            words[std::to_string(number)] = group;
            words["lanes " + std::to_string(number)] = clearLanes(group);
            ++number;
        }
    }
    return true;
}

bool tcFailureTable::matchBlocks(int result, tmWords& words) const {
    std::vector<std::string> names;
    auto rest = static_cast<unsigned>(result);
    for (const auto& [bit, name] : m_blocks) {
        if ((rest & bit) != 0)
            names.push_back(name);
        rest &= ~bit;
    }
    words["blocks"] = joined(names);
    return rest == 0 && !names.empty();
}

// Boards measure a supply several times: the last time counts.
bool tcFailureTable::matchSupply(teSupply wanted, const std::vector<std::string>& lines,
                                 tmWords& words) const {
    for (const auto& supply : m_supplies) {
        const std::string& name = supply.first;
        const tsLimits& limits = supply.second;
        const auto found = std::find_if(lines.rbegin(), lines.rend(), [&](const std::string& line) {
            return voltsOf(line, name).has_value();
        });
        if (found == lines.rend())
            continue;
        const std::string volts = *voltsOf(*found, name);
        const double value = numberOf(volts);
        if (wanted == teSupply::eLow ? value < limits.least : value > limits.most) {
            words["supply"] = name;
            words["volts"] = volts;
            words["least"] = shortNumber(limits.least);
            words["most"] = shortNumber(limits.most);
            return true;
        }
    }
    return false;
}

std::string tcFailureTable::clearLanes(const std::string& mask) const {
    std::uint32_t bits = 0;
    std::from_chars(mask.data(), mask.data() + mask.size(), bits, kHexadecimal);
    std::vector<std::string> lanes;
    for (unsigned lane = 0; lane < m_lanes; ++lane) {
        if ((bits >> lane & 1U) == 0)
            lanes.push_back(std::to_string(lane));
    }
    return (lanes.size() == 1 ? "lane " : "lanes ") + joined(lanes);
}

const std::vector<std::string>* placesOf(const std::string& finding) {
    const auto entry = findings().find(finding);
    return entry != findings().end() ? &entry->second : nullptr;
}

namespace {

/// \return one member of the likeliest causes, numbered where there are several
std::string numbered(const tsExplanation& explanation, std::string tsCause::*member) {
    std::string text;
    const bool several = explanation.causes.size() > 1;
    const std::size_t shown = std::min(explanation.causes.size(), kCausesShown);
    for (std::size_t n = 0; n < shown; ++n) {
        const std::string number = several ? "(" + std::to_string(n + 1) + ") " : "";
        text += (n == 0 ? "" : "; ") + number + explanation.causes[n].*member;
    }
    return text;
}

} // namespace

std::string likelyText(const tsExplanation& explanation) {
    return numbered(explanation, &tsCause::cause);
}

std::string measureText(const tsExplanation& explanation) {
    return numbered(explanation, &tsCause::measure);
}

std::string textOf(const tsExplanation& explanation) {
    return "  " + explanation.what + "\n  likely: " + likelyText(explanation) +
           "\n  measure: " + measureText(explanation);
}

} // namespace failures

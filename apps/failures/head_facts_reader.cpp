#include "apps/failures/head_facts_reader.h"

#include <algorithm>
#include <limits>
#include <set>
#include <stdexcept>

namespace failures {

namespace {

using Json = nlohmann::json;

/// A key that is misspelt would otherwise be one that is left out.
void requireKnown(const Json& entry, const std::set<std::string>& known) {
    for (const auto& [key, value] : entry.items()) {
        if (!known.contains(key))
            throw std::runtime_error("\"" + key + "\" is no key here");
    }
}

std::string textOf(const Json& entry, const char* key) {
    std::string text = entry.at(key).get<std::string>();
    if (text.empty())
        throw std::runtime_error(std::string("\"") + key + "\" is empty");
    return text;
}

/// JSON has no hexadecimal numbers: they stand in quotes.
template<typename Number>
Number hexadecimalOf(const Json& entry, const char* key) {
    const std::string text = entry.at(key).get<std::string>();
    constexpr int base = 16;
    std::size_t used = 0;
    const unsigned long long value = text.starts_with("0x") ? std::stoull(text, &used, base) : 0;
    if (used != text.size() || value > std::numeric_limits<Number>::max())
        throw std::runtime_error(std::string("\"") + key + "\" is no hexadecimal number such as " +
                                 "\"0x49\" that fits, but \"" + text + "\"");
    return static_cast<Number>(value);
}

teDeviceKind kindOf(const std::string& word) {
    static const std::map<std::string, teDeviceKind> kinds{{"spi", teDeviceKind::eSpi},
                                                           {"gpio", teDeviceKind::eGpio},
                                                           {"i2c", teDeviceKind::eI2c},
                                                           {"memory", teDeviceKind::eMemory}};
    const auto kind = kinds.find(word);
    if (kind == kinds.end())
        throw std::runtime_error("\"kind\" is spi, gpio, i2c or memory, not \"" + word + "\"");
    return kind->second;
}

tsDeviceFact deviceOf(const Json& entry) {
    requireKnown(entry, {"name", "what", "path", "kind", "numbers"});
    return {textOf(entry, "name"), textOf(entry, "what"), textOf(entry, "path"),
            kindOf(textOf(entry, "kind")), entry.value("numbers", 0U)};
}

tsLineFact lineOf(const Json& entry) {
    requireKnown(entry, {"name", "only_for"});
    return {textOf(entry, "name"), entry.value("only_for", "")};
}

tsMonitorFact monitorOf(const Json& entry) {
    constexpr std::uint16_t last = 0x7F;
    requireKnown(entry, {"chip", "bus", "address", "zero_bits"});
    const auto address = hexadecimalOf<std::uint16_t>(entry, "address");
    if (address > last)
        throw std::runtime_error("\"address\" has 7 bits");
    return {textOf(entry, "chip"), textOf(entry, "bus"), address,
            hexadecimalOf<std::uint8_t>(entry, "zero_bits")};
}

tsSettingsFact settingsOf(const Json& entry) {
    requireKnown(entry, {"file", "pause"});
    return {textOf(entry, "file"), hexadecimalOf<std::uint16_t>(entry, "pause")};
}

tsLimitsFact limitsOf(const Json& entry) {
    requireKnown(entry, {"file", "least", "most"});
    return {textOf(entry, "file"), textOf(entry, "least"), textOf(entry, "most")};
}

tsLinkFact linkOf(const Json& entry) {
    requireKnown(entry, {"status", "flags", "aligned", "lanes", "end"});
    tsLinkFact link;
    link.status = tcPattern(textOf(entry, "status"));
    link.flags = entry.at("flags").get<std::vector<std::string>>();
    link.aligned = textOf(entry, "aligned");
    link.lanes = tcPattern(textOf(entry, "lanes"));
    link.end = tcPattern(textOf(entry, "end"));
    if (link.status.groups() != link.flags.size())
        throw std::runtime_error("\"status\" has another number of groups than \"flags\" names");
    if (std::find(link.flags.begin(), link.flags.end(), link.aligned) == link.flags.end())
        throw std::runtime_error("\"aligned\" is none of \"flags\"");
    if (link.lanes.groups() != 1)
        throw std::runtime_error("\"lanes\" has one group, the mask");
    return link;
}

/// Reads an entry that may be left out.
template<typename Fact>
void readOptional(const Json& head, const char* key, std::string& place, std::optional<Fact>& fact,
                  Fact (*read)(const Json&)) {
    if (!head.contains(key))
        return;
    place = std::string("\"head\", \"") + key + "\"";
    fact = read(head.at(key));
}

} // namespace

tsHeadFacts headFactsOf(const Json& head, std::string& place) {
    place = "\"head\"";
    requireKnown(head, {"devices", "lines", "consumer", "monitor", "settings", "limits", "link"});
    tsHeadFacts facts;
    for (const auto& entry : head.at("devices")) {
        place = "\"head\", device " + std::to_string(facts.devices.size() + 1);
        facts.devices.push_back(deviceOf(entry));
    }
    place = "\"head\", \"lines\"";
    for (const auto& entry : head.at("lines")) {
        place = "\"head\", line " + std::to_string(facts.lines.size() + 1);
        facts.lines.push_back(lineOf(entry));
    }
    place = "\"head\", \"consumer\"";
    facts.consumer = facts.lines.empty() ? head.value("consumer", "") : textOf(head, "consumer");
    readOptional(head, "monitor", place, facts.monitor, monitorOf);
    readOptional(head, "settings", place, facts.settings, settingsOf);
    readOptional(head, "limits", place, facts.limits, limitsOf);
    readOptional(head, "link", place, facts.link, linkOf);
    return facts;
}

} // namespace failures

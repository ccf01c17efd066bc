#include "apps/camhost/facts.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <variant>

#include <nlohmann/json.hpp>

namespace camhost {

namespace {

using tmJson = nlohmann::ordered_json;
using tmList = std::vector<tcFacts>;
using tmObject = std::vector<tsFact>;

} // namespace

struct tcFacts::tsValue {
    std::variant<bool, std::int64_t, std::uint64_t, double, std::string, tmList, tmObject> is;

    /// \return the value as the library has it
    [[nodiscard]] static tmJson json(const tcFacts& facts) {
        if (!facts.m_value)
            return nullptr;
        return std::visit([](const auto& value) { return jsonOf(value); }, facts.m_value->is);
    }

private:
    template<class Plain>
    static tmJson jsonOf(const Plain& value) {
        return value;
    }

    static tmJson jsonOf(const tmList& list) {
        tmJson::array_t all;
        for (const tcFacts& value : list)
            all.push_back(json(value));
        return all;
    }

    static tmJson jsonOf(const tmObject& object) {
        tmJson::object_t all;
        for (const tsFact& member : object)
            all.emplace(member.name, json(member.value));
        return all;
    }
};

tcFacts::tcFacts(tsValue value) : m_value(std::make_unique<tsValue>(std::move(value))) {}

tcFacts::tcFacts() = default;
tcFacts::tcFacts(std::nullptr_t) {}
tcFacts::tcFacts(bool value) : tcFacts(tsValue{value}) {}
tcFacts::tcFacts(int value) : tcFacts(tsValue{std::int64_t{value}}) {}
tcFacts::tcFacts(unsigned value) : tcFacts(tsValue{std::uint64_t{value}}) {}
tcFacts::tcFacts(long value) : tcFacts(tsValue{std::int64_t{value}}) {}
tcFacts::tcFacts(unsigned long value) : tcFacts(tsValue{std::uint64_t{value}}) {}
tcFacts::tcFacts(long long value) : tcFacts(tsValue{std::int64_t{value}}) {}
tcFacts::tcFacts(unsigned long long value) : tcFacts(tsValue{std::uint64_t{value}}) {}
tcFacts::tcFacts(double value) : tcFacts(tsValue{value}) {}
tcFacts::tcFacts(const char* text) : tcFacts(tsValue{std::string(text)}) {}
tcFacts::tcFacts(std::string_view text) : tcFacts(tsValue{std::string(text)}) {}
tcFacts::tcFacts(const std::string& text) : tcFacts(tsValue{text}) {}

tcFacts::tcFacts(std::initializer_list<tsFact> members) : tcFacts(object()) {
    for (const tsFact& member : members)
        (*this)[member.name] = member.value;
}

tcFacts::tcFacts(const tcFacts& other)
    : m_value(other.m_value ? std::make_unique<tsValue>(*other.m_value) : nullptr) {}

tcFacts::tcFacts(tcFacts&& other) noexcept = default;

tcFacts& tcFacts::operator=(const tcFacts& other) {
    // A value may be put into what it is a part of.
    tcFacts copy(other);
    m_value.swap(copy.m_value);
    return *this;
}

tcFacts& tcFacts::operator=(tcFacts&& other) noexcept {
    const std::unique_ptr<tsValue> old = std::exchange(m_value, std::move(other.m_value));
    return *this;
}

tcFacts::~tcFacts() = default;

tcFacts tcFacts::list() {
    return tcFacts(tsValue{tmList()});
}

tcFacts tcFacts::object() {
    return tcFacts(tsValue{tmObject()});
}

void tcFacts::push_back(tcFacts value) {
    if (!m_value)
        *this = list();
    auto* const values = std::get_if<tmList>(&m_value->is);
    if (values == nullptr)
        throw std::logic_error("a value is put into facts that are no list");
    values->push_back(std::move(value));
}

tcFacts& tcFacts::operator[](std::string_view name) {
    if (!m_value)
        *this = object();
    auto* const all = std::get_if<tmObject>(&m_value->is);
    if (all == nullptr)
        throw std::logic_error("a member is looked for in facts that are no object");
    const auto found = std::find_if(all->begin(), all->end(),
                                    [&](const tsFact& member) { return member.name == name; });
    return found != all->end() ? found->value
                               : all->emplace_back(tsFact{std::string(name), {}}).value;
}

std::size_t tcFacts::size() const {
    const auto* const values = m_value ? std::get_if<tmList>(&m_value->is) : nullptr;
    return values != nullptr ? values->size() : members().size();
}

const tmObject& tcFacts::members() const {
    static const tmObject none;
    const auto* const all = m_value ? std::get_if<tmObject>(&m_value->is) : nullptr;
    return all != nullptr ? *all : none;
}

std::string jsonText(const tcFacts& facts) {
    return tcFacts::tsValue::json(facts).dump(-1, ' ', false, tmJson::error_handler_t::replace);
}

tcFacts rectangleFacts(const Varnox::ROI& roi) {
    return {{"y", roi.y}, {"x", roi.x}, {"width", roi.width}, {"height", roi.height}};
}

} // namespace camhost

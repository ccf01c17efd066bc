#include "apps/registers/register_table.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "apps/tables/table_file.h"

namespace registers {

namespace {

constexpr unsigned kWordBits = 32;

/// \throws std::runtime_error where it is not "0x" and hexadecimal digits
std::uint32_t addressOf(const std::string& text) {
    constexpr int kHexadecimal = 16;
    std::uint32_t address = 0;
    const char* const end = text.data() + text.size();
    const bool marked = text.starts_with("0x");
    const auto [rest, error] =
        std::from_chars(text.data() + (marked ? 2 : 0), end, address, kHexadecimal);
    if (!marked || error != std::errc() || rest != end)
        throw std::runtime_error("\"address\" is 0x and hexadecimal digits, not \"" + text + "\"");
    return address;
}

tsField fieldOf(const nlohmann::json& entry) {
    tsField field;
    field.name = entry.at("name").get<std::string>();
    field.address = addressOf(entry.at("address").get<std::string>());
    field.lowBit = entry.at("low_bit").get<unsigned>();
    field.bits = entry.at("bits").get<unsigned>();
    field.meaning = entry.at("meaning").get<std::string>();
    if (field.bits < 1 || field.bits > kWordBits || field.lowBit > kWordBits - field.bits)
        throw std::runtime_error("field " + field.name + " is not within a word of 32 bits");
    return field;
}

} // namespace

std::uint32_t tsField::most() const {
    return bits == kWordBits ? ~std::uint32_t{0} : (std::uint32_t{1} << bits) - 1;
}

std::uint32_t tsField::of(std::uint32_t word) const {
    return (word >> lowBit) & most();
}

std::uint32_t tsField::in(std::uint32_t word, std::uint32_t value) const {
    return (word & ~(most() << lowBit)) | (value << lowBit);
}

tcRegisterTable::tcRegisterTable(const std::string& file) {
    tables::read(file, "registers", [this](const nlohmann::json& json) {
        for (const auto& entry : json.at("sensor").at("fields")) {
            tsField field = fieldOf(entry);
            if (find(field.name) != nullptr)
                throw std::runtime_error("two fields are called " + field.name);
            m_fields.push_back(std::move(field));
        }
    });
}

const tsField* tcRegisterTable::find(std::string_view name) const {
    const auto field = std::find_if(m_fields.begin(), m_fields.end(),
                                    [&](const tsField& entry) { return entry.name == name; });
    return field != m_fields.end() ? &*field : nullptr;
}

std::vector<const tsField*> tcRegisterTable::fieldsOf(std::uint32_t address) const {
    std::vector<const tsField*> fields;
    for (const tsField& field : m_fields) {
        if (field.address == address)
            fields.push_back(&field);
    }
    return fields;
}

} // namespace registers

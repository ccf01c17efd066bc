/// \file
/// Names of a sensor's registers and their fields, from the table that lies beside a plug-in.
/// docs/register-table.md describes the file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace registers {

/// Some bits of a register.
struct tsField {
    std::string name;
    std::uint32_t address = 0; ///< of its register
    unsigned lowBit = 0;       ///< place of its lowest bit
    unsigned bits = 0;         ///< how many, 1 to 32
    std::string meaning;       ///< with its unit in brackets

    /// \return the largest value that fits
    [[nodiscard]] std::uint32_t most() const;
    /// \return the field's value in a register's word
    [[nodiscard]] std::uint32_t of(std::uint32_t word) const;
    /// \param value at most `most()`
    /// \return the word with this field changed
    [[nodiscard]] std::uint32_t in(std::uint32_t word, std::uint32_t value) const;
};

/// A sensor's registers by name. Nothing changes it once it is read.
class tcRegisterTable {
public:
    /// \param file JSON, of format 1
    /// \throws std::runtime_error with file, place and reason where it cannot be read or understood
    explicit tcRegisterTable(const std::string& file);

    /// \return every field, in the order of the table
    [[nodiscard]] const std::vector<tsField>& fields() const { return m_fields; }
    /// \return the field of that name; null where there is none
    [[nodiscard]] const tsField* find(std::string_view name) const;
    /// \return the fields of a register, in the order of the table
    [[nodiscard]] std::vector<const tsField*> fieldsOf(std::uint32_t address) const;

private:
    std::vector<tsField> m_fields;
};

} // namespace registers

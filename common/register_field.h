/// \file
/// How register tables are written down: one typed constant per field.
#pragma once

#include <cstdint>

/// A bit field of a register. The mask belongs to the value, before the shift.
struct tsRegisterField {
    std::uint16_t address; ///< register address, or word index of a mapped block
    std::uint8_t shift;    ///< place of the field's lowest bit
    std::uint32_t mask;    ///< as many ones as the field has bits
    const char* name;      ///< as the trace decoder and the register reference show it
    const char* meaning;   ///< what it does, with its unit in brackets

    /// \return the value in its place, what is too large for it cut off
    [[nodiscard]] constexpr std::uint32_t placed(std::uint32_t value) const {
        return (value & mask) << shift;
    }
    /// \return the field of a register
    [[nodiscard]] constexpr std::uint32_t of(std::uint32_t word) const {
        return (word >> shift) & mask;
    }
};

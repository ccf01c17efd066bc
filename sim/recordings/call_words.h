/// \file
/// The words of a call's text: numbers, bytes and names, written and read back.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace sim {

/// \return for example "0F B9 04 36"
[[nodiscard]] std::string bytesText(std::span<const std::uint8_t> bytes);

} // namespace sim

namespace sim::calls {

inline constexpr std::string_view kBetweenParts = " / "; ///< transfers or messages of a call

/// \return for example "0x1F"
[[nodiscard]] std::string hex(std::uint64_t value);
/// \return in quotes, whatever it holds: a name comes from the outside
[[nodiscard]] std::string quoted(const char* text, std::size_t longest);

/// Takes a text apart, word by word. Operations throw std::runtime_error where the text has
/// something else.
class tcWords {
public:
    explicit tcWords(std::string_view text) : m_rest(text) { skip(); }

    [[nodiscard]] bool empty() const { return m_rest.empty(); }
    std::string_view next();
    /// \param base 10, 16, or 0: by the prefix 0x
    std::uint64_t number(int base = 0);
    /// \return a number that the type can hold
    template<class Type>
    Type number() {
        const std::uint64_t value = number();
        if (value > static_cast<std::uint64_t>(static_cast<Type>(~Type{0}))) {
            throw std::runtime_error(std::to_string(value) + " is too large");
        }
        return static_cast<Type>(value);
    }
    /// \return a byte, as `bytesText` wrote it
    std::uint8_t byte();
    /// A name as `quoted` wrote it.
    void name(char* destination, std::size_t size);
    /// There must be nothing left.
    void end() const;

private:
    void skip();

    std::string_view m_rest;
};

/// \param from the argument of a call: it may lie anywhere
template<class Type>
[[nodiscard]] Type copied(const void* from) {
    Type value{};
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// Gives the program a value. \param argument of the call: it may lie anywhere
template<class Type>
void give(void* argument, Type value) {
    std::memcpy(argument, &value, sizeof value);
}

} // namespace sim::calls

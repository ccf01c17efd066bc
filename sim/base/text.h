/// \file
/// Text without the heap: what a signal handler can write.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sim {

/// A short line of text. What does not fit is cut off.
class tcText {
public:
    constexpr tcText& add(std::string_view text) {
        for (const char character : text) {
            if (m_length < m_buffer.size()) {
                m_buffer[m_length++] = character;
            }
        }
        return *this;
    }
    constexpr tcText& decimal(std::uint64_t value, unsigned leastDigits = 1, char padding = '0') {
        std::array<char, 20> digits{};
        std::size_t count = 0;
        do {
            digits[count++] = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value != 0);
        for (std::size_t at = count; at < leastDigits; ++at) {
            add(std::string_view(&padding, 1));
        }
        while (count > 0) {
            add(std::string_view(&digits[--count], 1));
        }
        return *this;
    }
    /// As "0x0000000F".
    constexpr tcText& hex(std::uint64_t value, unsigned leastDigits = 1) {
        add("0x");
        return bareHex(value, leastDigits);
    }
    constexpr tcText& bareHex(std::uint64_t value, unsigned leastDigits) {
        unsigned digits = 1;
        while (digits < 16 && (value >> (4 * digits)) != 0) {
            ++digits;
        }
        for (unsigned at = digits > leastDigits ? digits : leastDigits; at > 0; --at) {
            const auto nibble = static_cast<std::size_t>((value >> (4 * (at - 1))) & 0xF);
            add(std::string_view(&"0123456789ABCDEF"[nibble], 1));
        }
        return *this;
    }
    /// As "3.300", for values of zero and more.
    tcText& fixed(double value) {
        const auto thousandths = static_cast<std::uint64_t>(std::floor(value * 1000.0 + 0.5));
        return decimal(thousandths / 1000).add(".").decimal(thousandths % 1000, 3);
    }
    /// A time as seconds "0.301003200".
    constexpr tcText& seconds(std::uint64_t ns) {
        return decimal(ns / 1'000'000'000).add(".").decimal(ns % 1'000'000'000, 9);
    }
    /// A time in front of a line, "[    0.301003200] ".
    constexpr tcText& stamp(std::uint64_t ns) {
        add("[").decimal(ns / 1'000'000'000, 5, ' ').add(".");
        return decimal(ns % 1'000'000'000, 9).add("] ");
    }
    [[nodiscard]] constexpr std::string_view view() const { return {m_buffer.data(), m_length}; }

private:
    std::array<char, 320> m_buffer{};
    std::size_t m_length = 0;
};

} // namespace sim

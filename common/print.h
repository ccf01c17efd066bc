/// \file
/// Lines on standard output and standard error.
#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string_view>

/// A number to print in lower-case hexadecimal, without prefix or padding.
struct tsHex {
    std::uint32_t value;
};

/// Gathers a text and writes it unformatted: whatever base, width or precision a stream was left
/// with has no effect, and nothing of it is changed. Who must leave a stream in decimal says so
/// (`leaveInDecimal`). Allocates nothing.
class tcPrinter {
public:
    explicit tcPrinter(std::ostream& stream) : m_stream(stream) {}

    void put(std::string_view text);
    void put(const char* text) { put(std::string_view(text)); }
    void put(bool flag) { put(std::string_view(flag ? "1" : "0")); }
    /// Six significant digits, as a stream prints a float by default.
    void put(float value);
    void put(tsHex hex);
    /// In decimal; numbers of one byte as well.
    template<std::integral Number>
    void put(Number number) {
        if constexpr (sizeof(Number) < sizeof(int)) {
            putNumber(static_cast<int>(number));
        } else {
            putNumber(number);
        }
    }

    /// Hands what was gathered to the stream.
    void write();

private:
    template<class Number>
    void putNumber(Number number) {
        std::array<char, 24> digits; // a 64-bit number has at most 20 characters
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        put(std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())));
    }

    std::ostream& m_stream;
    std::array<char, 256> m_text;
    std::size_t m_used = 0;
};

/// Prints the pieces one after the other: texts as they are, numbers in decimal, flags as 0 or 1,
/// floats with six significant digits, `tsHex` in hexadecimal.
template<class... Pieces>
void print(std::ostream& stream, const Pieces&... pieces) {
    tcPrinter printer(stream);
    (printer.put(pieces), ...);
    printer.write();
}

/// The same, flushed.
template<class... Pieces>
void printFlushed(std::ostream& stream, const Pieces&... pieces) {
    print(stream, pieces...);
    stream.flush();
}

/// Puts a stream's base to decimal. Every other flag stays as it is.
inline void leaveInDecimal(std::ostream& stream) {
    stream.setf(std::ios_base::dec, std::ios_base::basefield);
}

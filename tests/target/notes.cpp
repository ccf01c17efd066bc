#include "tests/target/notes.h"

#include <array>
#include <cinttypes>
#include <cstdio>

std::string oneLine(std::string_view text) {
    std::string result;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '\n') {
            result += "\\n";
        } else if (code < ' ' || code >= 0x7F) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned>(code));
            result += escape.data();
        } else {
            result += character;
        }
    }
    return result;
}

std::string hexadecimal(std::uint32_t value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%" PRIX32, value);
    return text.data();
}

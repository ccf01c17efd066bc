#include "tests/target/notes.h"

#include <iostream>

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

namespace {

constexpr auto kOtherFlags = std::ios::showbase | std::ios::uppercase | std::ios::boolalpha;

std::string baseOf(std::ios::fmtflags flags) {
    const auto base = flags & std::ios::basefield;
    return base == std::ios::dec ? "dec" : base == std::ios::hex ? "hex" : "oct";
}

} // namespace

tcOtherBase::tcOtherBase(int number, sim::tcVirtualHead& head) : m_head(head), m_other(number < 2) {
    if (m_other) {
        std::cout.flags((number == 0 ? std::ios::hex : std::ios::oct) | kOtherFlags);
        m_head.note("BASE set " + baseOf(std::cout.flags()));
    }
}

tcOtherBase::~tcOtherBase() {
    if (m_other) {
        const auto flags = std::cout.flags();
        const bool kept = (flags & ~std::ios::basefield) == kOtherFlags;
        m_head.note("BASE now " + baseOf(flags) + (kept ? "" : ", other flags changed"));
        std::cout.flags(std::ios::dec | std::ios::skipws);
    }
}

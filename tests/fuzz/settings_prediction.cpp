#include "tests/fuzz/settings_prediction.h"

#include <cstdint>
#include <cstdio>

#include "tests/fuzz/digit.h"

namespace fuzz {

namespace {

constexpr std::uint64_t kMostAddress = 0xFFFF;
constexpr std::uint64_t kMostValue = 0xFFFFFFFF;
constexpr std::uint64_t kPause = 0x400;

/// One number where one is expected.
struct tsNumber {
    bool missing = false; // the line ends here: what was before stays
    bool wrong = false;   // not a number, or too large
    std::uint64_t value = 0;
};

class tcLine {
public:
    explicit tcLine(std::string_view text) : m_rest(text) {}

    /// A sign, 0x, digits: all but the digits may be left out.
    tsNumber number(std::uint64_t most) {
        skipBlanks();
        if (m_rest.empty())
            return {.missing = true};
        const bool minus = m_rest.front() == '-';
        if (minus || m_rest.front() == '+')
            m_rest.remove_prefix(1);
        if (m_rest.starts_with("0x") || m_rest.starts_with("0X"))
            m_rest.remove_prefix(2);
        bool digits = false;
        bool large = false;
        std::uint64_t value = 0;
        for (; !m_rest.empty() && digit(m_rest.front()) < 16; m_rest.remove_prefix(1)) {
            digits = true;
            value = value * 16 + static_cast<std::uint64_t>(digit(m_rest.front()));
            large = large || value > most;
            value = large ? most : value;
        }
        if (!digits || large)
            return {.wrong = true, .value = value};
        return {.value = minus ? (most + 1 - value) & most : value};
    }

    [[nodiscard]] bool ended() const { return m_rest.empty(); }

private:
    void skipBlanks() {
        while (!m_rest.empty() &&
               std::string_view(" \t\v\f\r").find(m_rest.front()) != std::string_view::npos)
            m_rest.remove_prefix(1);
    }

    std::string_view m_rest;
};

std::string frame(std::uint64_t address, std::uint64_t value) {
    char text[16] = {};
    // Value bits 7..0; 15..8; address bits 1..0 above value bits 21..16; address bits 9..2.
    std::snprintf(text, sizeof text, "SPI %02X %02X %02X %02X", static_cast<unsigned>(value % 256),
                  static_cast<unsigned>(value / 256 % 256),
                  static_cast<unsigned>(address % 4 * 64 + value / 65536 % 64),
                  static_cast<unsigned>(address / 4 % 256));
    return text;
}

} // namespace

tsPrediction predict(std::string_view text, std::string_view name) {
    tsPrediction prediction;
    std::uint64_t address = 0;
    std::uint64_t value = 0;
    for (int lineNumber = 1; !text.empty(); ++lineNumber) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
        if (line.starts_with('#'))
            continue;

        tcLine reader(line);
        const tsNumber first = reader.number(kMostAddress);
        bool wrong = first.wrong;
        if (!first.missing)
            address = first.value;
        if (!first.missing && !first.wrong && !reader.ended()) {
            const tsNumber second = reader.number(kMostValue);
            wrong = second.wrong;
            if (!second.missing)
                value = second.value;
        }
        if (wrong && !reader.ended()) {
            prediction.report = "\nError writing registers: " + std::string(name) + " " +
                                std::to_string(lineNumber) + ": " + std::string(line) +
                                "\neof: 0 good: 0 fail: 1 bad: 0\n";
            return prediction;
        }
        prediction.steps.push_back(address == kPause ? "PAUSE " + std::to_string(value) + " us"
                                                     : frame(address, value));
    }
    return prediction;
}

} // namespace fuzz

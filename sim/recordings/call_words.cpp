#include "sim/recordings/call_words.h"

#include "sim/base/text.h"
#include "sim/base/timed_text.h"

namespace sim {

std::string bytesText(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        tcText digits;
        text += text.empty() ? "" : " ";
        text += digits.bareHex(byte, 2).view();
    }
    return text;
}

} // namespace sim

namespace sim::calls {

std::string hex(std::uint64_t value) {
    tcText text;
    return std::string(text.hex(value).view());
}

std::string quoted(const char* text, std::size_t longest) {
    std::string result = "\"";
    for (std::size_t at = 0; at < longest && text[at] != '\0'; ++at) {
        const auto code = static_cast<unsigned char>(text[at]);
        if (code <= ' ' || code >= 0x7F || code == '"' || code == '\\' || code == '=' ||
            code == '|' || code == '/') {
            tcText escape;
            result += escape.add("\\").bareHex(code, 2).view();
        } else {
            result += text[at];
        }
    }
    return result + "\"";
}

std::string_view tcWords::next() {
    if (m_rest.empty()) {
        throw std::runtime_error("there is too little in it");
    }
    const std::size_t end = std::min(m_rest.find(' '), m_rest.size());
    const std::string_view word = m_rest.substr(0, end);
    m_rest.remove_prefix(end);
    skip();
    return word;
}

std::uint64_t tcWords::number(int base) {
    return numberFrom(next(), base);
}

std::uint8_t tcWords::byte() {
    const std::uint64_t value = number(16);
    if (value > 0xFF) {
        throw std::runtime_error("a byte has two digits");
    }
    return static_cast<std::uint8_t>(value);
}

void tcWords::name(char* destination, std::size_t size) {
    std::string_view word = next();
    if (word.size() < 2 || word.front() != '"' || word.back() != '"') {
        throw std::runtime_error("a name is in quotes");
    }
    word = word.substr(1, word.size() - 2);
    std::string plain;
    for (std::size_t at = 0; at < word.size(); ++at) {
        if (word[at] == '\\' && at + 2 < word.size()) {
            plain += static_cast<char>(numberFrom(word.substr(at + 1, 2), 16));
            at += 2;
        } else {
            plain += word[at];
        }
    }
    if (plain.size() >= size) {
        throw std::runtime_error("a name is too long");
    }
    std::memset(destination, 0, size);
    std::memcpy(destination, plain.data(), plain.size());
}

void tcWords::end() const {
    if (!m_rest.empty()) {
        throw std::runtime_error("there is too much in it: \"" + std::string(m_rest) + "\"");
    }
}

void tcWords::skip() {
    m_rest.remove_prefix(std::min(m_rest.find_first_not_of(' '), m_rest.size()));
}

} // namespace sim::calls

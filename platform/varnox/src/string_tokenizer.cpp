#include <varnox/string_tokenizer.h>

#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>
#include <utility>

namespace {

/// \return false when the digits are not a number, or one beyond 64 bits
bool parseMagnitude(std::string_view digits, std::uint64_t& magnitude) {
    int base = 10;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        base = 16;
        digits.remove_prefix(2);
    }
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, magnitude, base);
    return error == std::errc() && stop == end;
}

} // namespace

tcStringTokenizer::tcStringTokenizer(std::string text, char separator)
    : m_text(std::move(text)), m_separator(separator) {}

bool tcStringTokenizer::hasMoreTokens() const {
    return m_text.find_first_not_of(m_separator, m_position) != std::string::npos;
}

std::string tcStringTokenizer::nextToken() {
    const auto begin = m_text.find_first_not_of(m_separator, m_position);
    if (begin == std::string::npos) {
        m_position = m_text.size();
        return {};
    }
    const auto end = m_text.find(m_separator, begin);
    m_position = end == std::string::npos ? m_text.size() : end;
    return m_text.substr(begin, m_position - begin);
}

bool tcStringTokenizer::nextInt(int& value) {
    const std::string token = nextToken();
    std::string_view digits = token;
    const bool negative = digits.starts_with('-');
    if (negative || digits.starts_with('+'))
        digits.remove_prefix(1);

    std::uint64_t magnitude = 0;
    if (!parseMagnitude(digits, magnitude))
        return false;
    constexpr std::uint64_t kLowestMagnitude = 0x8000'0000;
    if (magnitude > (negative ? kLowestMagnitude : std::numeric_limits<std::uint32_t>::max()))
        return false;
    const auto pattern = static_cast<std::uint32_t>(magnitude);
    // Conversion to a signed type keeps the bit pattern.
    value = static_cast<std::int32_t>(negative ? 0U - pattern : pattern);
    return true;
}

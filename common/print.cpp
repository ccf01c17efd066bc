#include "common/print.h"

#include <algorithm>

void tcPrinter::put(std::string_view text) {
    if (text.size() > m_text.size() - m_used) {
        write();
    }
    if (text.size() > m_text.size()) {
        m_stream.write(text.data(), static_cast<std::streamsize>(text.size()));
        return;
    }
    std::copy(text.begin(), text.end(), m_text.begin() + static_cast<std::ptrdiff_t>(m_used));
    m_used += text.size();
}

void tcPrinter::put(float value) {
    std::array<char, 32> digits; // "-1.23457e-38" is the longest
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                   std::chars_format::general, 6)
                         .ptr;
    put(std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())));
}

void tcPrinter::put(tsHex hex) {
    std::array<char, 8> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), hex.value, 16).ptr;
    put(std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())));
}

void tcPrinter::write() {
    m_stream.write(m_text.data(), static_cast<std::streamsize>(m_used));
    m_used = 0;
}

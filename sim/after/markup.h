/// \file
/// What HTML and SVG have in common.
#pragma once

#include <string>

namespace sim {

/// \return the text as it may stand between tags and in an attribute's double quotes
[[nodiscard]] inline std::string escapedMarkup(const std::string& text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

} // namespace sim

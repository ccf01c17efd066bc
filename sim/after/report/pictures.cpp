// The pictures of the run, small, with the settings that made them.

#include <cstddef>
#include <cstdint>

#include "sim/after/markup.h"
#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"

namespace sim::page {

namespace {

std::string base64(const std::string& bytes) {
    constexpr const char* digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t byte = 0; byte < 3; ++byte) {
            group = group << 8 |
                    (at + byte < bytes.size() ? static_cast<unsigned char>(bytes[at + byte]) : 0U);
        }
        for (std::size_t digit = 0; digit < 4; ++digit) {
            const bool there = at + digit <= bytes.size();
            text += there ? digits[group >> (18 - 6 * digit) & 63] : '=';
        }
    }
    return text;
}

// The line "name: value" of a picture's settings, as "name value".
std::string setting(const std::string& settings, const std::string& name) {
    const std::size_t start = ("\n" + settings).find("\n" + name + ": ");
    if (start == std::string::npos) {
        return "";
    }
    const std::size_t value = start + name.size() + 2;
    return name + " " + settings.substr(value, settings.find('\n', value) - value);
}

std::string picture(const tsThumbnail& small, std::size_t number) {
    std::string caption =
        small.file + " at " + milliseconds(static_cast<std::uint64_t>(small.time.count())) + ", " +
        std::to_string(small.frameWidth) + " x " + std::to_string(small.frameHeight);
    const char* separator = ": ";
    for (const char* name : {"exposure", "analogue gain", "digital gain", "ADC", "vertical scan",
                             "horizontal scan", "pairs flip", "pixel shift"}) {
        if (const std::string text = setting(small.settings, name); !text.empty()) {
            caption += separator + text;
            separator = ", ";
        }
    }
    const std::string id = "frame" + std::to_string(number);
    return "<figure id=\"" + id + "\"><img width=\"" + std::to_string(small.width) +
           "\" height=\"" + std::to_string(small.height) + "\" alt=\"" + escapedMarkup(small.file) +
           "\" src=\"data:image/png;base64," + base64(small.png) + "\"><figcaption>" +
           escapedMarkup(caption) + "</figcaption></figure>\n";
}

} // namespace

std::string pictures(const std::vector<tsThumbnail>& all) {
    std::string text = "<h2>Pictures</h2>\n";
    for (std::size_t at = 0; at < all.size(); ++at) {
        text += picture(all[at], at + 1);
    }
    return text + (all.empty() ? "<p id=\"pictures\">none</p>\n" : "");
}

} // namespace sim::page

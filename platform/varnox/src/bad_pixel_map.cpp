#include "bad_pixel_map.h"

#include <charconv>
#include <optional>
#include <set>
#include <string_view>

#include <varnox/core_registers.h>

namespace {

constexpr std::string_view kBlanks = " \t\r";

/// Takes the next word off the line; empty at its end.
std::string_view takeWord(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
    line.remove_prefix(word.size());
    return word;
}

/// \return the number, or nothing when the word is not one in decimal
std::optional<std::int32_t> parseCoordinate(std::string_view word) {
    std::int32_t value = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

/// \return the pixel, or nothing when the line does not read "X Y"
std::optional<tsBadPixel> parsePixel(std::string_view line) {
    const auto x = parseCoordinate(takeWord(line));
    const auto y = parseCoordinate(takeWord(line));
    if (!x || !y || !takeWord(line).empty())
        return std::nullopt;
    return tsBadPixel{*y, *x};
}

bool isInside(const tsBadPixel& pixel, const Varnox::ROI& frame) {
    return pixel.x >= frame.x && pixel.y >= frame.y &&
           std::int64_t{pixel.x} - frame.x < frame.width &&
           std::int64_t{pixel.y} - frame.y < frame.height;
}

std::string outsideText(const tsBadPixel& pixel, const Varnox::ROI& frame) {
    return "pixel " + std::to_string(pixel.x) + " " + std::to_string(pixel.y) +
           " is outside the full frame " + frame.toString();
}

/// The line that cannot be read, short enough for a log.
std::string quoted(std::string_view line) {
    constexpr std::size_t kShown = 40;
    std::string text = "\"";
    for (const char c : line.substr(0, kShown))
        text += c >= ' ' && c <= '~' ? c : '?';
    return text + (line.size() > kShown ? "...\"" : "\"");
}

} // namespace

std::variant<std::vector<tsBadPixel>, tsBadPixelMapError>
parseBadPixelMap(const std::string& text, const Varnox::ROI& fullFrame) {
    std::set<tsBadPixel> pixels;
    std::string_view rest = text;
    for (int number = 1; !rest.empty(); ++number) {
        const std::string_view whole = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(whole.size() + 1, rest.size()));

        const std::string_view line = whole.substr(0, whole.find('#'));
        if (line.find_first_not_of(kBlanks) == std::string_view::npos)
            continue;
        const std::optional<tsBadPixel> pixel = parsePixel(line);
        if (!pixel)
            return tsBadPixelMapError{number, quoted(whole) + " is not a pixel \"X Y\""};
        if (!isInside(*pixel, fullFrame))
            return tsBadPixelMapError{number, outsideText(*pixel, fullFrame)};
        pixels.insert(*pixel);
        if (pixels.size() > badPixelRegisters::kTableEntries)
            return tsBadPixelMapError{number, "more than " +
                                                  std::to_string(badPixelRegisters::kTableEntries) +
                                                  " pixels do not fit into the core's table"};
    }
    return std::vector<tsBadPixel>(pixels.begin(), pixels.end());
}

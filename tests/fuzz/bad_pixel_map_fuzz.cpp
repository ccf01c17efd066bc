// The map of defective pixels: every accepted map holds exactly the pixels that its text names.

#include <set>
#include <utility>

#include "platform/varnox/src/bad_pixel_map.h"
#include "tests/fuzz/support.h"

namespace {

constexpr Varnox::ROI kFrame{0, 0, 2592, 2056};
constexpr std::size_t kMostPixels = 1024;

/// What a text means, read once more: nothing where it is no map.
struct tsReading {
    bool good = true;
    int badLine = 0;
    std::set<std::pair<int, int>> pixels; // row, column
};

std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> found(1);
    for (const char c : line) {
        if (c == ' ' || c == '\t' || c == '\r')
            found.emplace_back();
        else
            found.back() += c;
    }
    std::erase(found, "");
    return found;
}

/// \return the number; -1 for what is none, or lies outside 0 to 99999 anyway
int coordinate(const std::string& word) {
    std::size_t at = word[0] == '-' ? 1 : 0;
    if (at == word.size())
        return -1;
    long long value = 0;
    for (; at < word.size(); ++at) {
        if (word[at] < '0' || word[at] > '9')
            return -1;
        value = std::min(value * 10 + (word[at] - '0'), 99999LL);
    }
    return word[0] == '-' && value != 0 ? -1 : static_cast<int>(value);
}

tsReading readMap(const std::string& text) {
    tsReading reading;
    int number = 0;
    for (std::size_t at = 0; at < text.size() && reading.good;) {
        ++number;
        std::size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end;
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        const auto found = words(line.substr(0, line.find('#')));
        if (found.empty())
            continue;
        const int x = found.size() == 2 ? coordinate(found[0]) : -1;
        const int y = found.size() == 2 ? coordinate(found[1]) : -1;
        reading.good = x >= 0 && y >= 0 && x < kFrame.width && y < kFrame.height;
        if (reading.good)
            reading.pixels.emplace(y, x);
        reading.good = reading.good && reading.pixels.size() <= kMostPixels;
        reading.badLine = reading.good ? 0 : number;
    }
    return reading;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text({data, size});
    const auto map = parseBadPixelMap(text, kFrame);
    const tsReading expected = readMap(text);
    if (const auto* const error = std::get_if<tsBadPixelMapError>(&map)) {
        fuzz::require(!expected.good, "only what is no map is refused");
        fuzz::requireEqual("line of the refusal", std::to_string(expected.badLine),
                           std::to_string(error->line));
        fuzz::require(!error->reason.empty() && error->reason.size() < 200, "a refusal says why");
        for (const char c : error->reason)
            fuzz::require(c >= ' ' && c <= '~', "a refusal is plain text");
        return 0;
    }
    fuzz::require(expected.good, "what is no map is refused");
    std::vector<std::pair<int, int>> pixels;
    for (const tsBadPixel& pixel : std::get<std::vector<tsBadPixel>>(map))
        pixels.emplace_back(pixel.y, pixel.x);
    fuzz::require(
        pixels == std::vector<std::pair<int, int>>(expected.pixels.begin(), expected.pixels.end()),
        "the pixels in raster order, each once");
    return 0;
}

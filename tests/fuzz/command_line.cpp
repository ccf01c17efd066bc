#include "tests/fuzz/command_line.h"

#include <limits>

#include "tests/fuzz/digit.h"

namespace fuzz {

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

bool isControl(char c) {
    const auto code = static_cast<unsigned char>(c);
    return (code < ' ' && !isBlank(c)) || code == 0x7F;
}

/// Where a word lies in its line, quotes included.
struct tsPlace {
    std::size_t begin = 0;
    std::size_t end = 0;
};

} // namespace

tsCommandLine readCommandLine(std::string_view line) {
    tsCommandLine reading;
    for (const char c : line)
        reading.good = reading.good && !isControl(c);

    std::vector<tsPlace> places;
    bool inWord = false;
    bool inQuotes = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (!inQuotes && isBlank(c)) {
            inWord = false;
            continue;
        }
        if (!inWord && c == '#')
            break;
        if (!inWord) {
            reading.words.emplace_back();
            places.push_back({at, at});
        }
        inWord = true;
        places.back().end = at + 1;
        if (c == '"')
            inQuotes = !inQuotes;
        else
            reading.words.back() += c;
    }
    reading.good = reading.good && !inQuotes;
    if (places.size() > 1)
        reading.rest = line.substr(places[1].begin, places.back().end - places[1].begin);
    return reading;
}

std::optional<std::int64_t> readCommandNumber(std::string_view word) {
    const bool minus = word.starts_with('-');
    if (minus || word.starts_with('+'))
        word.remove_prefix(1);
    const bool hex = word.starts_with("0x") || word.starts_with("0X");
    if (hex)
        word.remove_prefix(2);
    if (word.empty())
        return std::nullopt;
    const int base = hex ? 16 : 10;
    // Downwards: the lowest number has no positive counterpart.
    constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
    std::int64_t negative = 0;
    for (const char c : word) {
        const int next = digit(c);
        if (next >= base || negative < (kLowest + next) / base)
            return std::nullopt;
        negative = negative * base - next;
    }
    if (!minus && negative == kLowest)
        return std::nullopt;
    return minus ? negative : -negative;
}

} // namespace fuzz

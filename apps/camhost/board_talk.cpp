#include "apps/camhost/board_talk.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "apps/camhost/arguments.h"

namespace camhost {

namespace {

constexpr std::size_t kLineBytes = 4096; // more is no line for people
constexpr std::size_t kLinkLines = 512;
constexpr std::size_t kLines = 4096;

std::string lowerCase(std::string text) {
    for (char& character : text)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    return text;
}

bool speaksOfTheLink(const std::string& line) {
    const std::string text = lowerCase(line);
    // A clock is no lock.
    for (auto at = text.find("lock"); at != text.npos; at = text.find("lock", at + 1)) {
        if (at == 0 || text[at - 1] != 'c')
            return true;
    }
    return text.find("aligned") != text.npos;
}

/// \return whether the whole text is a number
bool readVolts(const std::string& text, double& volts) {
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, volts);
    return error == std::errc() && rest == end;
}

} // namespace

tcBoardTalk::tcBoardTalk(std::ostream& stream) : m_stream(stream), m_below(stream.rdbuf()) {
    m_stream.rdbuf(this);
}

tcBoardTalk::~tcBoardTalk() {
    m_stream.rdbuf(m_below);
}

void tcBoardTalk::beginCommand() {
    const std::lock_guard lock(m_lock);
    m_newCommand = true;
    m_lines.clear();
}

std::map<std::string, double> tcBoardTalk::supplies() const {
    const std::lock_guard lock(m_lock);
    return m_supplies;
}

std::vector<std::string> tcBoardTalk::link() const {
    const std::lock_guard lock(m_lock);
    return m_link;
}

std::vector<std::string> tcBoardTalk::lines() const {
    const std::lock_guard lock(m_lock);
    return {m_lines.begin(), m_lines.end()};
}

tcBoardTalk::int_type tcBoardTalk::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof()))
        return traits_type::not_eof(character);
    const std::lock_guard lock(m_lock);
    const char text = traits_type::to_char_type(character);
    hear(text);
    return m_below->sputc(text);
}

std::streamsize tcBoardTalk::xsputn(const char* text, std::streamsize count) {
    const std::lock_guard lock(m_lock);
    std::for_each(text, text + count, [this](char character) { hear(character); });
    return m_below->sputn(text, count);
}

int tcBoardTalk::sync() {
    const std::lock_guard lock(m_lock);
    return m_below->pubsync();
}

void tcBoardTalk::hear(char character) {
    if (character == '\n') {
        const std::string line = trimmed(m_line);
        keep(line);
        m_lines.push_back(line);
        if (m_lines.size() > kLines)
            m_lines.pop_front();
        m_line.clear();
    } else if (m_line.size() < kLineBytes) {
        m_line += character;
    }
}

void tcBoardTalk::keep(const std::string& line) {
    double volts = 0;
    const auto colon = line.find(':');
    if (colon != line.npos && line.starts_with('V') &&
        readVolts(trimmed(line.substr(colon + 1)), volts)) {
        m_supplies[line.substr(0, colon)] = volts;
        return;
    }
    if (!speaksOfTheLink(line))
        return;
    if (m_newCommand)
        m_link.clear();
    m_newCommand = false;
    if (m_link.size() == kLinkLines)
        m_link.erase(m_link.begin());
    m_link.push_back(line);
}

namespace {

/// A line of the link that tells lanes.
struct tsLaneLine {
    tmLanes lanes;
    std::optional<unsigned> tries;
};

template<typename Number>
std::optional<Number> wholeNumber(std::string_view digits, int base) {
    Number value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, value, base);
    return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

tmLanes lanesIn(std::uint32_t mask) {
    tmLanes lanes;
    for (; mask != 0; mask &= mask - 1)
        lanes.push_back(static_cast<unsigned>(std::countr_zero(mask)));
    return lanes;
}

/// Takes "tries: N" away from the end of a text.
std::optional<unsigned> takeTries(std::string& text) {
    constexpr std::string_view kTries = "tries:";
    const auto at = text.find(kTries);
    if (at == text.npos)
        return std::nullopt;
    const std::string count = trimmed(std::string_view(text).substr(at + kTries.size()));
    text = trimmed(std::string_view(text).substr(0, at));
    return wholeNumber<unsigned>(count, 10);
}

std::optional<tsLaneLine> readLaneLine(const std::string& line) {
    const auto colon = line.find(':');
    if (colon == line.npos || !speaksOfTheLink(line.substr(0, colon)))
        return std::nullopt;
    std::string digits = trimmed(std::string_view(line).substr(colon + 1));
    const std::optional<unsigned> tries = takeTries(digits);
    if (digits.starts_with("0x"))
        digits.erase(0, 2);
    const auto mask = wholeNumber<std::uint32_t>(digits, 16);
    if (!mask)
        return std::nullopt;
    return tsLaneLine{lanesIn(*mask), tries};
}

} // namespace

std::optional<tmLanes> lanesOf(const std::string& line) {
    const auto read = readLaneLine(line);
    return read && !read->tries ? std::optional(read->lanes) : std::nullopt;
}

std::vector<tmLanes> lanesByAttempt(const std::vector<std::string>& link) {
    std::vector<tmLanes> attempts;
    std::optional<unsigned> lastTries;
    for (const std::string& line : link) {
        const auto read = readLaneLine(line);
        if (!read)
            continue;
        const bool anew = read->tries && lastTries && *read->tries <= *lastTries;
        if (read->tries)
            lastTries = read->tries;
        if (attempts.empty() || anew)
            attempts.push_back(read->lanes);
        else if (read->lanes.size() > attempts.back().size())
            attempts.back() = read->lanes;
    }
    return attempts;
}

std::optional<tmLanes> mostLanes(const std::vector<tmLanes>& attempts) {
    const auto best =
        std::max_element(attempts.begin(), attempts.end(),
                         [](const tmLanes& a, const tmLanes& b) { return a.size() < b.size(); });
    return best != attempts.end() ? std::optional(*best) : std::nullopt;
}

} // namespace camhost

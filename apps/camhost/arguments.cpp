#include "apps/camhost/arguments.h"

#include <charconv>
#include <iomanip>
#include <limits>
#include <sstream>
#include <utility>

#include "apps/camhost/errors.h"

namespace camhost {

namespace {

constexpr std::string_view kBlanks = " \t\r";

bool isControl(char c) {
    const auto code = static_cast<unsigned char>(c);
    return (code < ' ' && c != '\t' && c != '\r') || code == 0x7F;
}

void refuseControlCharacters(std::string_view line) {
    for (const char c : line) {
        if (isControl(c))
            throw tcCommandError("the line holds a control character, number " +
                                 std::to_string(static_cast<int>(c)) +
                                 "; a command is plain text: leave the character out");
    }
}

/// Takes one word, quotes removed.
/// \param at where it begins; afterwards, where it ends
std::string takeQuotedWord(std::string_view line, std::size_t& at) {
    std::string word;
    bool quoted = false;
    for (; at < line.size() && (quoted || kBlanks.find(line[at]) == kBlanks.npos); ++at) {
        if (line[at] == '"')
            quoted = !quoted;
        else
            word += line[at];
    }
    if (quoted)
        throw tcCommandError("the quote before \"" + word + "\" is not closed; end it with \"");
    return word;
}

std::string namesOf(std::span<const tsChoice> choices) {
    std::string names;
    for (const tsChoice& choice : choices)
        names += (names.empty() ? "" : ", ") + std::string(choice.name);
    return names;
}

std::string rangeText(std::int64_t lowest, std::int64_t highest) {
    return std::to_string(lowest) + " to " + std::to_string(highest);
}

} // namespace

std::string trimmed(std::string_view text) {
    constexpr std::string_view kSpace = " \t\r\n";
    const auto begin = text.find_first_not_of(kSpace);
    if (begin == text.npos)
        return {};
    return std::string(text.substr(begin, text.find_last_not_of(kSpace) - begin + 1));
}

tsLine splitLine(std::string_view line) {
    refuseControlCharacters(line);
    tsLine split;
    std::size_t afterCommand = 0;
    std::size_t at = 0;
    while (true) {
        at = std::min(line.find_first_not_of(kBlanks, at), line.size());
        if (at == line.size() || line[at] == '#')
            break;
        split.words.push_back(takeQuotedWord(line, at));
        if (split.words.size() == 1)
            afterCommand = at;
    }
    if (!split.words.empty())
        split.rest = trimmed(line.substr(afterCommand, at - afterCommand));
    return split;
}

std::string nameOf(std::span<const tsChoice> choices, int value) {
    for (const tsChoice& choice : choices) {
        if (choice.value == value)
            return std::string(choice.name);
    }
    return std::to_string(value);
}

bool parseNumber(std::string_view word, std::int64_t& value) {
    const bool negative = word.starts_with('-');
    if (negative || word.starts_with('+'))
        word.remove_prefix(1);
    int base = 10;
    if (word.starts_with("0x") || word.starts_with("0X")) {
        base = 16;
        word.remove_prefix(2);
    }
    std::uint64_t magnitude = 0; // unsigned: a second sign is no digit
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, magnitude, base);
    constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
    // The lowest number has no positive counterpart.
    if (error != std::errc() || stop != end || magnitude > (negative ? kMost + 1 : kMost))
        return false;
    value = static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
    return true;
}

std::string hexText(std::uint32_t value, int digits) {
    std::ostringstream text;
    text << "0x" << std::hex << std::uppercase << std::setw(digits) << std::setfill('0') << value;
    return text.str();
}

tcArguments::tcArguments(std::string command, std::string arguments, tsLine line)
    : m_command(std::move(command)), m_arguments(std::move(arguments)), m_line(std::move(line)) {}

std::string tcArguments::usage() const {
    return "usage: " + m_command + (m_arguments.empty() ? "" : " " + m_arguments);
}

void tcArguments::refuse(std::string_view name, const std::string& word,
                         const std::string& reason) const {
    throw tcCommandError(m_command + ": " + std::string(name) + " \"" + word + "\" " + reason +
                         "; " + usage());
}

std::string tcArguments::takeRest() {
    m_next = m_line.words.size();
    return m_line.rest;
}

std::string tcArguments::takeWord(std::string_view name) {
    if (!more())
        throw tcCommandError(m_command + ": " + std::string(name) + " is missing; " + usage());
    return m_line.words[m_next++];
}

std::int64_t tcArguments::takeNumber(std::string_view name, std::int64_t lowest,
                                     std::int64_t highest) {
    const std::string word = takeWord(name);
    std::int64_t value = 0;
    if (!parseNumber(word, value))
        refuse(name, word, "is not a number, decimal or after 0x hexadecimal");
    if (value < lowest || value > highest)
        refuse(name, word, "is out of range; it takes " + rangeText(lowest, highest));
    return value;
}

int tcArguments::takeInt(std::string_view name, int lowest, int highest) {
    return static_cast<int>(takeNumber(name, lowest, highest));
}

std::uint32_t tcArguments::takeWord32(std::string_view name) {
    return static_cast<std::uint32_t>(takeNumber(name, std::numeric_limits<std::int32_t>::min(),
                                                 std::numeric_limits<std::uint32_t>::max()));
}

bool tcArguments::takeSwitch(std::string_view name) {
    return takeChoice(name, kOffOn, 0, 1) != 0;
}

int tcArguments::takeChoice(std::string_view name, std::span<const tsChoice> choices, int lowest,
                            int highest) {
    if (choices.empty())
        return takeInt(name, lowest, highest);
    const std::string word = takeWord(name);
    for (const tsChoice& choice : choices) {
        if (choice.name == word)
            return choice.value;
    }
    std::int64_t value = 0;
    if (!parseNumber(word, value))
        refuse(name, word,
               "is not known; it takes " + namesOf(choices) + ", or a number from " +
                   rangeText(lowest, highest));
    if (value < lowest || value > highest)
        refuse(name, word, "is out of range; it takes " + rangeText(lowest, highest));
    return static_cast<int>(value);
}

void tcArguments::end() const {
    if (more())
        throw tcCommandError(m_command + ": unexpected argument \"" + m_line.words[m_next] +
                             "\"; " + usage());
}

} // namespace camhost

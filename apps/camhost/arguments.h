/// \file
/// The words of one command line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace camhost {

/// A line taken apart.
struct tsLine {
    std::vector<std::string> words; ///< the command, then its arguments, without quotes
    std::string rest;               ///< everything behind the command as it was typed, trimmed
};

/// Takes a line apart at blanks. Double quotes hold a word with blanks together; '#' at the
/// beginning of a word starts a comment.
/// \throws tcCommandError for a quote that is not closed or a control character
tsLine splitLine(std::string_view line);

/// \return the text without blanks and newlines before and behind it
std::string trimmed(std::string_view text);

/// A name for a number.
struct tsChoice {
    std::string_view name;
    int value = 0;
};

/// Names of a switch's two positions.
inline constexpr tsChoice kOffOn[] = {{"off", 0}, {"on", 1}};

/// \return the name of the value, or its decimal digits where it has none
std::string nameOf(std::span<const tsChoice> choices, int value);

/// Hands a command its arguments one by one, and says what is wrong with one.
///
/// Numbers are decimal or, after 0x, hexadecimal, with an optional sign. Every failure throws
/// `tcCommandError` with command, argument, reason and usage.
class tcArguments {
public:
    /// \param command   keyword of the command, for the texts of errors
    /// \param arguments what the command takes, as its help shows it
    tcArguments(std::string command, std::string arguments, tsLine line);

    [[nodiscard]] const std::string& command() const { return m_command; }
    [[nodiscard]] bool more() const { return m_next < m_line.words.size(); }
    [[nodiscard]] std::size_t count() const { return m_line.words.size() - 1; }

    /// \return everything behind the command as it was typed; takes all arguments
    std::string takeRest();

    /// \param name how the help calls the argument
    std::string takeWord(std::string_view name);
    std::int64_t takeNumber(std::string_view name, std::int64_t lowest, std::int64_t highest);
    /// Takes a number of the range of int.
    int takeInt(std::string_view name, int lowest, int highest);
    /// Takes a 32-bit word: 0 to 4294967295, or a negative number for its bit pattern.
    std::uint32_t takeWord32(std::string_view name);
    /// Takes "on" or "off", or 1 or 0.
    bool takeSwitch(std::string_view name);
    /// Takes one of the names, or any number from `lowest` to `highest`.
    int takeChoice(std::string_view name, std::span<const tsChoice> choices, int lowest,
                   int highest);

    /// Asks for the end of the line.
    void end() const;

    /// Refuses the argument taken last.
    /// \param reason what is wrong with it and what is allowed
    [[noreturn]] void refuse(std::string_view name, const std::string& word,
                             const std::string& reason) const;

private:
    [[nodiscard]] std::string usage() const;

    std::string m_command;
    std::string m_arguments;
    tsLine m_line;
    std::size_t m_next = 1;
};

/// \return the number, from -2^63 to 2^63 - 1, or false when the word is not one
bool parseNumber(std::string_view word, std::int64_t& value);

/// \return "0x" and upper-case hexadecimal digits, at least so many
std::string hexText(std::uint32_t value, int digits = 1);

} // namespace camhost

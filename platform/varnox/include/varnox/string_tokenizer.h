/// \file
/// Splits the arguments of a text command.
#pragma once

#include <string>

#include <varnox/export.h>

/// Yields the pieces of a text between separators; runs of separators count as one.
class VARNOX_API tcStringTokenizer {
public:
    /// \param text      what is split
    /// \param separator between the pieces
    tcStringTokenizer(std::string text, char separator);

    /// \return whether there is a token left
    [[nodiscard]] bool hasMoreTokens() const;

    /// \return the next token; empty when there is none
    std::string nextToken();

    /// Takes the next token as an integer: an optional sign, then decimal digits or 0x and
    /// hexadecimal digits; -2147483648 to 4294967295, values above 2147483647 as their bit pattern.
    /// \return false when there is no token or it is not such a number; `value` is then untouched
    bool nextInt(int& value);

private:
    std::string m_text;
    std::string::size_type m_position = 0;
    char m_separator;
};

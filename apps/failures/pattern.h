/// \file
/// What a line that a board prints looks like.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace failures {

/// A regular expression. Nothing changes it once it is made; copies share it.
class tcPattern {
public:
    tcPattern() = default; ///< fits nothing
    /// \param text ECMAScript's
    /// \throws std::runtime_error where it cannot be understood
    explicit tcPattern(const std::string& text);

    /// \return the number of groups
    [[nodiscard]] unsigned groups() const;
    /// \return whether it fits anywhere in a line
    [[nodiscard]] bool fits(const std::string& line) const { return in(line).has_value(); }
    /// \return what its groups hold where it fits first in a line; nothing where it does not fit
    [[nodiscard]] std::optional<std::vector<std::string>> in(const std::string& line) const;

private:
    // The standard library's type costs the compiler a second in each source that knows it.
    struct tsCompiled;
    std::shared_ptr<const tsCompiled> m_compiled;
};

} // namespace failures

/// \file
/// What the host application can be told to do.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "apps/camhost/arguments.h"

namespace camhost {

class tcCall;

/// One command.
struct tsCommand {
    using Run = std::function<std::string(tcCall&, tcArguments&)>;
    using Choices = std::function<std::vector<std::string>(tcCall&, std::size_t)>;
    using Saved = std::function<std::vector<std::string>(tcCall&)>;

    std::string group;     ///< heading that the help lists it under
    std::string name;      ///< keyword
    std::string arguments; ///< as the help shows them, for example "[MICROSECONDS]"; may be empty
    std::string summary;   ///< one line, with the unit in brackets
    std::string details;   ///< further lines of its help; may be empty
    std::vector<std::string> examples; ///< lines that can be typed as they stand

    /// Carries it out. \return the reply \throws tcCommandError where it cannot
    Run run;
    /// \return what may stand at the place of an argument, counted from 0; empty function: nothing
    ///         is known
    Choices choices{};
    bool takesFile = false; ///< its argument is a file of this machine
    /// \return a line for its help of what holds now, for example the bounds; empty function: none
    std::function<std::string(tcCall&)> now{};
    /// Command lines that bring the present setting back; empty function: it is no setting.
    Saved saved{};
    /// Place among the settings when they are loaded: what others depend on comes first.
    int order = 0;
    /// May stand in a file of settings; what has `saved` always may.
    bool isSetting = false;

    /// \return name and arguments: "exposure [MICROSECONDS]"
    [[nodiscard]] std::string usage() const;
};

/// All commands, by name.
class tcCommandTable {
public:
    /// \throws std::logic_error for a name that is taken
    void add(tsCommand command);

    /// \return null when there is none of that name
    [[nodiscard]] const tsCommand* find(const std::string& name) const;

    /// \return in the order of their groups and, in a group, of `add`
    [[nodiscard]] const std::vector<tsCommand>& commands() const { return m_commands; }

    /// \return the settings in the order in which they are loaded
    [[nodiscard]] std::vector<const tsCommand*> settings() const;

    /// \return the name that comes closest to a mistyped one; empty when none is close
    [[nodiscard]] std::string similarTo(const std::string& name) const;

    /// \param remark on a command, to stand behind its summary; empty for none
    /// \return the list of all commands, a line each
    [[nodiscard]] std::string
    help(const std::function<std::string(const tsCommand&)>& remark) const;

private:
    std::vector<tsCommand> m_commands;
};

/// \return the table with every command of the program
tcCommandTable makeCommandTable();

} // namespace camhost

/// \file
/// The program's command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/camhost/errors.h"

namespace camhost {

/// What the command line asks for.
struct tsOptions {
    std::string plugin;  ///< empty: the only one that is installed
    std::string spi;     ///< empty: what the plug-in's table tells
    bool list = false;   ///< tell what there is, and nothing else
    std::string workdir; ///< empty: where the program was started
    std::string log;     ///< file for the board's log; "-": standard error; empty: standard output
    std::vector<std::string> commands;
    std::string script; ///< empty: none; "-": standard input
    bool keepGoing = false;
    bool echo = false;
    bool json = false; ///< replies as JSON objects, nothing else on standard output
    bool interactive = false;
    std::string listen; ///< [ADDRESS:]PORT; empty: no line server

    /// \return whether it says what to do, so that nobody needs to be asked
    [[nodiscard]] bool saysWhatToDo() const {
        return !commands.empty() || !script.empty() || !listen.empty();
    }
};

/// Reads the command line.
/// \param status what the program is to end with when there is nothing more to do: help or version
///               was printed, or the line was not understood and that was reported
/// \return nothing when there is nothing more to do
std::optional<tsOptions> parseOptions(int argc, const char* const* argv, teExit& status);

} // namespace camhost

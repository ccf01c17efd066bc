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
    std::string plugin;
    std::string spi;
    std::string workdir; ///< empty: where the program was started
    std::string log;     ///< file for the board's log; "-": standard error; empty: standard output
    std::vector<std::string> commands;
    std::string script; ///< empty: none; "-": standard input
    bool keepGoing = false;
    bool echo = false;
    bool interactive = false;
    std::string listen; ///< [ADDRESS:]PORT; empty: no line server

    bool diagnose = false; ///< examine the head and end
    bool power = false;    ///< with `diagnose`: bring it up
    bool json = false;     ///< with `diagnose`: for programs

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

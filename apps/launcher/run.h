/// \file
/// The run of the program: start it, wait for it.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

#include "apps/launcher/command_line.h"
#include "apps/launcher/preparation.h"

/// How the program ended.
struct tsEnd {
    pid_t process = 0;
    int error = 0;                      ///< errno when it could not be started
    int status = 0;                     ///< as `waitFor` gives it
    std::optional<std::string> printed; ///< empty: nobody kept it
};

/// Starts the program and waits for its end. What it prints is kept for the report.
[[nodiscard]] tsEnd runProgram(const tsArguments& arguments, const tcPreparation& preparation);

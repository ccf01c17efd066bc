/// \file
/// The traces that the program's processes left: what happened on the head, event by event.
#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

/// The trace of one process.
struct tsTrace {
    pid_t process = 0;
    std::string text;
};

/// \param folder where the processes left them \param program the process that was started
/// \return those of the processes that used the head, the program's own first; one without text
///         where none did
[[nodiscard]] std::vector<tsTrace> tracesIn(const std::filesystem::path& folder, pid_t program);

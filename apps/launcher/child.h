/// \file
/// The program that runs on the virtual head.
#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

#include "apps/launcher/kept_output.h"

/// What the program's process is told, by environment variables. Empty: nothing.
struct tsOrders {
    std::string preload;
    std::string scenario;
    std::string time;
    std::string log;
    std::string trace;
    std::string report;
    std::string verdict;
    std::string delivered;
    std::string silences;
    std::string frames;
    std::string maxFrames;
    std::string record;
    std::string replay;
    std::string claims;
    bool hardware = false;
    std::string live;
    bool stopped = false;
};

/// \return the libraries that stand before the program's own: the head's, and those before it
/// \throws std::runtime_error when the head's library cannot be found
std::string preloadList();

/// Starts the program. Wishes to end it are passed on to it from now on.
/// \param program with its arguments
/// \param folder  its working directory
/// \param output  keeps what it prints; null: nobody does
/// \param child   the process, also when the program could not be started
/// \return 0 or errno
int startProgram(const std::vector<std::string>& program, const std::filesystem::path& folder,
                 const tsOrders& orders, tcKeptOutput* output, pid_t& child);

/// \return the program's status; 128 and the signal that ended it, as shells have it
int waitFor(pid_t child);

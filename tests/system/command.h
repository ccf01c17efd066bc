/// \file
/// Runs programs as a user does, from a shell.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// What a command left.
struct tsOutcome {
    int status = -1;    ///< exit status; 128 plus the signal that killed it
    std::string output; ///< standard output and standard error in the order of their lines
};

/// \param command for the shell
tsOutcome runCommand(const std::string& command);

/// The launcher on a healthy head. \param options of the launcher \param program with its arguments
tsOutcome runOnHead(const std::string& options, const std::string& program);

/// camhost with the plug-in. \return command line
std::string camhostCommand(const std::string& arguments);

/// \return the file's content; empty when there is none
std::string contentOf(const std::filesystem::path& path);
/// \return the text's lines, without their ends
std::vector<std::string> linesOf(const std::string& text);

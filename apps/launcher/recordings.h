/// \file
/// The recordings of a run: FILE, FILE.2, ... one a process.
#pragma once

#include <string>

/// Removes those of an earlier run, which would be taken for this one's. An empty path is none.
/// \throws tcUsageError when the first cannot be written
void clearRecordings(const std::string& path);

/// \throws tcUsageError when one is no recording
void checkRecordings(const std::string& path);

/// \param claims where the processes that play leave a file each, named as the recordings are
/// \return a line for each recording that no process of the program has played
std::string unplayed(const std::string& path, const std::string& claims);

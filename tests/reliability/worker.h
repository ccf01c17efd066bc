/// \file
/// Work in child processes, so that a piece that kills its process is known by its number.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// What became of the pieces.
struct tsWorkResult {
    std::map<std::size_t, std::vector<std::string>> complaints; ///< of each piece that had any
    std::map<std::size_t, std::string> deaths;                  ///< how each of these pieces died
    std::size_t done = 0;                                       ///< pieces that came to their end
    std::vector<std::string> ends; ///< complaints of whole children, for example about leaks
};

/// Runs pieces 0 to `count` - 1 one after the other in a child process, and goes on behind a piece
/// that killed it in another. A piece that hangs (10 minutes of real time) is killed.
/// \param piece returns what is wrong, nothing when all is well
/// \param end   called in each child that lives to its end; returns what is wrong
tsWorkResult workInChildren(std::size_t count,
                            const std::function<std::vector<std::string>(std::size_t)>& piece,
                            const std::function<std::vector<std::string>()>& end);

/// \file
/// Files and folders of a run.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "sim/virtual_head.h"

/// A directory that is removed with everything in it.
class tcTemporaryFolder {
public:
    /// \throws std::runtime_error when it cannot be made
    tcTemporaryFolder();
    tcTemporaryFolder(const tcTemporaryFolder&) = delete;
    tcTemporaryFolder& operator=(const tcTemporaryFolder&) = delete;
    ~tcTemporaryFolder();
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// Makes `to` with links to everything in `from`, the scenario's files in the place of those they
/// replace.
void layOut(const std::filesystem::path& from, const std::filesystem::path& to,
            const std::vector<sim::tsReplacedFile>& replaced);

/// \return the path from the root; an empty one as it is
std::string absolute(const std::string& path);

/// A file that cannot be written is told before the program runs, not after. An empty path is none.
/// \throws tcUsageError
void startFile(const std::string& path);

/// \throws std::runtime_error when the file cannot be written
void writeFile(const std::string& path, const std::string& text);

std::string contentOf(const std::filesystem::path& path);

/// \return what the program's processes wrote, each into a file of its own
std::set<std::filesystem::path> filesOf(const std::filesystem::path& folder,
                                        const std::string& prefix);

/// \return the content of all of them
std::string allOf(const std::filesystem::path& folder, const std::string& prefix);

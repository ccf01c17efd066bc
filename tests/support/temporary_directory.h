/// \file
/// A working directory of a test's own.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// Makes an empty directory, is the process's working directory for as long as it lives, and is
/// removed with everything in it.
class tcTemporaryDirectory {
public:
    tcTemporaryDirectory();
    ~tcTemporaryDirectory();
    tcTemporaryDirectory(const tcTemporaryDirectory&) = delete;
    tcTemporaryDirectory& operator=(const tcTemporaryDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

    /// Writes a file, making its folders. \param name relative to the directory
    void write(const std::string& name, std::string_view text) const;

private:
    std::filesystem::path m_before;
    std::filesystem::path m_path;
};

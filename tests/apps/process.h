/// \file
/// Runs the host application as a person does.
#pragma once

#include <string>
#include <vector>

/// What a program left behind.
struct tsFinished {
    int status = -1; ///< exit status, or minus the signal that ended it
    std::string out; ///< standard output
    std::string err; ///< standard error
};

/// Runs a program to its end.
/// \param command the program and its arguments
/// \param input   on its standard input
tsFinished run(const std::vector<std::string>& command, const std::string& input = {});

/// Runs the host application to its end.
/// \param arguments of the command line
/// \param input     on its standard input
tsFinished runCamhost(const std::vector<std::string>& arguments, const std::string& input = {});

/// \return the program with the emulator it runs under, if any, and the arguments
std::vector<std::string> camhostCommand(const std::vector<std::string>& arguments);

/// A folder of a test's own, gone with the object.
class tcFolder {
public:
    tcFolder();
    tcFolder(const tcFolder&) = delete;
    tcFolder& operator=(const tcFolder&) = delete;
    ~tcFolder();

    /// Writes a file. \return its path
    std::string file(const std::string& name, const std::string& text) const;
    /// \return the text of a file in the folder
    [[nodiscard]] std::string read(const std::string& name) const;
    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

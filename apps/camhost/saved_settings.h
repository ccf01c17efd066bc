/// \file
/// What `save` writes, and `load` and `diff` read: commands that bring the settings back.
#pragma once

#include <string>
#include <vector>

#include "apps/camhost/call.h"

namespace camhost {

/// \return the command lines that bring the present settings back, in the order they have to come
std::vector<std::string> presentSettings(tcCall& call);

/// One line of a file of settings.
struct tsSettingLine {
    int number = 0; ///< counted from 1
    std::string text;
};

/// Reads the lines of a file of settings that hold a command.
/// \throws tcCommandError when it cannot be read, or holds a command that is no setting
std::vector<tsSettingLine> readSettings(const tcCommandTable& table, const std::string& file);

/// Writes a file of settings. It is either there as a whole or as it was.
/// \throws tcCommandError when it cannot be written
void writeSettings(const std::string& file, const std::vector<std::string>& lines);

/// \return the part of a line that says which setting it is, for example "mirror h"
std::string settingKey(const std::string& line);

} // namespace camhost

/// \file
/// Files that are read whenever a host asks for them.
#pragma once

#include <string>

/// Opening a pipe waits for whoever writes to it, with the sensor's or the board's lock held. A
/// pipe is therefore no file to read here; it counts as one that is missing.
/// \return the file's name; empty, which no file has, when it names a pipe
std::string unlessPipe(const std::string& fileName);

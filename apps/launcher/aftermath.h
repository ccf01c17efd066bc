/// \file
/// What is made of a run afterwards: summary, pictures, waveform and report.
///
/// All of it throws std::runtime_error where a file cannot be read or written.
#pragma once

#include <map>
#include <sys/types.h>
#include <vector>

#include "apps/launcher/command_line.h"
#include "apps/launcher/preparation.h"
#include "apps/launcher/run.h"
#include "sim/base/thumbnail.h"

/// Pictures of the run, small, by the process that made them.
using tcPictures = std::map<pid_t, std::vector<sim::tsThumbnail>>;

/// Says what the head saw: on standard error, or where the command line wants it.
void writeSummary(const tsArguments& arguments, const tcPreparation& preparation, const tsEnd& end);

/// Writes a picture of each recorded frame, where pictures are asked for.
[[nodiscard]] tcPictures writePictures(const tsArguments& arguments, tcPreparation& preparation);

/// Writes the value-change dump and the page, where they are asked for: one file a process. Prints
/// the overview of the first process, where it is asked for.
void writeAfterwards(const tsArguments& arguments, const tcPreparation& preparation,
                     const tsEnd& end, const tcPictures& pictures);

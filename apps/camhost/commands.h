/// \file
/// The program's commands, by group.
#pragma once

#include "apps/camhost/command_table.h"

namespace camhost {

void addCaptureCommands(tcCommandTable& table);
void addTimingCommands(tcCommandTable& table);
void addGeometryCommands(tcCommandTable& table);
void addPixelCommands(tcCommandTable& table);
void addIdentityCommands(tcCommandTable& table);
void addDiagnoseCommand(tcCommandTable& table);
void addRegisterCommands(tcCommandTable& table);
void addWatchCommand(tcCommandTable& table);
void addSettingsCommands(tcCommandTable& table);
void addPinCommands(tcCommandTable& table);
void addProgramCommands(tcCommandTable& table);

} // namespace camhost

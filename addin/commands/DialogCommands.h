// The two buttons beside the archive commands: the info dialog and the settings dialog.
#pragma once

#include "addin/commands/ArchiveCommands.h"

// Shows the info dialog with the host's name and version.
void OnAbout(const CommandContext& context);
// Shows the settings dialog over freshly loaded settings and saves them into the per-user layer
// when OK changed them.
void OnSettings();

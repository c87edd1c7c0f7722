// The module that holds the add-in's resources (string table, dialogs, version). The DLL entry
// stores its own handle; until then it is the module this code was linked into.
#pragma once

#include <windows.h>

HINSTANCE ModuleInstance() noexcept;
void SetModuleInstance(HINSTANCE instance) noexcept;

// Where the add-in keeps its configuration in the registry: the machine-wide key written at
// registration and the per-user key below it, named after the user. The settings store reads and
// writes both; the user-interface text look-up reads the language from them as well.
#pragma once

#include <string>

// "Software\talvorn\Talvorn.DorvaneAddin"
std::wstring AddinMachineKeyPath();
// The machine path followed by "\<user name>"; empty when the user name cannot be had.
std::wstring AddinUserKeyPath();

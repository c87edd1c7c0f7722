// The info dialog (resource 111): what is installed, for the user and the help desk. The product
// name and the module's file version from its version resource, the module's path, the host and
// its version, the log file's path, the storage targets in effect and whether the settings are
// locked by the administrator.
#pragma once

#include <windows.h>

#include <string>

// What the caller knows of its host; an automation client outside Office passes its own process's
// name and an empty version.
struct InfoDialogHost {
    std::wstring name;     // e.g. "Microsoft Word", "Outlook"
    std::wstring version;  // e.g. "16.0.4266.1001"
};

// Shows the modal dialog without an owner; reads the settings itself.
void ShowInfoDialog(const InfoDialogHost& host) noexcept;

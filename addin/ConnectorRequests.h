// What the connector automation object does for its callers, once their arguments are unpacked:
// archive named files, open the settings or info dialog, delete an archived mail from the running
// Outlook. Refusals the caller should read (a file that is not there, locked settings, no Outlook)
// are thrown as MethodFailure with an English sentence; every other failure is logged and answered
// with false, as the archive commands answer theirs with a message box.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/PropertyMap.h"

// The start-application number the connector is told: the Office host the object was created in
// (a macro in Word, say), or 7 for any other program (a script host, the connector itself).
// `executable` is the process's file name without its folder.
int32_t HostKindOfProcess(const wchar_t* executable) noexcept;

// The file name (without its folder) of the calling process, "cscript.exe" for a script.
std::wstring CurrentProcessName();

// Writes a hand-off for each file, lets the user pick a storage target when several are
// configured, and starts the connector. True when the connector was started; false when the
// hand-offs could not be written, the user cancelled the choice or the shell found no connector.
bool ArchiveFiles(const std::vector<std::wstring>& files, int32_t hostKind);

// Shows the settings dialog and saves what the user changed. True when something was saved.
bool EditSettings();

// Shows the info dialog for the calling process.
void ShowInfo();

// Deletes the archived item `properties` name (its PR_ENTRYID and PR_STORE_ENTRYID at least) from
// the Outlook running on this desktop. True when it was deleted; the reason why not is logged.
bool DeleteArchivedMail(const PropertyMap& properties);

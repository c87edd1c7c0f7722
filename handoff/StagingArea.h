// The staging area under the user's temporary directory: one fresh folder per archived file,
// "<temp>td_temp_inbox\td_data_<tick count>\". The connector imports from there and deletes the
// folders; the add-in only marks the ones it gives up with an empty "__freetodelete__.bin".
#pragma once

#include <cstddef>

#include "common/HandOffList.h"

// Makes a new staging folder and writes its full path, with a trailing backslash, into `buffer`
// of `capacity` characters. Returns 1, or 0 when the temporary path cannot be had (or the path
// does not fit the buffer).
int CreateStagingFolder(wchar_t* buffer, size_t capacity) noexcept;

// True when `path` begins with "<temp>td_temp_inbox\td_data_" (exact, case-sensitive).
bool IsInStagingArea(const wchar_t* path) noexcept;

// Puts the empty release marker into `folder` (given without a trailing backslash). Reports
// nothing: a folder that is gone needs no marker.
void MarkFreeToDelete(const wchar_t* folder) noexcept;

// Marks the staging folder of every hand-off in `list` free to delete, in order.
void ReleaseStagedFolders(const HandOffList& list) noexcept;

// Drops the characters \ / : * ? " < > | from a file name held in a buffer of 260 characters.
void SanitizeFileName(wchar_t* name) noexcept;

// The hand-off document: one small XML file per staged file, written into its staging folder as
// "td_data_<id>.xml", that tells the connector which file to import, with which properties, and
// which folder (and, for mails, which item) to clean up afterwards.
#pragma once

#include "common/HandOffList.h"
#include "common/PathBuffer.h"
#include "common/PropertyMap.h"

// Writes the hand-off for the staged file `path`. `folder`, when given, names a path inside the
// staging folder to use instead of `path` (for files that lie outside the staging area). Appends
// the folder name to `list`, also when the document then cannot be opened. Returns 1 or 0.
// Throws ComError or std::bad_alloc when memory runs out.
int WriteHandOff(const wchar_t* path, const wchar_t* folder, const PropertyMap* map,
                 HandOffList& list, int deleteMail);

// Writes the hand-offs of `count` staged files in order, each with its own map when `maps` is
// given; stops at the first failure (0). A count below 1 succeeds at once.
int WriteHandOffs(const PathBuffer* paths, const PropertyMap* maps, int count, HandOffList& list,
                  int deleteMail);

// Writes hand-offs for arbitrary files: `files` holds `count` NUL-terminated paths one after the
// other, and `map` (or none) goes into every hand-off. A file outside the staging area is not
// copied; it gets a fresh, empty staging folder for its hand-off. The first file that does not
// exist ends the walk with success.
int WriteHandOffsForFiles(const wchar_t* files, int count, const PropertyMap* map,
                          HandOffList& list, int deleteMail);

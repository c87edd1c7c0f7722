// Stages the active Word document, Excel workbook or PowerPoint presentation: makes sure it exists
// as a file, writes a complete copy of it into a fresh staging folder and collects its document
// properties. The three hosts follow one procedure; what differs between them is one row of a
// table (member names, log texts, how the copy is written).
//
// Naming of the staged copy:
// - A saved document is staged under its own name in a folder of its own, so two archives of the
//   same document never meet.
// - A document that has never been saved, is read-only, or lives in the staging area (the copy of
//   an earlier archive) is first saved into the new staging folder as
//   "dorvane_<time in hex>.<ext>"; it then lies where its staged copy would, so the copy takes the
//   distinct name "<time in hex>_dorvane_<...>.<ext>" and is written as a file of its own.
// - Word writes with SaveAs(file, format omitted so that the document keeps its own format,
//   LockComments false, no password, AddToRecentFiles false): the copy is what Word saves, and
//   staging folders stay out of the recent-files list. Since SaveAs moves the document to the
//   file it writes, a document with a file of its own is saved back to that file afterwards.
#pragma once

#include <oaidl.h>

#include <cstdint>

#include "common/PathBuffer.h"
#include "common/PropertyMap.h"

// Each returns S_OK with the staged file's full path in `path` and the document's properties in
// `map`, or the failing status (logged). Throws on out of memory.
HRESULT SaveWordDocument(IDispatch* application, PathBuffer& path, PropertyMap& map,
                         int32_t majorVersion);
HRESULT SaveExcelDocument(IDispatch* application, PathBuffer& path, PropertyMap& map,
                          int32_t majorVersion);
HRESULT SavePowerPointDocument(IDispatch* application, PathBuffer& path, PropertyMap& map,
                               int32_t majorVersion);

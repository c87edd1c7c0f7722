// Captures the items selected in Outlook's active explorer: each one is classified by its message
// class, its properties are read through MAPI (a note's through the object model) and it is
// written as a message file into a staging folder of its own.
#pragma once

#include <oaidl.h>

#include <cstdint>

#include "common/PathBuffer.h"
#include "common/PropertyMap.h"

// The number of selected items; kNothingSelected when there is none, or the failing status.
HRESULT GetOutlookDocumentCount(IDispatch* application);

// Stages up to `count` selected items: `paths[i]` gets the message file of the item at zero-based
// position i, `maps[i]` its properties. Stops at the first item that fails: kNothingSelected,
// kUnsupportedItem, E_OUTOFMEMORY or the failing status. May throw on out of memory.
HRESULT SaveOutlookDocument(IDispatch* application, PathBuffer* paths, PropertyMap* maps,
                            int32_t count);

// Stages one item (the one open in a window) as item number 0, the way a selected item is staged.
HRESULT SaveOutlookItem(IDispatch* application, IDispatch* item, PathBuffer& path,
                        PropertyMap& map);

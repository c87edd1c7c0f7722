// Collects an Office document's properties (its CustomDocumentProperties or
// BuiltInDocumentProperties collection, read late bound) into the PropertyMap that travels with
// the archived file. Texts, whole numbers and dates are collected; a date also gives a
// "<NAME>_DATETIME" entry with the time. Every other kind of value is left out.
#pragma once

#include <oaidl.h>

#include "common/PropertyMap.h"

// `collection` holds the collection's IDispatch; `builtIn` is 0 for the custom collection. Built-in
// properties are taken only from a fixed list and named "MSO_<NAME>". Nothing fails the capture:
// an unreadable property is logged and left out. Throws on out of memory.
void CopyProperties(const VARIANT* collection, int builtIn, PropertyMap* map);

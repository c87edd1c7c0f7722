// A document's own properties, read from its file the way Word, Excel and PowerPoint report them
// through BuiltInDocumentProperties and CustomDocumentProperties: Office's built-in names
// ("Author", "Creation date", ...) and the custom properties with their names, each typed as
// Office types it (text VT_BSTR, whole number VT_I4, other number VT_R8, date VT_DATE in local
// time, yes/no VT_BOOL).
//
// Packages (.docx, .xlsm, .potx, ...) carry them in their core, extended and custom property
// parts, found through the package's relationships; the older binary formats (.doc, .xls, .ppt)
// in the summary-information property sets of the compound file. Which kind a file is follows
// from its content, not its name.
#pragma once

#include <string>
#include <vector>

#include "common/Variant.h"
#include "docprops/ZipPackage.h"

struct DocumentFileProperty {
    std::wstring name;
    Variant value;
};

struct DocumentFileProperties {
    // Office's whole built-in vocabulary in Office's order; a property the file does not hold has
    // an empty value, as Office keeps it.
    std::vector<DocumentFileProperty> builtIn;
    // In the file's order.
    std::vector<DocumentFileProperty> custom;

    // Whether the file held any property at all.
    bool Empty() const;
};

// Throws DocumentFileError when the file cannot be read, is neither a package nor a compound
// file, or is damaged; its message says which, in words.
DocumentFileProperties ReadDocumentFileProperties(const std::wstring& path);

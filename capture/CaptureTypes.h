// The vocabulary the captures share with the commands that call them: the Outlook capture's two
// private statuses and the lists the attachment capture fills.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "common/PropertyMap.h"

// Private statuses of the Outlook capture.
inline constexpr HRESULT kNothingSelected = static_cast<HRESULT>(0x80044302);
inline constexpr HRESULT kUnsupportedItem = static_cast<HRESULT>(0x80044303);

// The names under which an Outlook item's own identifiers travel with it: captured from the item,
// and read back to find it again when an archived mail is deleted.
inline constexpr wchar_t kEntryIdName[] = L"PR_ENTRYID";
inline constexpr wchar_t kStoreEntryIdName[] = L"PR_STORE_ENTRYID";

// One record per attachment, with the names of common/AttachmentRecord.h: name, size, hidden flag
// and key; the choice dialog adds the selected mark to the records the user chose.
using AttachmentList = std::vector<PropertyMap>;
// Full paths of saved attachment files, each in its own staging folder.
using FileList = std::vector<std::wstring>;

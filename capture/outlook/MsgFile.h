// Writes an Outlook item as a message file (an OLE compound file of the message's MAPI properties)
// into a fresh staging folder, named "dorvane_<item number>_<time in hex>.msg".
#pragma once

#include <oaidl.h>
#include <mapidefs.h>

#include <cstdint>
#include <functional>

#include "common/PathBuffer.h"

// SaveToMSG's and SaveToMSG_SMIME's status when no file name could be made.
inline constexpr HRESULT kNoMsgFileName = 1;

// The clock the names are made with: seconds since 1970 (UTC, low 32 bits), and a wait.
struct MsgNameClock {
    std::function<uint32_t()> now;
    std::function<void(DWORD milliseconds)> sleep;
};
MsgNameClock SystemClock();

// Names a file "<folder>dorvane_<item number>_<time>.msg" that does not exist yet: while one of
// that name does, waits 50 ms and takes the time again, so it waits for the next second. `folder`
// ends with a backslash. False when the name does not fit `capacity`.
bool MakeMsgFileNameIn(const wchar_t* folder, int32_t itemNumber, const MsgNameClock& clock,
                       wchar_t* buffer, size_t capacity);

// The same in a new staging folder. False when there is no staging folder.
bool MakeMsgFileName(wchar_t* buffer, size_t capacity, int32_t itemNumber);

// Copies `source`, recipients and attachments included, into a new message file. S_OK with its
// path in `path`; on failure the half-written file's folder is marked free to delete.
// kNoMsgFileName when no name could be made.
HRESULT SaveToMSG(IMessage* source, PathBuffer& path, int32_t itemNumber);

// Has Outlook write the mail through the item's own SaveAs, in its default format. The path is
// handed back whatever Outlook answers; 0, or kNoMsgFileName when no name could be made.
HRESULT SaveToMSG_SMIME(IDispatch* mailItem, PathBuffer& path, int32_t itemNumber);

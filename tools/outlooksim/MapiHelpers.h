// Owners for what the simulated MAPI hands out, and the few conversions the simulated Outlook
// needs in more than one place.
#pragma once

#include <windows.h>
#include <imessage.h>
#include <mapix.h>
#include <mapiutil.h>

#include <memory>
#include <string>
#include <vector>

namespace outlooksim {

struct MapiFree {
    void operator()(void* buffer) const noexcept { MAPIFreeBuffer(buffer); }
};
// A buffer from MAPIAllocateBuffer (with whatever is allocated "more" on it).
template <class T>
using MapiBuffer = std::unique_ptr<T, MapiFree>;

struct MsgSessionClose {
    void operator()(_MSGSESS* session) const noexcept { CloseIMsgSession(session); }
};
// A message session of OpenIMsgSession, closed with CloseIMsgSession.
using MsgSession = std::unique_ptr<_MSGSESS, MsgSessionClose>;

// A new message session on the default allocator; null when it cannot be opened.
MsgSession OpenMsgSession();

std::string Narrow(const std::wstring& text, UINT codePage = CP_ACP);
std::wstring Wide(const std::string& text, UINT codePage = CP_UTF8);
std::wstring HexText(const BYTE* bytes, size_t count);

// Interface and CLSID values the simulated Outlook uses.
extern const IID kIidMessage;
extern const CLSID kClsidMailMessage;

}  // namespace outlooksim

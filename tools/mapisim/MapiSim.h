// The simulated mapi32.dll's own exports, beside the MAPI functions it stands in for: counts that
// let a test or a demo check that a program gave back every MAPI buffer, object and message
// session it took. Real MAPI has none of these; only code that knows it runs on the simulator
// (tests, tools) may call them.
#pragma once

#include <windows.h>

extern "C" {
// MAPI buffers not yet freed: those from MAPIAllocateBuffer and those linked to them by
// MAPIAllocateMore, each counted once.
ULONG STDAPICALLTYPE MapiSimLiveBuffers();
// Objects of the simulator still referenced: messages, attachments, tables and property streams.
ULONG STDAPICALLTYPE MapiSimLiveObjects();
// Message sessions opened by OpenIMsgSession and not yet closed.
ULONG STDAPICALLTYPE MapiSimLiveSessions();
}

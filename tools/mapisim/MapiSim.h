// The simulated mapi32.dll, for machines without Outlook's MAPI (Wine's own mapi32 has no message
// sessions). A program finds it beside itself when Wine prefers it to the built-in module
// (WINEDLLOVERRIDES="mapi32=n,b"); it exports the real module's functions by their ordinals.
//
// What it models:
// - MAPIAllocateBuffer, MAPIAllocateMore and MAPIFreeBuffer with the chain of linked buffers:
//   freeing a first buffer frees every buffer allocated "more" on it; a linked buffer freed on
//   its own stays until then, and that call, a second free and a foreign pointer are counted as
//   bad frees instead of corrupting the heap. HexFromBin (narrow, upper-case),
//   MAPIGetDefaultMalloc (the process heap), OpenStreamOnFile (a file stream).
// - OpenIMsgSession, CloseIMsgSession and OpenIMsgOnIStg: an IMessage on a structured storage
//   that reads the Outlook message file layout when opened and writes it on SaveChanges
//   (committing the storage unless IMSG_NO_ISTG_COMMIT): the property stream, string, binary and
//   GUID substreams, recipient and attachment storages, and the named-property map with its GUID,
//   entry, string and hash streams. Properties of the types PT_I2, PT_LONG, PT_R4, PT_DOUBLE,
//   PT_CURRENCY, PT_APPTIME, PT_BOOLEAN, PT_I8, PT_SYSTIME, PT_STRING8, PT_UNICODE, PT_CLSID and
//   PT_BINARY, and the multi-valued forms of all but PT_BOOLEAN (fixed-size values in one
//   stream, strings and binaries in a stream each with a stream of lengths), with conversion
//   between the two string types on request.
// - GetProps answers values longer than 32 KiB with PT_ERROR and MAPI_E_NOT_ENOUGH_MEMORY, as a
//   store does; OpenProperty gives an IStream over any string or binary value (strings end with
//   their terminating zero), writable with MAPI_MODIFY or MAPI_CREATE and stored on Commit.
// - GetIDsFromNames (MAPI_CREATE honoured; an unknown name without it gives PROP_TAG(PT_ERROR, 0)
//   and MAPI_W_ERRORS_RETURNED), GetNamesFromIDs, recipient and attachment tables as snapshots
//   (QueryRows forward, SetColumns, SeekRow), ModifyRecipients, CreateAttach, OpenAttach,
//   DeleteAttach, SetReadFlag, and CopyTo of a whole message (properties with named ones mapped by
//   name, recipients, attachments) onto any IMessage.
// - Attached messages: OpenProperty(PR_ATTACH_DATA_OBJ, IID_IMessage) on an attachment opens its
//   embedded message (MAPI_CREATE makes one), saved into the attachment by SaveChanges and into
//   the file as the attachment's PR_ATTACH_DATA_OBJ storage, with the file's named properties.
//
// What it does not model: OLE attachments held as storages (files holding them read without
// that value), PT_OBJECT properties other than the embedded message, restrictions, sorting,
// notifications and bookmarks on tables, CopyProps, SubmitMessage, the properties a store computes
// (PR_DISPLAY_TO and the like are kept as set), and the deletion of OpenStreamOnFile's unique files
// on release. CloseIMsgSession does not release the session's messages; it only makes their
// SaveChanges fail. No other MAPI32 function (MAPIInitialize, MAPILogonEx, address books) is here.
//
// Beside the MAPI functions it exports counts that let a test or a demo check that a program
// gave back every MAPI buffer, object and message session it took. Real MAPI has none of these;
// only code that knows it runs on the simulator (tests, tools) may call them.
#pragma once

#include <windows.h>

extern "C" {
// MAPI buffers not yet freed: those from MAPIAllocateBuffer and those linked to them by
// MAPIAllocateMore, each counted once.
ULONG STDAPICALLTYPE MapiSimLiveBuffers();
// Calls of MAPIFreeBuffer with a buffer allocated "more" on another, one already freed, or a
// pointer that never was a MAPI buffer.
ULONG STDAPICALLTYPE MapiSimBadFrees();
// Objects of the simulator still referenced: messages, attachments, tables and property streams.
ULONG STDAPICALLTYPE MapiSimLiveObjects();
// Message sessions opened by OpenIMsgSession and not yet closed.
ULONG STDAPICALLTYPE MapiSimLiveSessions();

// Called with the name of each MAPI function and method a program calls (not the simulator's
// calls to itself, nor MAPIFreeBuffer, AddRef, Release and QueryInterface) before it runs; a
// failure it returns is the call's answer. Null removes it. For injecting failures anywhere.
using MapiSimCallHook = HRESULT(STDAPICALLTYPE*)(const wchar_t* call);
void STDAPICALLTYPE MapiSimSetCallHook(MapiSimCallHook hook);
}

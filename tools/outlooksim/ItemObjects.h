// What the simulated Outlook and the simulated MAPI library (tools/rdosim) both build over an
// item's MAPI message: its values read by automation, its message file, and its attachments.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <memory>
#include <string>
#include <vector>

#include "officesim/FakeDispatch.h"
#include "officesim/FakeOfficeHost.h"
#include "outlooksim/MapiHelpers.h"

namespace outlooksim {

// Not in the MinGW headers: the attachment flag a formatted body's inline pictures carry.
constexpr ULONG kPrAttachmentHidden = PROP_TAG(PT_BOOLEAN, 0x7FFE);

// One property of a message or attachment; null when it is missing or too long for GetProps.
MapiBuffer<SPropValue> PropertyOf(IMAPIProp* object, ULONG tag);
// A text or binary property, read through a stream when it is too long for GetProps (a text
// without its terminating zero).
std::wstring TextOf(IMAPIProp* object, ULONG tag);
std::string BytesOf(IMAPIProp* object, ULONG tag);
// Outlook's dates are local times; a date it does not have is 1 January 4501.
DATE DateOf(IMAPIProp* object, ULONG tag);
// The binary property as upper-case hexadecimal, as Outlook shows entry ids ("" when missing).
std::wstring HexOf(IMAPIProp* object, ULONG tag);

HRESULT PutText(VARIANT* result, const std::wstring& text);
HRESULT PutObject(VARIANT* result, IDispatch* object);
bool IsOmitted(const VARIANT& value);

HRESULT WriteBytes(const std::string& bytes, const std::wstring& path);
// The message as a message file at `path`: a new compound file, a message on it, a copy of
// everything, saved and committed.
HRESULT WriteMessageFile(IMessage* source, const std::wstring& path);

// An Attachments collection over the message's attachments as they are now: Count and Item(i)
// counted from 1, each attachment with FileName, DisplayName, Size and SaveAsFile(path) writing
// its data; with `hiddenFlag` also Hidden (PR_ATTACHMENT_HIDDEN), as the MAPI library has it.
struct AttachmentObjects {
    ComPtr<FakeDispatch> collection;
    // Shared with the collection's Item, so that each attachment has one reference of its own.
    std::shared_ptr<std::vector<ComPtr<FakeDispatch>>> attachments =
        std::make_shared<std::vector<ComPtr<FakeDispatch>>>();

    void AddRefCounts(RefCountList& counts, const std::wstring& label) const;
};
AttachmentObjects BuildAttachments(IMessage* message, bool hiddenFlag);
// The Attachments property over `message`: the collection is built at its first read and kept in
// `attachments`.
void DefineAttachments(FakeDispatch& dispatch, const ComPtr<IMessage>& message,
                       const std::shared_ptr<AttachmentObjects>& attachments, bool hiddenFlag);

// The members Outlook's items and the library's mails both read from the message each time they
// are asked: MessageClass, Subject, Body, To, CC, BCC, SenderName, SenderEmailAddress,
// SentOnBehalfOfName, ReceivedTime, SentOn and Importance. The handlers hold the message.
void DefineMessageValues(FakeDispatch& dispatch, const ComPtr<IMessage>& message);

}  // namespace outlooksim

// The attachments of Outlook mails, for the command that archives chosen attachments instead of
// the mail. Every mail, signed or not, is reached through the Redemption library and decrypted
// first, so that the attachments of encrypted mails can be chosen as well. Hidden attachments
// (pictures of a formatted body) are never offered nor saved.
#pragma once

#include <oaidl.h>

#include <cstdint>

#include "capture/CaptureTypes.h"

// QueryRDOItemAttachmentList's modes.
inline constexpr int32_t kListAttachments = 0;
inline constexpr int32_t kSaveAttachments = 1;

// Finds `item` in the library's `folder` and walks the attachments of its decrypted form. List
// mode appends one record per visible attachment to `attachments`; any other mode saves each
// visible attachment whose key a record of `attachments` carries together with the selected mark,
// each into a staging folder of its own, and appends its path to `files`. A failure on one
// attachment leaves that one out.
HRESULT QueryRDOItemAttachmentList(IDispatch* folder, IDispatch* item, int32_t mode,
                                   AttachmentList& attachments, FileList& files);

// The visible attachments of `item`, or of every selected item when `item` is null, in order.
HRESULT GetAttachmentList(IDispatch* application, IDispatch* item, AttachmentList& attachments);

// Saves the attachments chosen in `attachments` (as GetAttachmentList listed them for the same
// `item` or selection) and gives their paths in `files`.
HRESULT SaveAttachments(IDispatch* application, IDispatch* item, const AttachmentList& attachments,
                        FileList& files);

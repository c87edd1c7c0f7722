// The names in an attachment record, the PropertyMap that stands for one attachment between the
// Outlook capture that lists and saves attachments and the dialog where the user chooses them.
// Every entry of a record carries the export flag 0: records never reach a hand-off document.
#pragma once

inline constexpr const wchar_t* kAttachmentName = L"OTL_ATTACHMENT_NAME";
inline constexpr const wchar_t* kAttachmentSize = L"OTL_ATTACHMENT_SIZE";
inline constexpr const wchar_t* kAttachmentHidden = L"OTL_ATTACHMENT_HIDDEN";
inline constexpr const wchar_t* kAttachmentKey = L"OTL_ATTACHMENT_KEY";
// Present (whatever its value) on the records the user chose.
inline constexpr const wchar_t* kAttachmentSelected = L"OTL_ATTACHMENT_SELECTED";

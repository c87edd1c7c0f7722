// A sample mail written through the simulated MAPI the way an Outlook message file is made: a
// compound file, a message session, a message on the storage, CLSID_MailMessage, SaveChanges and
// Commit. Shared by the simulator's tests and the program that hands the file to an independent
// reader.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <string>

namespace sample {

inline constexpr wchar_t kSubject[] = L"Angebot f\u00fcr Q3";
inline constexpr wchar_t kSenderName[] = L"Erika Muster";
inline constexpr wchar_t kSenderAddress[] = L"erika.muster@example.org";
inline constexpr wchar_t kToName[] = L"Max Beispiel";
inline constexpr wchar_t kToAddress[] = L"max.beispiel@example.com";
inline constexpr wchar_t kCcName[] = L"Ina Kopie";
inline constexpr wchar_t kCcAddress[] = L"ina.kopie@example.net";
inline constexpr wchar_t kAttachmentName[] = L"preise.txt";
inline constexpr char kAttachmentData[] = "Preise: 42 EUR";
// A forwarded mail, attached as an embedded message, with the numbered named property too.
inline constexpr wchar_t kEmbeddedSubject[] = L"Vorige Nachricht";
inline constexpr LONG kEmbeddedNamedValue = 8;
// A named property of the common property set, by number, and one of the public strings.
inline constexpr GUID kPsetidCommon = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr LONG kNamedId = 0x8580;
inline constexpr LONG kNamedValue = 7;
inline constexpr wchar_t kStringName[] = L"Projekt";
inline constexpr wchar_t kStringNamedValue[] = L"Dorvane";
inline constexpr ULONGLONG kDeliveryTime = 0x01DA0000A0B0C0D0ULL;
// Multi-valued properties: strings each kept in a stream of its own, numbers in one.
inline constexpr ULONG kCategoriesTag = PROP_TAG(PT_MV_UNICODE, 0x6710);
inline const wchar_t* const kCategories[] = {L"Angebot", L"Kunde A"};
inline constexpr ULONG kNumbersTag = PROP_TAG(PT_MV_LONG, 0x6711);
inline constexpr LONG kNumbers[] = {3, -1, 70000};

// A body longer than GetProps hands out.
std::wstring LongBody();

// Writes the sample to `path`; returns the first failure.
HRESULT WriteSampleMessage(const std::wstring& path);

}  // namespace sample

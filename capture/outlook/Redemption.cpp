#include "capture/outlook/Redemption.h"

#include <windows.h>

#include <string>

#include "capture/outlook/MsgFile.h"
#include "common/Automation.h"
#include "common/BStr.h"
#include "common/Variant.h"

namespace {

constexpr wchar_t kRedemptionProgId[] = L"Redemption.RDOSession";
// The format number of a Unicode message file in the library's SaveAs.
constexpr int32_t kUnicodeMsgFormat = 9;
// Every value read from the library is cut to this many characters, the terminator included.
constexpr size_t kValueCapacity = 2048;
constexpr size_t kDateCapacity = 32;

// The values that tell one mail from another when the entry ids differ (Outlook and the library
// may give the same mail different ones).
struct MailKey {
    BStr entryId;
    BStr subject;
    int32_t size = 0;
    BStr messageClass;
    BStr sentOnBehalfOf;
    DATE received = 0;
    BStr to;
    DATE sentOn = 0;
};

// Two readers, as the two have their own texts (one of them deliberately worded apart).
MailKey ReadSelectedKey(IDispatch* item) {
    MailKey key;
    LogIfFailed(GetTextPropertyNoThrow(item, L"EntryID", &key.entryId),
                L"Can't get EntryID from selected item! hr = 0x%08X\n");
    LogIfFailed(GetTextPropertyNoThrow(item, L"Subject", &key.subject),
                L"Can't get Subject from selected item! hr = 0x%08X\n");
    LogIfFailed(GetIntegerPropertyNoThrow(item, L"Size", &key.size),
                L"Can't get Size from selected item! hr = 0x%08X\n");
    LogIfFailed(GetTextPropertyNoThrow(item, L"MessageClass", &key.messageClass),
                L"Can't get MessageClass from selected item! hr = 0x%08X\n");
    LogIfFailed(GetTextPropertyNoThrow(item, L"SentOnBehalfOfName", &key.sentOnBehalfOf),
                L"Can't get SentOnBehalfOfName from selected item! hr = 0x%08X\n");
    LogIfFailed(GetDatePropertyNoThrow(item, L"ReceivedTime", &key.received),
                L"Can't get ReceivedTime from selected item! hr = 0x%08X\n");
    LogIfFailed(GetTextPropertyNoThrow(item, L"To", &key.to),
                L"Can't get To from selected item! hr = 0x%08X\n");
    LogIfFailed(GetDatePropertyNoThrow(item, L"SentOn", &key.sentOn),
                L"Can't get SentOn from selected item! hr = 0x%08X\n");
    return key;
}

// A folder item whose entry id cannot be read simply does not match by entry id.
MailKey ReadFolderKey(IDispatch* mail) {
    MailKey key;
    LogIfFailed(GetTextPropertyNoThrow(mail, L"EntryID", &key.entryId),
                L"Can't get EntryID from folder item! hr = 0x%08X\n");
    LogIfFailed(GetTextPropertyNoThrow(mail, L"Subject", &key.subject),
                L"Can't get Subject from folder item! hr = 0x%08X\n");
    LogIfFailed(GetIntegerPropertyNoThrow(mail, L"Size", &key.size),
                L"Can't get Size from folder item! hr = 0x%08X\n");
    LogIfFailed(GetTextPropertyNoThrow(mail, L"MessageClass", &key.messageClass),
                L"Can't get MessageClass folder inbox item! hr = 0x%08X\n");
    LogIfFailed(GetTextPropertyNoThrow(mail, L"SentOnBehalfOfName", &key.sentOnBehalfOf),
                L"Can't get SentOnBehalfOfName from folder item! hr = 0x%08X\n");
    LogIfFailed(GetDatePropertyNoThrow(mail, L"ReceivedTime", &key.received),
                L"Can't get ReceivedTime from folder item! hr = 0x%08X\n");
    LogIfFailed(GetTextPropertyNoThrow(mail, L"To", &key.to),
                L"Can't get To from folder item! hr = 0x%08X\n");
    LogIfFailed(GetDatePropertyNoThrow(mail, L"SentOn", &key.sentOn),
                L"Can't get SentOn from folder item! hr = 0x%08X\n");
    return key;
}

bool SameText(const BStr& a, const BStr& b) noexcept {
    return lstrcmpiW(a.c_str(), b.c_str()) == 0;
}

bool IsSameMail(const MailKey& sought, const MailKey& candidate) noexcept {
    if (SameText(sought.entryId, candidate.entryId)) {
        return true;
    }
    return SameText(sought.subject, candidate.subject) &&
           SameText(sought.messageClass, candidate.messageClass) && sought.size == candidate.size &&
           (SameText(sought.sentOnBehalfOf, candidate.sentOnBehalfOf) ||
            SameText(sought.to, candidate.to)) &&
           (sought.received == candidate.received || sought.sentOn == candidate.sentOn);
}

// A value as the hand-off takes it: at most kValueCapacity - 1 characters.
std::wstring Cut(const wchar_t* text) {
    std::wstring value(text);
    if (value.size() >= kValueCapacity) {
        value.resize(kValueCapacity - 1);
    }
    return value;
}

void Collect(PropertyMap& map, const wchar_t* name, const std::wstring& value, uint32_t flag = 1) {
    LogInfo(L"Collect MAPI property %s value %s\n", name, value.c_str());
    map.Add(name, value.c_str(), flag);
}

}  // namespace

HRESULT OpenRedemptionSession(IDispatch* item, ComPtr<IDispatch>& session,
                              const FailureReport& report) {
    ComPtr<IDispatch> outlookSession;
    HRESULT hr = GetObjectPropertyNoThrow(item, L"Session", outlookSession.put());
    if (FAILED(hr)) {
        report(L"Can't get session! hr = 0x%08X\n", hr);
        return hr;
    }
    ComPtr<IUnknown> mapiObject;
    hr = GetUnknownPropertyNoThrow(outlookSession.get(), L"MAPIOBJECT", mapiObject.put());
    if (FAILED(hr)) {
        report(L"Can't get MAPIOBJECT from session! hr = 0x%08X\n", hr);
        return hr;
    }

    CLSID clsid;
    hr = CLSIDFromProgID(kRedemptionProgId, &clsid);
    if (FAILED(hr)) {
        report(L"Can't get CLSID for Redemption.RDOSession! hr = 0x%08X\n", hr);
        // The one failure of this way the user can do something about: the administrator has to
        // install the library.
        MessageBoxW(nullptr, L"Die Redemption Schnittstelle ist nicht registriert.",
                    L"talvorn dorvane", MB_OK | MB_ICONERROR | MB_TOPMOST);
        return hr;
    }
    ComPtr<IClassFactory> factory;
    hr = CoGetClassObject(clsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory,
                          factory.put_void());
    if (SUCCEEDED(hr)) {
        hr = factory->CreateInstance(nullptr, IID_IDispatch, session.put_void());
    }
    if (FAILED(hr)) {
        report(L"Can't create Redemption.RDOSession! hr = 0x%08X\n", hr);
        return hr;
    }

    BStr version;
    hr = GetTextPropertyNoThrow(session.get(), L"Version", &version);
    if (FAILED(hr)) {
        // This text has always stood here; log readers know it.
        report(L"Can't get active explorer! hr = 0x%08X\n", hr);
        session.reset();
        return hr;
    }
    LogInfo(L"Redemption DLL version: %s\n", version.c_str());

    Variant mapiValue;
    mapiValue.vt = VT_UNKNOWN;
    mapiValue.punkVal = mapiObject.Detach();
    hr = PutPropertyNoThrow(session.get(), L"MAPIOBJECT", mapiValue);
    if (FAILED(hr)) {
        report(L"Can't put MAPIOBJECT to RDO Session! hr = 0x%08X\n", hr);
        session.reset();
        return hr;
    }
    return S_OK;
}

// The library's view of the folder Outlook's active explorer shows.
static HRESULT OpenRedemptionFolder(IDispatch* application, IDispatch* session,
                                    ComPtr<IDispatch>& folder) {
    ComPtr<IDispatch> explorer;
    HRESULT hr =
        GetObjectPropertyNoThrow(application, GetOrCall(L"ActiveExplorer"), explorer.put());
    if (FAILED(hr)) {
        LogError(L"Can't get active explorer! hr = 0x%08X\n", hr);
        return hr;
    }
    ComPtr<IDispatch> outlookFolder;
    hr = GetObjectPropertyNoThrow(explorer.get(), L"CurrentFolder", outlookFolder.put());
    if (FAILED(hr)) {
        LogError(L"Can't get CurrentFolder! hr = 0x%08X\n", hr);
        return hr;
    }
    BStr folderPath;
    hr = GetTextPropertyNoThrow(outlookFolder.get(), L"FolderPath", &folderPath);
    if (FAILED(hr)) {
        LogError(L"Can't get FolderPath! hr = 0x%08X\n", hr);
        return hr;
    }
    BStr entryId;
    hr = GetTextPropertyNoThrow(outlookFolder.get(), L"EntryID", &entryId);
    if (FAILED(hr)) {
        LogError(L"Can't get EntryID! hr = 0x%08X\n", hr);
        return hr;
    }
    LogInfo(L"selected Outlook Folder: %s EntryID: %s\n", folderPath.c_str(), entryId.c_str());

    Variant id(entryId.c_str());
    Variant result;
    hr = CallMethodNoThrow(session, L"GetFolderFromID", {&id}, &result);
    if (SUCCEEDED(hr) && (result.vt != VT_DISPATCH || !result.pdispVal)) {
        hr = E_NOINTERFACE;
    }
    if (FAILED(hr)) {
        LogError(L"Can't call GetFolderFromID! hr = 0x%08X\n", hr);
        return hr;
    }
    folder.Attach(result.pdispVal);
    result.vt = VT_EMPTY;
    return S_OK;
}

HRESULT FindRDOMail(IDispatch* folder, IDispatch* item, ComPtr<IDispatch>& mail) {
    LogInfo(L"Entering FindRDOMail\n");
    const MailKey sought = ReadSelectedKey(item);

    ComPtr<IDispatch> items;
    HRESULT hr = GetObjectPropertyNoThrow(folder, L"Items", items.put());
    if (FAILED(hr)) {
        LogError(L"Can't get folder items! hr = 0x%08X\n", hr);
        return hr;
    }
    int32_t count = 0;
    // An unreadable count is an empty folder, in which no mail is found; the log says why.
    hr = GetIntegerPropertyNoThrow(items.get(), L"Count", &count);
    if (FAILED(hr)) {
        LogError(L"Can't get count of folder items! hr = 0x%08X\n", hr);
    }
    LogInfo(L"There are %d items in that folder.\n", count);
    for (int32_t index = 1; index <= count; ++index) {
        Variant position(index);
        ComPtr<IDispatch> candidate;
        hr = GetObjectPropertyNoThrow(items.get(), GetOrCall(L"_Item"), candidate.put(),
                                      {&position});
        if (FAILED(hr)) {
            LogError(L"Can't get RDOMail item of folder! hr = 0x%08X\n", hr);
            return hr;
        }
        if (IsSameMail(sought, ReadFolderKey(candidate.get()))) {
            mail = std::move(candidate);
            return S_OK;
        }
    }
    LogError(L"### No mail found! ###\n");
    return E_FAIL;
}

HRESULT SaveRDOMailFromFolder(IDispatch* folder, IDispatch* item, PathBuffer& path,
                              int32_t itemNumber, PropertyMap& map) {
    LogInfo(L"Entering SaveRDOMailFromFolder\n");
    ComPtr<IDispatch> mail;
    if (FAILED(FindRDOMail(folder, item, mail))) {
        LogError(L"### No mail found! ###\n");
        return E_FAIL;
    }
    PathBuffer msgPath{};
    if (!MakeMsgFileName(msgPath.data(), msgPath.size(), itemNumber)) {
        LogError(L"Failed to get path of temp directory oder tempfilename\n");
        return kNoMsgFileName;
    }
    Variant target(msgPath.data());
    Variant format(kUnicodeMsgFormat);
    HRESULT hr = CallMethodNoThrow(mail.get(), L"SaveAs", {&target, &format});
    if (FAILED(hr)) {
        LogError(L"Can't save mail item! hr = 0x%08X\n", hr);
        return hr;
    }
    path = msgPath;
    ReadRDOMailValues(mail.get(), folder, map);
    return S_OK;
}

void ReadRDOMailValues(IDispatch* mail, IDispatch* folder, PropertyMap& map) {
    BStr text;

    // The recipients, and all of them in one list. An empty To leaves the list beginning with
    // ";": the connector side has always received it that way.
    std::wstring recipients;
    LogIfFailed(GetTextPropertyNoThrow(mail, L"To", &text),
                L"Can't get property To from mail item! hr = 0x%08X\n");
    const std::wstring to = Cut(text.c_str());
    Collect(map, L"OTL_MSG_TO", to);
    recipients += to;
    LogIfFailed(GetTextPropertyNoThrow(mail, L"CC", &text),
                L"Can't get property CC from mail item! hr = 0x%08X\n");
    const std::wstring cc = Cut(text.c_str());
    Collect(map, L"OTL_MSG_CC", cc);
    if (!cc.empty()) {
        recipients += L";" + cc;
    }
    LogIfFailed(GetTextPropertyNoThrow(mail, L"BCC", &text),
                L"Can't get property BCC from mail item! hr = 0x%08X\n");
    const std::wstring bcc = Cut(text.c_str());
    Collect(map, L"OTL_MSG_BCC", bcc);
    if (!bcc.empty()) {
        recipients += L";" + bcc;
    }
    LogInfo(L"Collect MAPI property PR_SMTP_ADDRESS/PR_EMAIL_ADDRESS value %s\n",
            recipients.c_str());
    map.Add(L"OTL_MSG_TO_SMTP_ADDRESS", recipients.c_str(), 1);

    // The sender name's text has always stood here.
    LogIfFailed(GetTextPropertyNoThrow(mail, L"SenderEmailAddress", &text),
                L"Can't get property SenderName from mail item! hr = 0x%08X\n");
    Collect(map, L"OTL_MSG_SENDER_EMAIL_ADDRESS", Cut(text.c_str()));

    int32_t importance = 0;
    wchar_t number[kValueCapacity] = L"";
    if (SUCCEEDED(LogIfFailed(GetIntegerPropertyNoThrow(mail, L"Importance", &importance),
                              L"Can't get property Importance from mail item! hr = 0x%08X\n"))) {
        FormatBounded(number, kValueCapacity, L"%d", importance);
    }
    Collect(map, L"OTL_MSG_IMPORTANCE", number);

    LogIfFailed(GetTextPropertyNoThrow(mail, L"Subject", &text),
                L"Can't get property Subject from mail item! hr = 0x%08X\n");
    Collect(map, L"OTL_MSG_SUBJECT", Cut(text.c_str()));
    LogIfFailed(GetTextPropertyNoThrow(mail, L"SenderName", &text),
                L"Can't get property SenderName from mail item! hr = 0x%08X\n");
    Collect(map, L"OTL_MSG_SENDERNAME", Cut(text.c_str()));

    // The date as the library gives it, in no particular zone, and without a time-of-day twin.
    DATE received = 0;
    SYSTEMTIME time;
    if (SUCCEEDED(LogIfFailed(GetDatePropertyNoThrow(mail, L"ReceivedTime", &received),
                              L"Can't get property ReceivedTime from mail item! hr = 0x%08X\n")) &&
        VariantTimeToSystemTime(received, &time)) {
        wchar_t date[kDateCapacity];
        if (GetDateFormatW(LOCALE_USER_DEFAULT, LOCALE_NOUSEROVERRIDE, &time, nullptr, date,
                           kDateCapacity) > 0) {
            Collect(map, L"OTL_MSG_RECIEVEDATE", date);
        } else {
            LogError(L"Failed to format date value!\n");
        }
    }

    LogIfFailed(GetTextPropertyNoThrow(mail, L"EntryID", &text),
                L"Can't get property EntryID from mail item! hr = 0x%08X\n");
    Collect(map, L"PR_ENTRYID", Cut(text.c_str()), 0);
    LogIfFailed(GetTextPropertyNoThrow(folder, L"StoreID", &text),
                L"Can't get property StoreID from fodler item! hr = 0x%08X\n");
    Collect(map, L"PR_STORE_ENTRYID", Cut(text.c_str()), 0);
}

HRESULT RunInRedemptionFolder(IDispatch* application, IDispatch* item,
                              const std::function<HRESULT(IDispatch* folder)>& action) {
    ComPtr<IDispatch> session;
    HRESULT hr = OpenRedemptionSession(item, session);
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IDispatch> folder;
    hr = OpenRedemptionFolder(application, session.get(), folder);
    if (FAILED(hr)) {
        return hr;
    }
    return action(folder.get());
}

HRESULT SaveSignedMail(IDispatch* application, IDispatch* item, PathBuffer& path,
                       int32_t itemNumber, PropertyMap& map) {
    return RunInRedemptionFolder(application, item, [&](IDispatch* folder) {
        HRESULT hr = SaveRDOMailFromFolder(folder, item, path, itemNumber, map);
        if (FAILED(hr)) {
            LogError(L"error in SaveRDOMailFromFolder! hr = 0x%08X\n", hr);
        }
        return hr;
    });
}

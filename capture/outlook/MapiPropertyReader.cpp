#include "capture/outlook/MapiPropertyReader.h"

#include <windows.h>
#include <mapicode.h>
#include <mapidefs.h>
#include <mapix.h>

#include <optional>
#include <string>
#include <vector>

#include "capture/outlook/MapiOwners.h"
#include "common/Automation.h"
#include "common/BoundedFormat.h"
#include "common/ComPtr.h"
#include "common/LogFile.h"
#include "common/Variant.h"

// MAPI32 writes narrow text here whatever the build's character set, unlike what mapiutil.h says.
extern "C" void STDAPICALLTYPE HexFromBin(LPBYTE bytes, int count, LPSTR text);

namespace {

constexpr IID kIidMapiSession = {0x00020300, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr ULONG kTagEmailAddress = 0x3003001F;
constexpr ULONG kTagSmtpAddress = 0x39FE001F;
constexpr ULONG kTagSenderEntryId = 0x0C190102;
constexpr LCID kUserDefaultLocale = 0x0400;
constexpr DWORD kNoUserOverride = 0x80000000;

// A one-tag array as GetProps takes it.
struct OneTag {
    ULONG count = 1;
    ULONG tag;
    explicit OneTag(ULONG t) : tag(t) {}
    SPropTagArray* get() { return reinterpret_cast<SPropTagArray*>(this); }
};

// The tag to read for `descriptor`, or none when its named property does not exist on the item.
std::optional<ULONG> TagOf(IMessage* message, const PropertyDescriptor& descriptor) {
    if (!descriptor.propertySet) {
        return descriptor.tag;
    }
    LogInfo(L"CDO property set\n");
    MAPINAMEID name{};
    name.lpguid = const_cast<GUID*>(descriptor.propertySet);
    name.ulKind = MNID_ID;
    name.Kind.lID = static_cast<LONG>(descriptor.namedId);
    MAPINAMEID* names[] = {&name};
    MapiBuffer<SPropTagArray> tags;
    // No MAPI_CREATE: a property the item lacks must not be made by reading it.
    HRESULT hr = message->GetIDsFromNames(1, names, 0, tags.put());
    if (FAILED(hr) || hr == MAPI_W_ERRORS_RETURNED || !tags || tags->cValues < 1) {
        LogError(L"Failed to get ID for CDO named property %s! hr = 0x%08X\n", descriptor.name, hr);
        return std::nullopt;
    }
    const ULONG type = descriptor.format == kFormatDateOnly ? PT_SYSTIME : descriptor.format;
    return tags->aulPropTag[0] | type;
}

// Reads a value too large for GetProps through a stream into `value`, whose buffer the read text
// or bytes then hang on. Returns false when the descriptor is to be skipped. Text comes without a
// terminating zero: `textBytes` gets its length.
bool ReadThroughStream(IMessage* message, const PropertyDescriptor& descriptor, ULONG tag,
                       SPropValue* value, ULONG* textBytes) {
    ComPtr<IStream> stream;
    HRESULT hr =
        message->OpenProperty(tag, &IID_IStream, 0, 0, reinterpret_cast<IUnknown**>(stream.put()));
    if (FAILED(hr) || !stream) {
        LogError(L"Failed to open PT_ERROR MAPI property %s! hr = 0x%08X\n", descriptor.name, hr);
        return false;
    }
    STATSTG stat{};
    hr = stream->Stat(&stat, STATFLAG_NONAME);
    if (FAILED(hr) || stat.cbSize.HighPart != 0) {
        LogError(L"Failed to determine size of value for PT_ERROR MAPI property %s! hr = 0x%08X\n",
                 descriptor.name, hr);
        return false;
    }
    if (descriptor.format != kFormatText && descriptor.format != kFormatBinary) {
        // Rendered as it stands, error value and all.
        return true;
    }
    const ULONG size = stat.cbSize.LowPart;
    void* buffer = nullptr;
    if (FAILED(MAPIAllocateMore(size, value, &buffer)) || !buffer) {
        LogError(L"Failed to reallocate PT_ERROR MAPI property %s!\n", descriptor.name);
        return false;
    }
    ULONG read = 0;
    hr = stream->Read(buffer, size, &read);
    if (FAILED(hr)) {
        LogError(L"Failed to read PT_ERROR MAPI property %s! hr = 0x%08X\n", descriptor.name, hr);
        return false;
    }
    if (descriptor.format == kFormatText) {
        value->Value.lpszW = static_cast<wchar_t*>(buffer);
        *textBytes = read;
    } else {
        value->Value.bin.lpb = static_cast<BYTE*>(buffer);
        value->Value.bin.cb = read;
    }
    value->ulPropTag = tag;
    return true;
}

std::optional<std::wstring> BinaryText(const SBinary& binary) {
    std::string narrow(2 * static_cast<size_t>(binary.cb) + 1, '\0');
    HexFromBin(binary.lpb, static_cast<int>(binary.cb), narrow.data());
    const int length = MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, narrow.c_str(), -1, nullptr, 0);
    MapiBuffer<wchar_t> wide;
    if (length <= 0) {
        return std::nullopt;
    }
    const HRESULT hr = MAPIAllocateBuffer(length * sizeof(wchar_t), wide.put_void());
    if (FAILED(hr)) {
        LogError(L"Failed to allocate the text of a binary value! hr = 0x%08X\n", hr);
        return std::nullopt;
    }
    if (!MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, narrow.c_str(), -1, wide.get(), length)) {
        return std::nullopt;
    }
    return std::wstring(wide.get());
}

// The user's default short date, and with `withTime` the time after a space. Times are shown in
// the computer's zone when it knows one, else in UTC as stored.
std::optional<std::wstring> DateText(const FILETIME& time, bool withTime) {
    SYSTEMTIME utc{};
    if (!FileTimeToSystemTime(&time, &utc)) {
        return std::nullopt;
    }
    SYSTEMTIME shown = utc;
    TIME_ZONE_INFORMATION zone{};
    const DWORD zoneKind = GetTimeZoneInformation(&zone);
    if (zoneKind == TIME_ZONE_ID_STANDARD || zoneKind == TIME_ZONE_ID_DAYLIGHT) {
        SYSTEMTIME local{};
        if (SystemTimeToTzSpecificLocalTime(&zone, &utc, &local)) {
            shown = local;
        }
    }
    const int dateLength =
        GetDateFormatW(kUserDefaultLocale, kNoUserOverride, &shown, nullptr, nullptr, 0);
    std::vector<wchar_t> date(dateLength > 0 ? dateLength + 1 : 1);
    if (dateLength <= 0 || !GetDateFormatW(kUserDefaultLocale, kNoUserOverride, &shown, nullptr,
                                           date.data(), dateLength + 1)) {
        LogError(L"Failed to format date value!\n");
        return std::nullopt;
    }
    if (!withTime) {
        return std::wstring(date.data());
    }
    const int timeLength =
        GetTimeFormatW(kUserDefaultLocale, kNoUserOverride, &shown, nullptr, nullptr, 0);
    std::vector<wchar_t> clock(timeLength > 0 ? timeLength + 1 : 1);
    if (timeLength <= 0 || !GetTimeFormatW(kUserDefaultLocale, kNoUserOverride, &shown, nullptr,
                                           clock.data(), timeLength + 1)) {
        LogError(L"Failed to format time value!\n");
        return std::nullopt;
    }
    std::vector<wchar_t> joined(static_cast<size_t>(dateLength + timeLength + 3));
    if (!FormatBounded(joined.data(), joined.size(), L"%s %s", date.data(), clock.data())) {
        return std::nullopt;
    }
    return std::wstring(joined.data());
}

std::optional<std::wstring> NumberText(uint32_t format, const SPropValue& value) {
    wchar_t text[MAX_PATH];
    bool done = false;
    switch (format) {
    case kFormatInteger:
        done = FormatBounded(text, MAX_PATH, L"%d", static_cast<int>(value.Value.l));
        break;
    case kFormatInteger16:
        done = FormatBounded(text, MAX_PATH, L"%d", static_cast<int>(value.Value.i));
        break;
    case kFormatBoolean:
        done = FormatBounded(text, MAX_PATH, L"%d", static_cast<int>(value.Value.b));
        break;
    case kFormatDouble:
        done = FormatBounded(text, 128, L"%g", value.Value.dbl);
        break;
    default:
        break;
    }
    return done ? std::optional<std::wstring>(text) : std::nullopt;
}

// The value's text by the descriptor's format, not by the type the value came back with.
std::optional<std::wstring> RenderValue(const PropertyDescriptor& descriptor,
                                        const SPropValue& value, std::optional<ULONG> textBytes) {
    switch (descriptor.format) {
    case kFormatBinary:
        return BinaryText(value.Value.bin);
    case kFormatText:
        if (textBytes) {
            // A streamed text is taken as it came; a terminating zero in it ends it.
            std::wstring text(value.Value.lpszW, *textBytes / sizeof(wchar_t));
            return text.substr(0, text.find(L'\0'));
        }
        return value.Value.lpszW ? std::optional<std::wstring>(value.Value.lpszW) : std::nullopt;
    case kFormatDateOnly:
    case kFormatDateTime:
        return DateText(value.Value.ft, descriptor.format == kFormatDateTime);
    default:
        return NumberText(descriptor.format, value);
    }
}

}  // namespace

void ReadProperty(IMessage* message, const PropertyDescriptor& descriptor, PropertyMap& map) {
    LogInfo(L"Property %s\n", descriptor.name);
    const std::optional<ULONG> tag = TagOf(message, descriptor);
    if (!tag) {
        return;
    }
    OneTag tags(*tag);
    ULONG count = 0;
    MapiBuffer<SPropValue> value;
    HRESULT hr = message->GetProps(tags.get(), MAPI_UNICODE, &count, value.put());
    if (FAILED(hr) || !value || count < 1) {
        LogError(L"Failed to get MAPI property %s! hr = 0x%08X\n", descriptor.name, hr);
        return;
    }
    std::optional<ULONG> textBytes;
    if (hr == MAPI_W_ERRORS_RETURNED && PROP_TYPE(value->ulPropTag) == PT_ERROR) {
        LogInfo(L"PT_ERROR\n");
        ULONG bytes = 0;
        if (!ReadThroughStream(message, descriptor, *tag, value.get(), &bytes)) {
            return;
        }
        if (descriptor.format == kFormatText) {
            textBytes = bytes;
        }
    }
    const std::optional<std::wstring> text = RenderValue(descriptor, *value.get(), textBytes);
    if (!text) {
        return;
    }
    LogInfo(L"Collect MAPI property %s value %s\n", descriptor.name, text->c_str());
    map.Add(descriptor.name, text->c_str(), descriptor.exportFlag);
}

void ReadPropertyTable(IMessage* message, const PropertyDescriptor* table, PropertyMap& map) {
    if (!message || !table) {
        return;
    }
    for (const PropertyDescriptor* descriptor = table; descriptor->name; ++descriptor) {
        ReadProperty(message, *descriptor, map);
    }
}

void CollectRecipientSmtpAddresses(IMessage* message, PropertyMap& map) {
    std::wstring addresses;
    ComPtr<IMAPITable> recipients;
    HRESULT hr = message->GetRecipientTable(MAPI_UNICODE, recipients.put());
    if (FAILED(hr)) {
        LogError(L"Failed to get recipient table! hr = 0x%08X\n", hr);
    }
    while (recipients) {
        RowSet rows;
        hr = recipients->QueryRows(1, 0, rows.put());
        if (FAILED(hr)) {
            LogError(L"Failed to read a row of the recipient table! hr = 0x%08X\n", hr);
            break;
        }
        if (!rows.get() || rows->cRows == 0) {
            break;
        }
        const SRow& row = rows->aRow[0];
        for (ULONG i = 0; i < row.cValues; ++i) {
            const SPropValue& column = row.lpProps[i];
            if ((column.ulPropTag == kTagEmailAddress || column.ulPropTag == kTagSmtpAddress) &&
                column.Value.lpszW && wcschr(column.Value.lpszW, L'@')) {
                if (!addresses.empty()) {
                    addresses += L";";
                }
                addresses += column.Value.lpszW;
                break;
            }
        }
    }
    LogInfo(L"Collect MAPI property PR_SMTP_ADDRESS/PR_EMAIL_ADDRESS value %s\n",
            addresses.c_str());
    map.Add(L"OTL_MSG_TO_SMTP_ADDRESS", addresses.c_str(), 1);
}

HRESULT ResolveSenderSmtpAddress(IDispatch* application, IMessage* message, PropertyMap& map) {
    const PropertyEntry* addressType = map.Find(L"PR_SENDER_ADDRTYPE");
    if (!addressType || lstrcmpiW(addressType->value.c_str(), L"EX") != 0) {
        return S_OK;
    }
    // An Exchange distinguished name means nothing outside the organisation: better no address.
    map.Add(L"OTL_MSG_SENDER_EMAIL_ADDRESS", L"", 1);

    // Released in reverse: mail user, address book, session, namespace.
    ComPtr<IDispatch> outlook;
    ComPtr<IDispatch> mapiNamespace;
    ComPtr<IUnknown> mapiObject;
    ComPtr<IMAPISession> session;
    ComPtr<IAddrBook> addressBook;
    // OpenEntry hands out the mail user's own interface, which begins with IMAPIProp's methods.
    ComPtr<IMAPIProp> mailUser;

    HRESULT hr = application
                     ? application->QueryInterface(kIidOutlookApplication, outlook.put_void())
                     : E_POINTER;
    if (FAILED(hr)) {
        LogError(L"Can't get ApplicationPtr! hr = 0x%08X\n", hr);
        return hr;
    }
    Variant mapi(L"MAPI");
    Variant result;
    hr = CallMethodNoThrow(outlook.get(), L"GetNamespace", {&mapi}, &result);
    if (SUCCEEDED(hr) && (result.vt != VT_DISPATCH || !result.pdispVal)) {
        hr = DISP_E_TYPEMISMATCH;
    }
    if (FAILED(hr)) {
        // This line has never had a line end or a status of its own.
        LogError(L"Can't get Namespace(MAPI) from Application!");
        return hr;
    }
    mapiNamespace.Attach(result.pdispVal);
    result.vt = VT_EMPTY;
    hr = GetUnknownPropertyNoThrow(mapiNamespace.get(), L"MAPIOBJECT", mapiObject.put());
    if (FAILED(hr)) {
        LogError(L"Can't get MAPIOBJECT from session! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = mapiObject.query_to(kIidMapiSession, session.put());
    if (FAILED(hr)) {
        LogError(L"Can't get MAPISession from MAPIObject! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = session->OpenAddressBook(0, nullptr, AB_NO_DIALOG, addressBook.put());
    if (FAILED(hr) || !addressBook) {
        LogError(L"Can't open AddressBook from MAPISession! hr = 0x%08X\n", hr);
        return FAILED(hr) ? hr : E_FAIL;
    }
    OneTag entryIdTag(kTagSenderEntryId);
    ULONG count = 0;
    MapiBuffer<SPropValue> entryId;
    hr = message->GetProps(entryIdTag.get(), 0, &count, entryId.put());
    if (FAILED(hr) || !entryId) {
        LogError(L"Can't get ENTRYID Object from Mailitem! hr = 0x%08X\n", hr);
        return FAILED(hr) ? hr : E_FAIL;
    }
    if (PROP_TYPE(entryId->ulPropTag) == PT_ERROR) {
        LogError(L"Can't get valid ENTRYID Object from Mailitem!\n");
        return E_FAIL;
    }
    ULONG objectType = 0;
    hr = addressBook->OpenEntry(
        entryId->Value.bin.cb, reinterpret_cast<ENTRYID*>(entryId->Value.bin.lpb), nullptr,
        MAPI_BEST_ACCESS, &objectType, reinterpret_cast<IUnknown**>(mailUser.put()));
    if (FAILED(hr) || !mailUser) {
        LogError(L"Can't open MailUser Object! hr = 0x%08X\n", hr);
        return FAILED(hr) ? hr : E_FAIL;
    }
    OneTag smtpTag(kTagSmtpAddress);
    MapiBuffer<SPropValue> smtp;
    hr = mailUser->GetProps(smtpTag.get(), MAPI_UNICODE, &count, smtp.put());
    if (FAILED(hr)) {
        LogError(L"Can't get PR_SMTP_ADDRESS from MailUser! hr = 0x%08X\n", hr);
        return hr;
    }
    if (smtp && smtp->ulPropTag == kTagSmtpAddress && smtp->Value.lpszW) {
        map.Add(L"OTL_MSG_SENDER_EMAIL_ADDRESS", smtp->Value.lpszW, 1);
    }
    return hr;
}

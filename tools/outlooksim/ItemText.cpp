#include "outlooksim/ItemText.h"

#include <mapitags.h>
#include <mapiutil.h>

#include <cerrno>
#include <cstdlib>
#include <cwchar>
#include <stdexcept>
#include <utility>

#include "common/ComPtr.h"
#include "common/UniqueResource.h"
#include "outlooksim/MapiHelpers.h"

namespace outlooksim {
namespace {

constexpr ULONG kPrSmtpAddress = PROP_TAG(PT_UNICODE, 0x39FE);

struct NamedTag {
    const wchar_t* name;
    ULONG tag;
};

// The fixed properties the item files name; anything else goes by its hexadecimal tag.
constexpr NamedTag kNamedTags[] = {
    {L"PR_MESSAGE_CLASS", PR_MESSAGE_CLASS_W},
    {L"PR_SUBJECT", PR_SUBJECT_W},
    {L"PR_BODY", PR_BODY_W},
    {L"PR_IMPORTANCE", PR_IMPORTANCE},
    {L"PR_SENSITIVITY", PR_SENSITIVITY},
    {L"PR_PRIORITY", PR_PRIORITY},
    {L"PR_MESSAGE_FLAGS", PR_MESSAGE_FLAGS},
    {L"PR_READ_RECEIPT_REQUESTED", PR_READ_RECEIPT_REQUESTED},
    {L"PR_CONVERSATION_TOPIC", PR_CONVERSATION_TOPIC_W},
    {L"PR_INTERNET_MESSAGE_ID", PROP_TAG(PT_UNICODE, 0x1035)},
    {L"PR_TRANSPORT_MESSAGE_HEADERS", PR_TRANSPORT_MESSAGE_HEADERS_W},
    {L"PR_MESSAGE_DELIVERY_TIME", PR_MESSAGE_DELIVERY_TIME},
    {L"PR_CLIENT_SUBMIT_TIME", PR_CLIENT_SUBMIT_TIME},
    {L"PR_CREATION_TIME", PR_CREATION_TIME},
    {L"PR_LAST_MODIFICATION_TIME", PR_LAST_MODIFICATION_TIME},
    {L"PR_ENTRYID", PR_ENTRYID},
    {L"PR_STORE_ENTRYID", PR_STORE_ENTRYID},
    {L"PR_SENDER_NAME", PR_SENDER_NAME_W},
    {L"PR_SENDER_EMAIL_ADDRESS", PR_SENDER_EMAIL_ADDRESS_W},
    {L"PR_SENDER_ADDRTYPE", PR_SENDER_ADDRTYPE_W},
    {L"PR_SENDER_ENTRYID", PR_SENDER_ENTRYID},
    {L"PR_SENT_REPRESENTING_NAME", PR_SENT_REPRESENTING_NAME_W},
    {L"PR_SENT_REPRESENTING_EMAIL_ADDRESS", PR_SENT_REPRESENTING_EMAIL_ADDRESS_W},
    {L"PR_SENT_REPRESENTING_ADDRTYPE", PR_SENT_REPRESENTING_ADDRTYPE_W},
    {L"PR_DISPLAY_TO", PR_DISPLAY_TO_W},
    {L"PR_DISPLAY_CC", PR_DISPLAY_CC_W},
    {L"PR_DISPLAY_BCC", PR_DISPLAY_BCC_W},
    {L"PR_START_DATE", PR_START_DATE},
    {L"PR_END_DATE", PR_END_DATE},
    {L"PR_DISPLAY_NAME", PR_DISPLAY_NAME_W},
    {L"PR_GIVEN_NAME", PR_GIVEN_NAME_W},
    {L"PR_SURNAME", PR_SURNAME_W},
    {L"PR_TITLE", PR_TITLE_W},
    {L"PR_COMPANY_NAME", PR_COMPANY_NAME_W},
    {L"PR_DEPARTMENT_NAME", PR_DEPARTMENT_NAME_W},
    {L"PR_BIRTHDAY", PR_BIRTHDAY},
    {L"PR_HOME_TELEPHONE_NUMBER", PR_HOME_TELEPHONE_NUMBER_W},
    {L"PR_BUSINESS_TELEPHONE_NUMBER", PR_BUSINESS_TELEPHONE_NUMBER_W},
    {L"PR_MOBILE_TELEPHONE_NUMBER", PR_MOBILE_TELEPHONE_NUMBER_W},
    {L"PR_EMAIL_ADDRESS", PR_EMAIL_ADDRESS_W},
    {L"PR_ADDRTYPE", PR_ADDRTYPE_W},
    {L"PR_SMTP_ADDRESS", kPrSmtpAddress},
};

constexpr GUID PropertySet(DWORD first) { return {first, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}; }

struct NamedSet {
    const wchar_t* name;
    GUID set;
};
constexpr NamedSet kSets[] = {
    {L"Appointment", PropertySet(0x00062002)}, {L"Task", PropertySet(0x00062003)},
    {L"Address", PropertySet(0x00062004)},     {L"Common", PropertySet(0x00062008)},
    {L"Log", PropertySet(0x0006200A)},
};

struct NamedType {
    const wchar_t* name;
    ULONG type;
};
constexpr NamedType kTypes[] = {
    {L"text", PT_UNICODE},  {L"i32", PT_LONG},     {L"i16", PT_I2},        {L"bool", PT_BOOLEAN},
    {L"double", PT_DOUBLE}, {L"time", PT_SYSTIME}, {L"binary", PT_BINARY},
};

[[noreturn]] void Fail(size_t line, const std::wstring& what) {
    throw std::runtime_error("line " + std::to_string(line) + ": " + Narrow(what, CP_UTF8));
}

std::wstring Trim(const std::wstring& text) {
    const size_t first = text.find_first_not_of(L" \t");
    if (first == std::wstring::npos) {
        return std::wstring();
    }
    return text.substr(first, text.find_last_not_of(L" \t") - first + 1);
}

std::vector<std::wstring> Fields(const std::wstring& value) {
    std::vector<std::wstring> fields;
    size_t start = 0;
    for (size_t bar = value.find(L'|');; bar = value.find(L'|', start)) {
        fields.push_back(Trim(value.substr(start, bar == std::wstring::npos ? bar : bar - start)));
        if (bar == std::wstring::npos) {
            return fields;
        }
        start = bar + 1;
    }
}

std::wstring Unescape(const std::wstring& value, size_t line) {
    std::wstring text;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != L'\\') {
            text += value[i];
            continue;
        }
        const wchar_t next = i + 1 < value.size() ? value[++i] : L'\0';
        if (next == L'n') {
            text += L"\r\n";
        } else if (next == L't') {
            text += L'\t';
        } else if (next == L'\\') {
            text += L'\\';
        } else {
            Fail(line, L"unknown escape in \"" + value + L"\" (\\n, \\t and \\\\ are known)");
        }
    }
    return text;
}

int64_t Integer(const std::wstring& value, int64_t low, int64_t high, size_t line) {
    errno = 0;
    wchar_t* end = nullptr;
    const long long number = std::wcstoll(value.c_str(), &end, 0);
    if (value.empty() || *end != L'\0' || errno == ERANGE || number < low || number > high) {
        Fail(line, L"not an integer in range: \"" + value + L"\"");
    }
    return number;
}

std::vector<BYTE> Bytes(const std::wstring& value, size_t line) {
    std::wstring digits;
    for (wchar_t c : value) {
        if (c != L' ') {
            digits += c;
        }
    }
    if (digits.size() % 2 != 0 ||
        digits.find_first_not_of(L"0123456789abcdefABCDEF") != std::wstring::npos) {
        Fail(line, L"not an even number of hexadecimal digits: \"" + value + L"\"");
    }
    std::vector<BYTE> bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<BYTE>(std::wcstoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    }
    return bytes;
}

int64_t Time(const std::wstring& value, size_t line) {
    SYSTEMTIME time{};
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    wchar_t zone = 0, rest = 0;
    const int fields = swscanf(value.c_str(), L"%4d-%2d-%2dT%2d:%2d:%2d%lc%lc", &year, &month, &day,
                               &hour, &minute, &second, &zone, &rest);
    const bool dateOnly = value.size() == 10 && fields == 3;
    if (!dateOnly && !(fields == 7 && zone == L'Z')) {
        Fail(line, L"not a UTC date-time like 2024-05-14T09:30:00Z: \"" + value + L"\"");
    }
    time.wYear = static_cast<WORD>(year);
    time.wMonth = static_cast<WORD>(month);
    time.wDay = static_cast<WORD>(day);
    time.wHour = static_cast<WORD>(hour);
    time.wMinute = static_cast<WORD>(minute);
    time.wSecond = static_cast<WORD>(second);
    FILETIME file{};
    if (!SystemTimeToFileTime(&time, &file)) {
        Fail(line, L"no such date: \"" + value + L"\"");
    }
    return static_cast<int64_t>((static_cast<ULONGLONG>(file.dwHighDateTime) << 32) |
                                file.dwLowDateTime);
}

void ParseValue(ItemProperty& property, const std::wstring& value, size_t line) {
    switch (PROP_TYPE(property.tag)) {
    case PT_UNICODE:
    case PT_STRING8:
        property.text = Unescape(value, line);
        return;
    case PT_LONG:
        property.integer = Integer(value, INT32_MIN, UINT32_MAX, line);
        return;
    case PT_I2:
        property.integer = Integer(value, INT16_MIN, UINT16_MAX, line);
        return;
    case PT_BOOLEAN:
        if (value != L"true" && value != L"false" && value != L"1" && value != L"0") {
            Fail(line, L"not a boolean (true or false): \"" + value + L"\"");
        }
        property.integer = value == L"true" || value == L"1";
        return;
    case PT_DOUBLE: {
        wchar_t* end = nullptr;
        property.number = std::wcstod(value.c_str(), &end);
        if (value.empty() || *end != L'\0') {
            Fail(line, L"not a number: \"" + value + L"\"");
        }
        return;
    }
    case PT_SYSTIME:
        property.integer = Time(value, line);
        return;
    case PT_BINARY:
        property.bytes = Bytes(value, line);
        return;
    default:
        Fail(line, L"properties of this type cannot be written here");
    }
}

// "Appointment 0x8208 text": a set, a numeric id and a type.
bool ParseNamedKey(const std::wstring& key, ItemProperty& property, size_t line) {
    wchar_t set[32] = L"", type[16] = L"";
    unsigned id = 0;
    if (swscanf(key.c_str(), L"%31ls %x %15ls", set, &id, type) != 3) {
        return false;
    }
    for (const NamedSet& known : kSets) {
        if (_wcsicmp(set, known.name) == 0) {
            property.set = known.set;
        }
    }
    ULONG propertyType = PT_UNSPECIFIED;
    for (const NamedType& known : kTypes) {
        if (_wcsicmp(type, known.name) == 0) {
            propertyType = known.type;
        }
    }
    if (!property.set || propertyType == PT_UNSPECIFIED || id < 0x8000 || id > 0xFFFF) {
        Fail(line,
             L"a named property is \"<Appointment|Task|Address|Common|Log> <0x8000..0xFFFF> "
             L"<text|i32|i16|bool|double|time|binary>\", not \"" +
                 key + L"\"");
    }
    property.namedId = static_cast<LONG>(id);
    property.tag = PROP_TAG(propertyType, 0);
    return true;
}

ItemProperty ParseFixedKey(const std::wstring& key, size_t line) {
    ItemProperty property;
    if (key.size() == 10 && _wcsnicmp(key.c_str(), L"0x", 2) == 0 &&
        key.find_first_not_of(L"0123456789abcdefABCDEF", 2) == std::wstring::npos) {
        property.tag = static_cast<ULONG>(std::wcstoul(key.c_str(), nullptr, 16));
        return property;
    }
    for (const NamedTag& known : kNamedTags) {
        if (key == known.name) {
            property.tag = known.tag;
            return property;
        }
    }
    Fail(line, L"unknown key \"" + key + L"\"");
}

void ParseLine(ItemDescription& item, const std::wstring& key, const std::wstring& value,
               size_t line) {
    if (key == L"class") {
        item.messageClass = value;
    } else if (key == L"To" || key == L"CC" || key == L"BCC") {
        const auto fields = Fields(value);
        if (fields.size() < 3 || fields.size() > 4) {
            Fail(line, L"a recipient is \"name | address type | e-mail address [| SMTP address]\"");
        }
        item.recipients.push_back({key == L"To"   ? MAPI_TO
                                   : key == L"CC" ? MAPI_CC
                                                  : MAPI_BCC,
                                   fields[0], fields[1], fields[2],
                                   fields.size() == 4 ? fields[3] : std::wstring()});
    } else if (key == L"attachment" || key == L"hidden attachment") {
        const size_t bar = value.find(L'|');
        if (bar == std::wstring::npos || Trim(value.substr(0, bar)).empty()) {
            Fail(line, L"an attachment is \"file name | content\"");
        }
        item.attachments.push_back({Trim(value.substr(0, bar)),
                                    Narrow(Unescape(Trim(value.substr(bar + 1)), line), CP_UTF8),
                                    key != L"attachment"});
    } else if (key == L"addressbook") {
        const auto fields = Fields(value);
        if (fields.size() < 3 || fields.size() > 4) {
            Fail(line,
                 L"an address-book entry is \"entry id | name | SMTP address [| Exchange "
                 L"address]\"");
        }
        item.addressBook.push_back(
            {Bytes(fields[0], line), fields[1], fields[2],
             fields.size() == 4 ? fields[3] : ExchangeAddressFor(fields[2])});
    } else {
        ItemProperty property;
        if (!ParseNamedKey(key, property, line)) {
            property = ParseFixedKey(key, line);
        }
        ParseValue(property, value, line);
        item.properties.push_back(std::move(property));
    }
}

// Values SetProps reads; the strings and bytes stay in the description (or in `narrow`).
SPropValue ValueOf(const ItemProperty& property, ULONG tag, std::vector<std::string>& narrow) {
    SPropValue value{};
    value.ulPropTag = tag;
    switch (PROP_TYPE(tag)) {
    case PT_UNICODE:
        value.Value.lpszW = const_cast<LPWSTR>(property.text.c_str());
        break;
    case PT_STRING8:
        narrow.push_back(Narrow(property.text));
        value.Value.lpszA = narrow.back().data();
        break;
    case PT_LONG:
        value.Value.l = static_cast<LONG>(property.integer);
        break;
    case PT_I2:
        value.Value.i = static_cast<short>(property.integer);
        break;
    case PT_BOOLEAN:
        value.Value.b = static_cast<unsigned short>(property.integer);
        break;
    case PT_DOUBLE:
        value.Value.dbl = property.number;
        break;
    case PT_SYSTIME:
        value.Value.ft.dwLowDateTime = static_cast<DWORD>(property.integer);
        value.Value.ft.dwHighDateTime =
            static_cast<DWORD>(static_cast<ULONGLONG>(property.integer) >> 32);
        break;
    case PT_BINARY:
        value.Value.bin.cb = static_cast<ULONG>(property.bytes.size());
        value.Value.bin.lpb = const_cast<LPBYTE>(property.bytes.data());
        break;
    }
    return value;
}

HRESULT NamedTagOf(IMessage* message, const ItemProperty& property, ULONG* tag) {
    GUID set = *property.set;
    MAPINAMEID name{&set, MNID_ID, {}};
    name.Kind.lID = property.namedId;
    LPMAPINAMEID names[] = {&name};
    LPSPropTagArray raw = nullptr;
    HRESULT hr = message->GetIDsFromNames(1, names, MAPI_CREATE, &raw);
    MapiBuffer<SPropTagArray> tags(raw);
    if (hr != S_OK) {
        return FAILED(hr) ? hr : MAPI_E_CALL_FAILED;
    }
    *tag = CHANGE_PROP_TYPE(tags->aulPropTag[0], PROP_TYPE(property.tag));
    return S_OK;
}

std::wstring DisplayNames(const ItemDescription& item, LONG type) {
    std::wstring names;
    for (const ItemRecipient& recipient : item.recipients) {
        if (recipient.type == type) {
            names += (names.empty() ? L"" : L"; ") + recipient.displayName;
        }
    }
    return names;
}

HRESULT WriteProperties(const ItemDescription& item, IMessage* message) {
    std::vector<ItemProperty> computed;
    const std::pair<ULONG, LONG> displays[] = {
        {PR_DISPLAY_TO_W, MAPI_TO}, {PR_DISPLAY_CC_W, MAPI_CC}, {PR_DISPLAY_BCC_W, MAPI_BCC}};
    for (const auto& [tag, type] : displays) {
        bool given = false;
        for (const ItemProperty& property : item.properties) {
            given = given || (!property.set && PROP_ID(property.tag) == PROP_ID(tag));
        }
        if (!given) {
            ItemProperty display;
            display.tag = tag;
            display.text = DisplayNames(item, type);
            computed.push_back(std::move(display));
        }
    }
    ItemProperty messageClass;
    messageClass.tag = PR_MESSAGE_CLASS_W;
    messageClass.text = item.messageClass;
    computed.push_back(std::move(messageClass));

    std::vector<SPropValue> values;
    std::vector<std::string> narrow;
    narrow.reserve(item.properties.size());  // the values point into it
    for (const std::vector<ItemProperty>* list : {&std::as_const(computed), &item.properties}) {
        for (const ItemProperty& property : *list) {
            ULONG tag = property.tag;
            if (property.set) {
                HRESULT hr = NamedTagOf(message, property, &tag);
                if (FAILED(hr)) {
                    return hr;
                }
            }
            values.push_back(ValueOf(property, tag, narrow));
        }
    }
    LPSPropProblemArray raw = nullptr;
    HRESULT hr = message->SetProps(static_cast<ULONG>(values.size()), values.data(), &raw);
    MapiBuffer<SPropProblemArray> problems(raw);
    return SUCCEEDED(hr) && problems && problems->cProblem ? MAPI_E_CALL_FAILED : hr;
}

SPropValue Text(ULONG tag, const std::wstring& text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszW = const_cast<LPWSTR>(text.c_str());
    return value;
}

SPropValue Long(ULONG tag, LONG number) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    return value;
}

HRESULT WriteRecipients(const ItemDescription& item, IMessage* message) {
    if (item.recipients.empty()) {
        return S_OK;
    }
    LPADRLIST raw = nullptr;
    HRESULT hr =
        MAPIAllocateBuffer(CbNewADRLIST(item.recipients.size()), reinterpret_cast<void**>(&raw));
    if (FAILED(hr)) {
        return hr;
    }
    MapiBuffer<ADRLIST> list(raw);
    list->cEntries = 0;
    // As with real MAPI the rows' value arrays are buffers of their own, which the call may
    // replace; what the list holds afterwards is freed.
    struct FreeRows {
        ADRLIST* list;
        ~FreeRows() {
            for (ULONG i = 0; i < list->cEntries; ++i) {
                MAPIFreeBuffer(list->aEntries[i].rgPropVals);
            }
        }
    } freeRows{list.get()};
    for (const ItemRecipient& recipient : item.recipients) {
        LPSPropValue values = nullptr;
        hr = MAPIAllocateBuffer(5 * sizeof(SPropValue), reinterpret_cast<void**>(&values));
        if (FAILED(hr)) {
            return hr;
        }
        ULONG count = 0;
        values[count++] = Text(PR_DISPLAY_NAME_W, recipient.displayName);
        values[count++] = Text(PR_ADDRTYPE_W, recipient.addressType);
        values[count++] = Text(PR_EMAIL_ADDRESS_W, recipient.emailAddress);
        values[count++] = Long(PR_RECIPIENT_TYPE, recipient.type);
        if (!recipient.smtpAddress.empty()) {
            values[count++] = Text(kPrSmtpAddress, recipient.smtpAddress);
        }
        list->aEntries[list->cEntries++] = {0, count, values};
    }
    return message->ModifyRecipients(MODRECIP_ADD, list.get());
}

HRESULT WriteAttachments(const ItemDescription& item, IMessage* message) {
    for (const ItemAttachment& attachment : item.attachments) {
        ComPtr<IAttach> attach;
        ULONG number = 0;
        HRESULT hr = message->CreateAttach(nullptr, 0, &number, attach.put());
        if (FAILED(hr)) {
            return hr;
        }
        SPropValue data{};
        data.ulPropTag = PR_ATTACH_DATA_BIN;
        data.Value.bin.cb = static_cast<ULONG>(attachment.content.size());
        data.Value.bin.lpb = reinterpret_cast<LPBYTE>(const_cast<char*>(attachment.content.data()));
        const size_t dot = attachment.fileName.rfind(L'.');
        const std::wstring extension =
            dot == std::wstring::npos ? L"" : attachment.fileName.substr(dot);
        SPropValue hidden{};
        hidden.ulPropTag = PROP_TAG(PT_BOOLEAN, 0x7FFE);  // PR_ATTACHMENT_HIDDEN
        hidden.Value.b = TRUE;
        SPropValue props[] = {
            Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
            Text(PR_ATTACH_LONG_FILENAME_W, attachment.fileName),
            Text(PR_ATTACH_FILENAME_W, attachment.fileName),
            Text(PR_DISPLAY_NAME_W, attachment.fileName),
            Text(PR_ATTACH_EXTENSION_W, extension),
            Long(PR_ATTACH_SIZE, static_cast<LONG>(attachment.content.size())),
            data,
            hidden,
        };
        // The hidden flag only where it is set, as a store has it.
        hr = attach->SetProps(ARRAYSIZE(props) - (attachment.hidden ? 0 : 1), props, nullptr);
        if (SUCCEEDED(hr)) {
            hr = attach->SaveChanges(KEEP_OPEN_READWRITE);
        }
        if (FAILED(hr)) {
            return hr;
        }
    }
    return S_OK;
}

}  // namespace

ItemDescription ParseItemText(const std::wstring& text) {
    ItemDescription item;
    size_t line = 0;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(L'\n', start);
        std::wstring current = text.substr(start, end == std::wstring::npos ? end : end - start);
        start = end == std::wstring::npos ? text.size() : end + 1;
        ++line;
        if (!current.empty() && current.back() == L'\r') {
            current.pop_back();
        }
        current = Trim(current);
        if (current.empty() || current[0] == L'#') {
            continue;
        }
        const size_t equals = current.find(L'=');
        if (equals == std::wstring::npos) {
            Fail(line, L"expected \"key = value\"");
        }
        ParseLine(item, Trim(current.substr(0, equals)), Trim(current.substr(equals + 1)), line);
    }
    if (item.messageClass.empty()) {
        Fail(line, L"no \"class = ...\" line");
    }
    return item;
}

HRESULT WriteItem(const ItemDescription& item, IMessage* message) {
    if (!message) {
        return E_POINTER;
    }
    HRESULT hr = WriteProperties(item, message);
    if (SUCCEEDED(hr)) {
        hr = WriteRecipients(item, message);
    }
    if (SUCCEEDED(hr)) {
        hr = WriteAttachments(item, message);
    }
    return hr;
}

std::wstring ReadItemTextFile(const std::wstring& path) {
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        throw std::runtime_error("cannot open " + Narrow(path, CP_UTF8));
    }
    std::string bytes;
    char chunk[4096];
    DWORD read = 0;
    while (ReadFile(file.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) {
        bytes.append(chunk, read);
    }
    if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        bytes.erase(0, 3);
    }
    return Wide(bytes);
}

std::wstring ExchangeAddressFor(const std::wstring& smtpAddress) {
    return L"/o=Muster/ou=Exchange Administrative Group (FYDIBOHF23SPDLT)/cn=Recipients/cn=" +
           smtpAddress.substr(0, smtpAddress.find(L'@'));
}

}  // namespace outlooksim

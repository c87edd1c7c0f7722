#include "docprops/DocumentFileProperties.h"

#include <windows.h>
#include <objbase.h>
#include <propidl.h>
#include <xmllite.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <optional>

#include "common/ComPtr.h"
#include "common/UniqueResource.h"

namespace {

// Where a built-in property lives in a package and in a compound file.
enum class Part { Core, Extended, None };
enum class PropertySet { Summary, DocumentSummary, None };
// How Office types it: text, whole number, date, or an editing time that files keep as a
// duration and Office reports in minutes.
enum class Kind { Text, Number, Date, Minutes };

struct BuiltInProperty {
    const wchar_t* name;
    Kind kind;
    Part part;
    const wchar_t* element;  // local name in the core or extended part
    PropertySet set;
    PROPID id;
};

// Office's built-in vocabulary, in the order its collection hands it out.
constexpr BuiltInProperty kBuiltIn[] = {
    {L"Title", Kind::Text, Part::Core, L"title", PropertySet::Summary, PIDSI_TITLE},
    {L"Subject", Kind::Text, Part::Core, L"subject", PropertySet::Summary, PIDSI_SUBJECT},
    {L"Author", Kind::Text, Part::Core, L"creator", PropertySet::Summary, PIDSI_AUTHOR},
    {L"Keywords", Kind::Text, Part::Core, L"keywords", PropertySet::Summary, PIDSI_KEYWORDS},
    {L"Comments", Kind::Text, Part::Core, L"description", PropertySet::Summary, PIDSI_COMMENTS},
    {L"Template", Kind::Text, Part::Extended, L"Template", PropertySet::Summary, PIDSI_TEMPLATE},
    {L"Last author", Kind::Text, Part::Core, L"lastModifiedBy", PropertySet::Summary,
     PIDSI_LASTAUTHOR},
    {L"Revision number", Kind::Text, Part::Core, L"revision", PropertySet::Summary,
     PIDSI_REVNUMBER},
    {L"Application name", Kind::Text, Part::Extended, L"Application", PropertySet::Summary,
     PIDSI_APPNAME},
    {L"Last print date", Kind::Date, Part::Core, L"lastPrinted", PropertySet::Summary,
     PIDSI_LASTPRINTED},
    {L"Creation date", Kind::Date, Part::Core, L"created", PropertySet::Summary, PIDSI_CREATE_DTM},
    {L"Last save time", Kind::Date, Part::Core, L"modified", PropertySet::Summary,
     PIDSI_LASTSAVE_DTM},
    {L"Total editing time", Kind::Minutes, Part::Extended, L"TotalTime", PropertySet::Summary,
     PIDSI_EDITTIME},
    {L"Number of pages", Kind::Number, Part::Extended, L"Pages", PropertySet::Summary,
     PIDSI_PAGECOUNT},
    {L"Number of words", Kind::Number, Part::Extended, L"Words", PropertySet::Summary,
     PIDSI_WORDCOUNT},
    {L"Number of characters", Kind::Number, Part::Extended, L"Characters", PropertySet::Summary,
     PIDSI_CHARCOUNT},
    {L"Security", Kind::Number, Part::Extended, L"DocSecurity", PropertySet::Summary,
     PIDSI_DOC_SECURITY},
    {L"Category", Kind::Text, Part::Core, L"category", PropertySet::DocumentSummary,
     PIDDSI_CATEGORY},
    {L"Format", Kind::Text, Part::Extended, L"PresentationFormat", PropertySet::DocumentSummary,
     PIDDSI_PRESFORMAT},
    {L"Manager", Kind::Text, Part::Extended, L"Manager", PropertySet::DocumentSummary,
     PIDDSI_MANAGER},
    {L"Company", Kind::Text, Part::Extended, L"Company", PropertySet::DocumentSummary,
     PIDDSI_COMPANY},
    {L"Number of bytes", Kind::Number, Part::None, L"", PropertySet::DocumentSummary,
     PIDDSI_BYTECOUNT},
    {L"Number of lines", Kind::Number, Part::Extended, L"Lines", PropertySet::DocumentSummary,
     PIDDSI_LINECOUNT},
    {L"Number of paragraphs", Kind::Number, Part::Extended, L"Paragraphs",
     PropertySet::DocumentSummary, PIDDSI_PARCOUNT},
    {L"Number of slides", Kind::Number, Part::Extended, L"Slides", PropertySet::DocumentSummary,
     PIDDSI_SLIDECOUNT},
    {L"Number of notes", Kind::Number, Part::Extended, L"Notes", PropertySet::DocumentSummary,
     PIDDSI_NOTECOUNT},
    {L"Number of hidden Slides", Kind::Number, Part::Extended, L"HiddenSlides",
     PropertySet::DocumentSummary, PIDDSI_HIDDENCOUNT},
    {L"Number of multimedia clips", Kind::Number, Part::Extended, L"MMClips",
     PropertySet::DocumentSummary, PIDDSI_MMCLIPCOUNT},
    {L"Hyperlink base", Kind::Text, Part::Extended, L"HyperlinkBase", PropertySet::None, 0},
    {L"Number of characters (with spaces)", Kind::Number, Part::Extended, L"CharactersWithSpaces",
     PropertySet::DocumentSummary, 0x11},
    {L"Content type", Kind::Text, Part::Core, L"contentType", PropertySet::DocumentSummary, 0x1A},
    {L"Content status", Kind::Text, Part::Core, L"contentStatus", PropertySet::DocumentSummary,
     0x1B},
    {L"Language", Kind::Text, Part::Core, L"language", PropertySet::DocumentSummary, 0x1C},
    {L"Document version", Kind::Text, Part::Core, L"version", PropertySet::DocumentSummary, 0x1D},
};

// The code page of a property set that keeps its texts in UTF-16.
constexpr UINT kUnicodeCodePage = 1200;
// Property set streams are small; a bigger one is not read further.
constexpr size_t kLargestPropertySet = 1u << 20;

// The property set ids, spelled out here rather than taken from a system library.
constexpr FMTID kSummaryInformation = {
    0xF29F85E0, 0x4FF9, 0x1068, {0xAB, 0x91, 0x08, 0x00, 0x2B, 0x27, 0xB3, 0xD9}};
constexpr FMTID kDocumentSummaryInformation = {
    0xD5CDD502, 0x2E9C, 0x101B, {0x93, 0x97, 0x08, 0x00, 0x2B, 0x2C, 0xF9, 0xAE}};
constexpr FMTID kUserDefinedProperties = {
    0xD5CDD505, 0x2E9C, 0x101B, {0x93, 0x97, 0x08, 0x00, 0x2B, 0x2C, 0xF9, 0xAE}};

std::wstring Widen(const char* text, UINT codePage) {
    const int length = MultiByteToWideChar(codePage, 0, text, -1, nullptr, 0);
    std::wstring wide(static_cast<size_t>(length > 0 ? length : 1), L'\0');
    MultiByteToWideChar(codePage, 0, text, -1, wide.data(), length);
    wide.resize(wcslen(wide.c_str()));
    return wide;
}

Variant TextValue(const std::wstring& text) { return Variant(text.c_str()); }

Variant NumberValue(int32_t number) { return Variant(number); }

Variant DoubleValue(double number) {
    Variant value;
    value.vt = VT_R8;
    value.dblVal = number;
    return value;
}

// A moment in UTC as Office shows it: a date in the computer's local time.
Variant LocalDate(const FILETIME& utc) {
    SYSTEMTIME universal;
    SYSTEMTIME local;
    Variant value;
    if (FileTimeToSystemTime(&utc, &universal) &&
        SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local) &&
        SystemTimeToVariantTime(&local, &value.date)) {
        value.vt = VT_DATE;
    }
    return value;
}

// Reads `count` decimal digits at `at`, moving past them.
std::optional<int> Digits(const std::wstring& text, size_t& at, size_t count) {
    int number = 0;
    for (size_t end = at + count; at < end; ++at) {
        if (at >= text.size() || !iswdigit(text[at])) {
            return std::nullopt;
        }
        number = number * 10 + (text[at] - L'0');
    }
    return number;
}

// The dates of the package's parts: "2024-03-04T09:15:00Z", with or without seconds and their
// fractions, "Z" or an offset from UTC; a bare date ("2024-03-04", "2024-03", "2024") is midnight
// UTC of its first day.
std::optional<FILETIME> ParseUtc(const std::wstring& text) {
    SYSTEMTIME time{};
    time.wMonth = 1;
    time.wDay = 1;
    size_t at = 0;
    auto year = Digits(text, at, 4);
    if (!year) {
        return std::nullopt;
    }
    time.wYear = static_cast<WORD>(*year);
    WORD* const dateParts[] = {&time.wMonth, &time.wDay};
    for (WORD* part : dateParts) {
        if (at < text.size() && text[at] == L'-') {
            auto number = Digits(text, ++at, 2);
            if (!number) {
                return std::nullopt;
            }
            *part = static_cast<WORD>(*number);
        }
    }
    long offsetMinutes = 0;
    if (at < text.size() && text[at] == L'T') {
        auto hour = Digits(text, ++at, 2);
        auto minute = at < text.size() && text[at] == L':' ? Digits(text, ++at, 2) : std::nullopt;
        if (!hour || !minute) {
            return std::nullopt;
        }
        time.wHour = static_cast<WORD>(*hour);
        time.wMinute = static_cast<WORD>(*minute);
        if (at < text.size() && text[at] == L':') {
            auto second = Digits(text, ++at, 2);
            if (!second) {
                return std::nullopt;
            }
            time.wSecond = static_cast<WORD>(*second);
            if (at < text.size() && text[at] == L'.') {
                while (++at < text.size() && iswdigit(text[at])) {
                }
            }
        }
        if (at < text.size() && (text[at] == L'+' || text[at] == L'-')) {
            const long sign = text[at] == L'-' ? -1 : 1;
            auto hours = Digits(text, ++at, 2);
            auto minutes =
                at < text.size() && text[at] == L':' ? Digits(text, ++at, 2) : std::nullopt;
            if (!hours || !minutes) {
                return std::nullopt;
            }
            offsetMinutes = sign * (*hours * 60 + *minutes);
        } else if (at < text.size() && text[at] == L'Z') {
            ++at;
        }
    }
    FILETIME moment;
    if (at != text.size() || !SystemTimeToFileTime(&time, &moment)) {
        return std::nullopt;
    }
    ULARGE_INTEGER ticks{{moment.dwLowDateTime, moment.dwHighDateTime}};
    ticks.QuadPart -= static_cast<ULONGLONG>(static_cast<LONGLONG>(offsetMinutes) * 600000000LL);
    return FILETIME{ticks.LowPart, ticks.HighPart};
}

std::optional<long long> ParseWhole(const std::wstring& text) {
    wchar_t* end = nullptr;
    errno = 0;
    const long long number = std::wcstoll(text.c_str(), &end, 10);
    if (text.empty() || *end != L'\0' || errno != 0) {
        return std::nullopt;
    }
    return number;
}

// A text of the package as Office reads it into a value of `kind`; empty when it does not parse.
Variant PackageValue(Kind kind, const std::wstring& text) {
    if (kind == Kind::Text) {
        return TextValue(text);
    }
    if (kind == Kind::Date) {
        auto moment = ParseUtc(text);
        return moment ? LocalDate(*moment) : Variant();
    }
    auto number = ParseWhole(text);
    return number && *number >= INT32_MIN && *number <= INT32_MAX
               ? NumberValue(static_cast<int32_t>(*number))
               : Variant();
}

// ---- packages -------------------------------------------------------------------------------

// One element of a small XML part: its local name, attributes by local name, its text and its
// child elements. XmlLite does the parsing.
struct XmlElement {
    std::wstring name;
    std::vector<std::pair<std::wstring, std::wstring>> attributes;
    std::wstring text;
    std::vector<XmlElement> children;

    std::wstring Attribute(const wchar_t* wanted) const {
        for (const auto& [key, value] : attributes) {
            if (key == wanted) {
                return value;
            }
        }
        return std::wstring();
    }
};

using CreateXmlReaderFunction = HRESULT(WINAPI*)(REFIID, void**, IMalloc*);

// The system's XmlLite, loaded once for the life of the process.
CreateXmlReaderFunction XmlReaderFactory() {
    static const CreateXmlReaderFunction factory = [] {
        HMODULE module = LoadLibraryW(L"xmllite.dll");
        return module ? reinterpret_cast<CreateXmlReaderFunction>(
                            reinterpret_cast<void*>(GetProcAddress(module, "CreateXmlReader")))
                      : nullptr;
    }();
    if (!factory) {
        throw DocumentFileError("the system's XmlLite (xmllite.dll) is not available");
    }
    return factory;
}

std::wstring ReaderText(IXmlReader& reader,
                        HRESULT (STDMETHODCALLTYPE IXmlReader::*get)(LPCWSTR*, UINT*)) {
    LPCWSTR text = nullptr;
    UINT length = 0;
    return SUCCEEDED((reader.*get)(&text, &length)) && text ? std::wstring(text, length)
                                                            : std::wstring();
}

XmlElement ParseXml(const std::string& bytes, const std::string& part) {
    const std::string failure = "its part " + part + " is not well-formed XML";
    ComPtr<IStream> stream;
    if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, stream.put())) ||
        FAILED(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr)) ||
        FAILED(stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr))) {
        throw DocumentFileError("out of memory reading " + part);
    }
    ComPtr<IXmlReader> reader;
    if (FAILED(XmlReaderFactory()(__uuidof(IXmlReader), reader.put_void(), nullptr)) ||
        FAILED(reader->SetProperty(XmlReaderProperty_DtdProcessing, DtdProcessing_Prohibit)) ||
        FAILED(reader->SetInput(stream.get()))) {
        throw DocumentFileError("XmlLite cannot read " + part);
    }
    XmlElement document;
    std::vector<XmlElement*> open{&document};
    XmlNodeType type;
    HRESULT hr;
    while ((hr = reader->Read(&type)) == S_OK) {
        if (type == XmlNodeType_Element) {
            XmlElement element;
            element.name = ReaderText(*reader.get(), &IXmlReader::GetLocalName);
            const bool empty = reader->IsEmptyElement();
            for (HRESULT more = reader->MoveToFirstAttribute(); more == S_OK;
                 more = reader->MoveToNextAttribute()) {
                element.attributes.emplace_back(
                    ReaderText(*reader.get(), &IXmlReader::GetLocalName),
                    ReaderText(*reader.get(), &IXmlReader::GetValue));
            }
            open.back()->children.push_back(std::move(element));
            if (!empty) {
                open.push_back(&open.back()->children.back());
            }
        } else if (type == XmlNodeType_EndElement) {
            open.pop_back();
        } else if (type == XmlNodeType_Text || type == XmlNodeType_CDATA ||
                   type == XmlNodeType_Whitespace) {
            open.back()->text += ReaderText(*reader.get(), &IXmlReader::GetValue);
        }
    }
    if (FAILED(hr) || document.children.size() != 1) {
        throw DocumentFileError(failure);
    }
    return std::move(document.children.front());
}

std::string Utf8(const std::wstring& text) {
    const int length =
        WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(length > 0 ? length : 1), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, out.data(), length, nullptr, nullptr);
    out.resize(strlen(out.c_str()));
    return out;
}

bool EndsWith(const std::wstring& text, const std::wstring& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

struct PropertyParts {
    std::string core;
    std::string extended;
    std::string custom;
};

// The property parts the package's own relationships name.
PropertyParts FindPropertyParts(const ZipPackage& package) {
    if (!package.Has("_rels/.rels")) {
        throw DocumentFileError("it is a zip file but no Office package (it has no _rels/.rels)");
    }
    PropertyParts parts;
    for (const XmlElement& relationship :
         ParseXml(package.Read("_rels/.rels"), "_rels/.rels").children) {
        const std::wstring type = relationship.Attribute(L"Type");
        std::string target = Utf8(relationship.Attribute(L"Target"));
        if (relationship.Attribute(L"TargetMode") == L"External" || target.empty()) {
            continue;
        }
        // Targets of the package's own relationships are relative to its root.
        if (target.front() == '/') {
            target.erase(0, 1);
        }
        if (EndsWith(type, L"/metadata/core-properties")) {
            parts.core = target;
        } else if (EndsWith(type, L"/extended-properties")) {
            parts.extended = target;
        } else if (EndsWith(type, L"/custom-properties")) {
            parts.custom = target;
        }
    }
    return parts;
}

// The child elements of a part's root by local name (the core part mixes three namespaces).
const XmlElement* Child(const XmlElement& root, const wchar_t* name) {
    for (const XmlElement& child : root.children) {
        if (child.name == name) {
            return &child;
        }
    }
    return nullptr;
}

// A custom property's value: its one child names the type ("vt:lpwstr", "vt:i4", ...).
Variant CustomPackageValue(const XmlElement& property) {
    if (property.children.size() != 1) {
        return Variant();
    }
    const std::wstring& type = property.children.front().name;
    const std::wstring& text = property.children.front().text;
    if (type == L"lpwstr" || type == L"lpstr" || type == L"bstr") {
        return TextValue(text);
    }
    if (type == L"i1" || type == L"i2" || type == L"i4" || type == L"int" || type == L"ui1" ||
        type == L"ui2" || type == L"ui4" || type == L"uint") {
        return PackageValue(Kind::Number, text);
    }
    if (type == L"r4" || type == L"r8" || type == L"decimal") {
        wchar_t* end = nullptr;
        const double number = std::wcstod(text.c_str(), &end);
        return !text.empty() && *end == L'\0' ? DoubleValue(number) : Variant();
    }
    if (type == L"filetime" || type == L"date") {
        return PackageValue(Kind::Date, text);
    }
    if (type == L"bool") {
        return Variant(text == L"true" || text == L"1");
    }
    return Variant();
}

DocumentFileProperties ReadPackage(std::string bytes) {
    const ZipPackage package(std::move(bytes));
    const PropertyParts parts = FindPropertyParts(package);
    std::optional<XmlElement> core;
    std::optional<XmlElement> extended;
    if (!parts.core.empty() && package.Has(parts.core)) {
        core = ParseXml(package.Read(parts.core), parts.core);
    }
    if (!parts.extended.empty() && package.Has(parts.extended)) {
        extended = ParseXml(package.Read(parts.extended), parts.extended);
    }
    DocumentFileProperties properties;
    for (const BuiltInProperty& builtIn : kBuiltIn) {
        const std::optional<XmlElement>& root = builtIn.part == Part::Core ? core : extended;
        const XmlElement* element =
            builtIn.part != Part::None && root ? Child(*root, builtIn.element) : nullptr;
        // The package keeps the editing time in minutes already.
        const Kind kind = builtIn.kind == Kind::Minutes ? Kind::Number : builtIn.kind;
        properties.builtIn.push_back(
            {builtIn.name, element ? PackageValue(kind, element->text) : Variant()});
    }
    if (!parts.custom.empty() && package.Has(parts.custom)) {
        for (const XmlElement& property :
             ParseXml(package.Read(parts.custom), parts.custom).children) {
            Variant value = CustomPackageValue(property);
            if (property.name == L"property" && value.vt != VT_EMPTY) {
                properties.custom.push_back({property.Attribute(L"name"), std::move(value)});
            }
        }
    }
    return properties;
}

// ---- compound files -------------------------------------------------------------------------
//
// The property sets are read from their streams here rather than through the system's property
// set storage: Office writes the document summary stream with two sections (the document summary,
// then the custom properties), and not every implementation reads that layout (Wine's reads one
// section, from just after the first section's entry). ole32 opens the compound file and its
// streams; this reads the documented stream layout: the set's header with its list of sections,
// a section's table of property offsets, its code page, its dictionary of names, and each value.

// A property set stream's bytes, read with bounds checks: any overrun means a damaged file.
class SetBytes {
public:
    explicit SetBytes(std::string bytes) : m_bytes(std::move(bytes)) {}
    uint32_t U32(size_t at) const { return U16(at) | static_cast<uint32_t>(U16(at + 2)) << 16; }
    uint16_t U16(size_t at) const {
        Check(at, 2);
        return static_cast<uint16_t>(static_cast<uint8_t>(m_bytes[at]) |
                                     static_cast<uint8_t>(m_bytes[at + 1]) << 8);
    }
    std::string Bytes(size_t at, size_t count) const {
        Check(at, count);
        return m_bytes.substr(at, count);
    }
    // A text of `count` units in the set's code page (UTF-16 for 1200), up to its first NUL.
    std::wstring Text(size_t at, size_t count, UINT codePage) const {
        std::wstring text;
        if (codePage == kUnicodeCodePage) {
            const std::string bytes = Bytes(at, count * 2);
            text.assign(reinterpret_cast<const wchar_t*>(bytes.data()), count);
        } else {
            text = Widen(Bytes(at, count).c_str(), codePage);
        }
        return text.substr(0, text.find(L'\0'));
    }

private:
    void Check(size_t at, size_t count) const {
        if (at > m_bytes.size() || m_bytes.size() - at < count) {
            throw DocumentFileError("its property sets are damaged");
        }
    }
    std::string m_bytes;
};

// A stored value as Office reports it; empty for the kinds Office does not show. `kind` tells a
// date from an editing time, which files keep as a duration.
Variant SetValue(const SetBytes& bytes, size_t at, UINT codePage, Kind kind) {
    const uint32_t type = bytes.U32(at);
    at += 4;
    switch (type) {
    case VT_LPSTR: {
        const uint32_t size = bytes.U32(at);
        return TextValue(
            bytes.Text(at + 4, codePage == kUnicodeCodePage ? size / 2 : size, codePage));
    }
    case VT_LPWSTR:
        return TextValue(bytes.Text(at + 4, bytes.U32(at), kUnicodeCodePage));
    case VT_I2:
        return NumberValue(static_cast<int16_t>(bytes.U16(at)));
    case VT_I4:
    case VT_INT:
        return NumberValue(static_cast<int32_t>(bytes.U32(at)));
    case VT_R8: {
        double number;
        memcpy(&number, bytes.Bytes(at, 8).data(), 8);
        return DoubleValue(number);
    }
    case VT_BOOL:
        return Variant(bytes.U16(at) != 0);
    case VT_FILETIME: {
        const FILETIME time{bytes.U32(at), bytes.U32(at + 4)};
        const ULONGLONG ticks =
            static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
        if (kind == Kind::Minutes) {
            return NumberValue(static_cast<int32_t>(ticks / 600000000ULL));
        }
        // Files that never held the date keep zero.
        return ticks ? LocalDate(time) : Variant();
    }
    default:
        return Variant();
    }
}

struct SetProperty {
    PROPID id;
    std::wstring name;  // from the section's dictionary, where it has one
    Variant value;
};

// The properties of the section `id` in the stream `streamName`; none when there is no such
// stream or section.
std::vector<SetProperty> ReadSection(IStorage& storage, const wchar_t* streamName, const FMTID& id,
                                     PropertySet builtInSet) {
    ComPtr<IStream> stream;
    if (FAILED(storage.OpenStream(streamName, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                                  stream.put()))) {
        return {};
    }
    std::string raw;
    char chunk[4096];
    ULONG read = 0;
    while (SUCCEEDED(stream->Read(chunk, sizeof chunk, &read)) && read > 0 &&
           raw.size() < kLargestPropertySet) {
        raw.append(chunk, read);
    }
    const SetBytes bytes(std::move(raw));
    // The header: byte order, format, system, class id, then the sections' ids and offsets.
    size_t section = 0;
    const std::string wanted(reinterpret_cast<const char*>(&id), sizeof id);
    for (uint32_t i = 0, sections = bytes.U32(24); i < sections && i < 16; ++i) {
        if (bytes.Bytes(28 + i * 20, 16) == wanted) {
            section = bytes.U32(28 + i * 20 + 16);
        }
    }
    if (section == 0) {
        return {};
    }
    const uint32_t count = bytes.U32(section + 4);
    if (count > 4096) {
        throw DocumentFileError("its property sets are damaged");
    }
    auto offset = [&](uint32_t i) { return section + bytes.U32(section + 12 + i * 8); };
    UINT codePage = CP_ACP;
    size_t dictionary = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t propertyId = bytes.U32(section + 8 + i * 8);
        if (propertyId == PID_CODEPAGE && bytes.U32(offset(i)) == VT_I2) {
            codePage = bytes.U16(offset(i) + 4);
        } else if (propertyId == PID_DICTIONARY) {
            dictionary = offset(i);
        }
    }
    std::vector<std::pair<uint32_t, std::wstring>> names;
    for (size_t i = 0, entries = dictionary ? bytes.U32(dictionary) : 0, at = dictionary + 4;
         i < entries && i < count; ++i) {
        const uint32_t length = bytes.U32(at + 4);
        names.emplace_back(bytes.U32(at), bytes.Text(at + 8, length, codePage));
        // Names in UTF-16 are padded to whole double words.
        at += 8 + (codePage == kUnicodeCodePage ? (length * 2 + 3) / 4 * 4 : length);
    }
    std::vector<SetProperty> properties;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t propertyId = bytes.U32(section + 8 + i * 8);
        if (propertyId == PID_DICTIONARY || propertyId == PID_CODEPAGE) {
            continue;
        }
        Kind kind = Kind::Date;
        for (const BuiltInProperty& builtIn : kBuiltIn) {
            if (builtIn.set == builtInSet && builtIn.id == propertyId) {
                kind = builtIn.kind;
            }
        }
        SetProperty property{propertyId, std::wstring(),
                             SetValue(bytes, offset(i), codePage, kind)};
        for (const auto& [namedId, name] : names) {
            if (namedId == propertyId) {
                property.name = name;
            }
        }
        properties.push_back(std::move(property));
    }
    return properties;
}

DocumentFileProperties ReadCompoundFile(const std::wstring& path) {
    ComPtr<IStorage> storage;
    const HRESULT hr = StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE,
                                      nullptr /* snbExclude */, 0, storage.put());
    if (FAILED(hr)) {
        char code[16];
        snprintf(code, sizeof code, "0x%08lX", static_cast<unsigned long>(hr));
        throw DocumentFileError(std::string("it is a damaged compound file (") + code + ")");
    }
    const wchar_t* const summaryStream = L"\005SummaryInformation";
    const wchar_t* const documentSummaryStream = L"\005DocumentSummaryInformation";
    std::vector<SetProperty> summary =
        ReadSection(*storage.get(), summaryStream, kSummaryInformation, PropertySet::Summary);
    std::vector<SetProperty> documentSummary =
        ReadSection(*storage.get(), documentSummaryStream, kDocumentSummaryInformation,
                    PropertySet::DocumentSummary);
    DocumentFileProperties properties;
    for (const BuiltInProperty& builtIn : kBuiltIn) {
        std::vector<SetProperty>* set = builtIn.set == PropertySet::Summary ? &summary
                                        : builtIn.set == PropertySet::DocumentSummary
                                            ? &documentSummary
                                            : nullptr;
        Variant value;
        for (size_t i = 0; set && i < set->size(); ++i) {
            if ((*set)[i].id == builtIn.id) {
                value = std::move((*set)[i].value);
            }
        }
        properties.builtIn.push_back({builtIn.name, std::move(value)});
    }
    for (SetProperty& property : ReadSection(*storage.get(), documentSummaryStream,
                                             kUserDefinedProperties, PropertySet::None)) {
        // Office keeps its own bookkeeping there too ("_PID_LINKBASE", ...); it does not show it.
        if (!property.name.empty() && property.name.rfind(L"_PID_", 0) != 0 &&
            property.value.vt != VT_EMPTY) {
            properties.custom.push_back({property.name, std::move(property.value)});
        }
    }
    return properties;
}

std::string ReadFileBytes(const std::wstring& path) {
    UniqueFileHandle file(CreateFileW(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr /* security */,
        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr /* template */));
    if (!file) {
        throw DocumentFileError("it cannot be opened (error " + std::to_string(GetLastError()) +
                                ")");
    }
    std::string bytes;
    char chunk[65536];
    DWORD read = 0;
    while (ReadFile(file.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) {
        bytes.append(chunk, read);
    }
    return bytes;
}

}  // namespace

bool DocumentFileProperties::Empty() const {
    for (const DocumentFileProperty& property : builtIn) {
        if (property.value.vt != VT_EMPTY) {
            return false;
        }
    }
    return custom.empty();
}

DocumentFileProperties ReadDocumentFileProperties(const std::wstring& path) {
    std::string bytes = ReadFileBytes(path);
    if (bytes.empty()) {
        throw DocumentFileError("it is empty");
    }
    if (bytes.compare(0, 8, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) == 0) {
        return ReadCompoundFile(path);
    }
    if (bytes.compare(0, 2, "PK") != 0) {
        throw DocumentFileError("it is neither an Office package nor a compound file");
    }
    return ReadPackage(std::move(bytes));
}

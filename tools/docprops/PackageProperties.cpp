// A package's properties: the package's own relationships name its core, extended and custom
// property parts; XmlLite reads them.
#include <windows.h>
#include <objbase.h>
#include <xmllite.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <optional>
#include <vector>

#include "common/ComPtr.h"
#include "docprops/PropertyVocabulary.h"
#include "docprops/ZipPackage.h"

namespace {

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

}  // namespace

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

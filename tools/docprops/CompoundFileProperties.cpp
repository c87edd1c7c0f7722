// A compound file's (.doc, .xls, .ppt) properties. The property sets are read from their streams
// here rather than through the system's property set storage: Office writes the document summary
// stream with two sections (the document summary, then the custom properties), and not every
// implementation reads that layout (Wine's reads one section, from just after the first section's
// entry). ole32 opens the compound file and its streams; this reads the documented stream layout:
// the set's header with its list of sections, a section's table of property offsets, its code
// page, its dictionary of names, and each value.
#include <windows.h>
#include <objbase.h>
#include <propidl.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/ComPtr.h"
#include "docprops/PropertyVocabulary.h"

namespace {

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

}  // namespace

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

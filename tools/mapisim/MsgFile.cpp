// The Outlook message file layout on a compound-file storage: a property stream
// "__properties_version1.0" per object (a header, then 16 bytes per property: tag, flags and
// either the value or the size of a value kept in its own "__substg1.0_TTTTTTTT" stream), one
// "__recip_version1.0_#NNNNNNNN" storage per recipient, one "__attach_version1.0_#NNNNNNNN"
// storage per attachment, and the named-property map in "__nameid_version1.0": the GUID stream,
// the entry stream, the string stream, and the name-to-id hash streams.
#include <windows.h>
#include <objbase.h>

#include <mapicode.h>
#include <mapiguid.h>
#include <mapitags.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "common/ComPtr.h"
#include "tools/mapisim/SimModel.h"

namespace mapisim {
namespace {

constexpr wchar_t kPropertyStream[] = L"__properties_version1.0";
constexpr wchar_t kNameIdStorage[] = L"__nameid_version1.0";
constexpr wchar_t kRecipientPrefix[] = L"__recip_version1.0_#";
constexpr wchar_t kAttachmentPrefix[] = L"__attach_version1.0_#";
constexpr ULONG kGuidStreamTag = 0x00020102;
constexpr ULONG kEntryStreamTag = 0x00030102;
constexpr ULONG kStringStreamTag = 0x00040102;
constexpr ULONG kHashStreamCount = 0x1F;
// Header sizes of the property stream: the message at the top of the file, and its recipients
// and attachments.
constexpr size_t kTopHeaderSize = 32;
constexpr size_t kEmbeddedHeaderSize = 24;
constexpr size_t kSubobjectHeaderSize = 8;
// An attachment's embedded message: a storage named for PR_ATTACH_DATA_OBJ, whose entry in the
// attachment's property stream has the size 0xFFFFFFFF.
constexpr ULONG kEmbeddedTag = PROP_TAG(PT_OBJECT, 0x3701);
constexpr ULONG kReadableWritable = 0x2 | 0x4;

constexpr DWORD kCreateMode = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kOpenMode = STGM_READ | STGM_SHARE_EXCLUSIVE;

std::wstring SubstreamName(ULONG tag) {
    wchar_t name[32];
    swprintf(name, 32, L"__substg1.0_%08X", static_cast<unsigned>(tag));
    return name;
}

std::wstring NumberedName(const wchar_t* prefix, ULONG number) {
    wchar_t name[64];
    swprintf(name, 64, L"%ls%08X", prefix, static_cast<unsigned>(number));
    return name;
}

void PutU32(std::vector<BYTE>& out, ULONG value) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<BYTE>(value >> (8 * i)));
    }
}

ULONG GetU32(const BYTE* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<ULONG>(p[3]) << 24);
}

HRESULT WriteStream(IStorage* storage, const std::wstring& name, const std::vector<BYTE>& bytes) {
    ComPtr<IStream> stream;
    HRESULT hr = storage->CreateStream(name.c_str(), kCreateMode, 0, 0, stream.put());
    if (FAILED(hr)) {
        return hr;
    }
    ULONG written = 0;
    if (!bytes.empty()) {
        hr = stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    }
    return FAILED(hr) ? hr : (written == bytes.size() ? S_OK : STG_E_WRITEFAULT);
}

HRESULT ReadStream(IStorage* storage, const std::wstring& name, std::vector<BYTE>& bytes) {
    ComPtr<IStream> stream;
    HRESULT hr = storage->OpenStream(name.c_str(), nullptr, kOpenMode, 0, stream.put());
    if (FAILED(hr)) {
        return hr;
    }
    STATSTG stat{};
    hr = stream->Stat(&stat, STATFLAG_NONAME);
    if (FAILED(hr)) {
        return hr;
    }
    if (stat.cbSize.HighPart) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    bytes.resize(stat.cbSize.LowPart);
    ULONG read = 0;
    if (!bytes.empty()) {
        hr = stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read);
    }
    return FAILED(hr) ? hr : (read == bytes.size() ? S_OK : STG_E_READFAULT);
}

// The terminating zero of a string type's values, in bytes; 0 for other types.
size_t ZeroUnit(ULONG baseType) {
    return baseType == PT_UNICODE ? 2 : (baseType == PT_STRING8 ? 1 : 0);
}

// Writers differ on whether a string's stream holds the terminating zero; the model never does.
void StripZeros(std::vector<BYTE>& data, size_t unit) {
    while (unit && data.size() >= unit &&
           std::all_of(data.end() - unit, data.end(), [](BYTE b) { return b == 0; })) {
        data.resize(data.size() - unit);
    }
}

std::wstring ValueStreamName(ULONG tag, ULONG index) {
    wchar_t name[48];
    swprintf(name, 48, L"__substg1.0_%08X-%08X", static_cast<unsigned>(tag),
             static_cast<unsigned>(index));
    return name;
}

// A multi-valued property: values of a fixed size together in the property's stream; strings
// and binaries each in a stream of its own, numbered, with their lengths (zero included) in the
// property's stream. `size` is the size of the property's stream.
HRESULT WriteMultiValue(IStorage* storage, const Property& prop, size_t* size) {
    ULONG base = PROP_TYPE(prop.tag) & ~MV_FLAG;
    int element = ElementSize(base);
    std::vector<BYTE> main;
    for (size_t i = 0; i < prop.items.size(); ++i) {
        std::vector<BYTE> value = prop.items[i];
        if (element > 0) {
            value.resize(static_cast<size_t>(element), 0);
            main.insert(main.end(), value.begin(), value.end());
            continue;
        }
        value.resize(value.size() + ZeroUnit(base), 0);
        PutU32(main, static_cast<ULONG>(value.size()));
        if (base == PT_BINARY) {
            PutU32(main, 0);
        }
        HRESULT hr = WriteStream(storage, ValueStreamName(prop.tag, static_cast<ULONG>(i)), value);
        if (FAILED(hr)) {
            return hr;
        }
    }
    *size = main.size();
    return WriteStream(storage, SubstreamName(prop.tag), main);
}

HRESULT ReadMultiValue(IStorage* storage, Property& prop) {
    ULONG base = PROP_TYPE(prop.tag) & ~MV_FLAG;
    int element = ElementSize(base);
    std::vector<BYTE> main;
    HRESULT hr = ReadStream(storage, SubstreamName(prop.tag), main);
    if (FAILED(hr)) {
        return hr;
    }
    if (element > 0) {
        for (size_t at = 0; at + element <= main.size(); at += element) {
            prop.items.emplace_back(main.begin() + at, main.begin() + at + element);
        }
        return S_OK;
    }
    size_t stride = base == PT_BINARY ? 8 : 4;
    for (size_t i = 0; i < main.size() / stride; ++i) {
        std::vector<BYTE> value;
        hr = ReadStream(storage, ValueStreamName(prop.tag, static_cast<ULONG>(i)), value);
        if (FAILED(hr)) {
            return hr;
        }
        StripZeros(value, ZeroUnit(base));
        prop.items.push_back(std::move(value));
    }
    return S_OK;
}

// One object's property stream and substreams, after a header of `header` bytes.
HRESULT WriteProperties(IStorage* storage, const PropertyList& props, std::vector<BYTE> header,
                        bool embedded = false) {
    std::vector<BYTE> entries = std::move(header);
    if (embedded) {
        PutU32(entries, kEmbeddedTag);
        PutU32(entries, kReadableWritable);
        PutU32(entries, 0xFFFFFFFF);
        PutU32(entries, 0);
    }
    for (const auto& [id, prop] : props) {
        ULONG type = PROP_TYPE(prop.tag);
        PutU32(entries, prop.tag);
        PutU32(entries, kReadableWritable);
        if (type & MV_FLAG) {
            size_t size = 0;
            HRESULT hr = WriteMultiValue(storage, prop, &size);
            if (FAILED(hr)) {
                return hr;
            }
            PutU32(entries, static_cast<ULONG>(size));
            PutU32(entries, 0);
            continue;
        }
        int fixed = FixedSize(type);
        if (fixed > 0) {
            BYTE value[8] = {};
            memcpy(value, prop.data.data(), std::min<size_t>(prop.data.size(), 8));
            entries.insert(entries.end(), value, value + 8);
            continue;
        }
        // A string's size counts its terminating zero, which its stream does not hold.
        size_t size = prop.data.size();
        size += type == PT_UNICODE ? 2 : (type == PT_STRING8 ? 1 : 0);
        PutU32(entries, static_cast<ULONG>(size));
        PutU32(entries, 0);
        HRESULT hr = WriteStream(storage, SubstreamName(prop.tag), prop.data);
        if (FAILED(hr)) {
            return hr;
        }
    }
    return WriteStream(storage, kPropertyStream, entries);
}

HRESULT ReadProperties(IStorage* storage, size_t headerSize, PropertyList& props) {
    std::vector<BYTE> bytes;
    HRESULT hr = ReadStream(storage, kPropertyStream, bytes);
    if (FAILED(hr)) {
        return hr;
    }
    if (bytes.size() < headerSize) {
        return MAPI_E_CORRUPT_DATA;
    }
    for (size_t at = headerSize; at + 16 <= bytes.size(); at += 16) {
        Property prop;
        prop.tag = GetU32(&bytes[at]);
        ULONG type = PROP_TYPE(prop.tag);
        int fixed = FixedSize(type);
        if ((type & MV_FLAG) && ElementSize(type & ~MV_FLAG) >= 0) {
            hr = ReadMultiValue(storage, prop);
        } else if (fixed > 0) {
            prop.data.assign(&bytes[at + 8], &bytes[at + 8] + fixed);
        } else if (fixed == 0) {
            hr = ReadStream(storage, SubstreamName(prop.tag), prop.data);
            StripZeros(prop.data, ZeroUnit(type));
        } else {
            continue;  // a type the simulator does not store (embedded objects, errors)
        }
        if (FAILED(hr)) {
            return hr;
        }
        props[PROP_ID(prop.tag)] = std::move(prop);
    }
    return S_OK;
}

// CRC-32 (reflected, polynomial 0xEDB88320, zero start value, no final inversion) of a string
// name's UTF-16 bytes: the key of a string name in the hash streams. The simulator itself reads
// names from the entry stream only, so a reader that looks string names up through the hash
// streams is the one place a different CRC convention would show.
ULONG NameCrc(const std::wstring& name) {
    ULONG crc = 0;
    const BYTE* p = reinterpret_cast<const BYTE*>(name.data());
    for (size_t i = 0; i < name.size() * sizeof(wchar_t); ++i) {
        crc ^= p[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1)));
        }
    }
    return crc;
}

// The GUID index of the entry stream: 1 for PS_MAPI, 2 for PS_PUBLIC_STRINGS, 3 and up for the
// GUID stream's entries.
ULONG GuidIndex(const GUID& guid, std::vector<GUID>& guids) {
    if (IsEqualGUID(guid, PS_MAPI)) {
        return 1;
    }
    if (IsEqualGUID(guid, PS_PUBLIC_STRINGS)) {
        return 2;
    }
    for (size_t i = 0; i < guids.size(); ++i) {
        if (IsEqualGUID(guid, guids[i])) {
            return static_cast<ULONG>(i + 3);
        }
    }
    guids.push_back(guid);
    return static_cast<ULONG>(guids.size() + 2);
}

HRESULT WriteNameMap(IStorage* root, const std::vector<NamedProperty>& names) {
    ComPtr<IStorage> storage;
    HRESULT hr = root->CreateStorage(kNameIdStorage, kCreateMode, 0, 0, storage.put());
    if (FAILED(hr)) {
        return hr;
    }
    std::vector<GUID> guids;
    std::vector<BYTE> entries;
    std::vector<BYTE> strings;
    std::vector<std::vector<BYTE>> buckets(kHashStreamCount);
    for (size_t i = 0; i < names.size(); ++i) {
        const NamedProperty& name = names[i];
        ULONG guidIndex = GuidIndex(name.guid, guids);
        ULONG kind = name.kind == MNID_STRING ? 1 : 0;
        ULONG key = static_cast<ULONG>(name.id);
        if (kind) {
            key = static_cast<ULONG>(strings.size());
            PutU32(strings, static_cast<ULONG>(name.name.size() * sizeof(wchar_t)));
            const BYTE* text = reinterpret_cast<const BYTE*>(name.name.data());
            strings.insert(strings.end(), text, text + name.name.size() * sizeof(wchar_t));
            strings.resize((strings.size() + 3) & ~size_t{3}, 0);
        }
        ULONG indexAndKind = (static_cast<ULONG>(i) << 16) | (guidIndex << 1) | kind;
        PutU32(entries, key);
        PutU32(entries, indexAndKind);
        ULONG hashKey = kind ? NameCrc(name.name) : key;
        std::vector<BYTE>& bucket =
            buckets[(hashKey ^ ((guidIndex << 1) | kind)) % kHashStreamCount];
        PutU32(bucket, hashKey);
        PutU32(bucket, indexAndKind);
    }
    std::vector<BYTE> guidBytes(guids.size() * sizeof(GUID));
    if (!guids.empty()) {
        memcpy(guidBytes.data(), guids.data(), guidBytes.size());
    }
    hr = WriteStream(storage.get(), SubstreamName(kGuidStreamTag), guidBytes);
    if (SUCCEEDED(hr)) {
        hr = WriteStream(storage.get(), SubstreamName(kEntryStreamTag), entries);
    }
    if (SUCCEEDED(hr)) {
        hr = WriteStream(storage.get(), SubstreamName(kStringStreamTag), strings);
    }
    for (ULONG i = 0; SUCCEEDED(hr) && i < kHashStreamCount; ++i) {
        if (!buckets[i].empty()) {
            hr = WriteStream(storage.get(), SubstreamName(((0x1000 + i) << 16) | PT_BINARY),
                             buckets[i]);
        }
    }
    if (SUCCEEDED(hr)) {
        hr = storage->Commit(STGC_DEFAULT);
    }
    return hr;
}

HRESULT ReadNameMap(IStorage* root, std::vector<NamedProperty>& names) {
    ComPtr<IStorage> storage;
    if (FAILED(root->OpenStorage(kNameIdStorage, nullptr, kOpenMode, nullptr, 0, storage.put()))) {
        return S_OK;  // a message without named properties
    }
    std::vector<BYTE> guidBytes, entries, strings;
    HRESULT hr = ReadStream(storage.get(), SubstreamName(kGuidStreamTag), guidBytes);
    if (SUCCEEDED(hr)) {
        hr = ReadStream(storage.get(), SubstreamName(kEntryStreamTag), entries);
    }
    if (SUCCEEDED(hr)) {
        hr = ReadStream(storage.get(), SubstreamName(kStringStreamTag), strings);
    }
    if (FAILED(hr)) {
        return hr;
    }
    for (size_t at = 0; at + 8 <= entries.size(); at += 8) {
        ULONG key = GetU32(&entries[at]);
        ULONG indexAndKind = GetU32(&entries[at + 4]);
        ULONG index = indexAndKind >> 16;
        ULONG guidIndex = (indexAndKind & 0xFFFF) >> 1;
        NamedProperty name;
        if (guidIndex == 1) {
            name.guid = PS_MAPI;
        } else if (guidIndex == 2) {
            name.guid = PS_PUBLIC_STRINGS;
        } else if (guidIndex >= 3 && (guidIndex - 2) * sizeof(GUID) <= guidBytes.size()) {
            memcpy(&name.guid, &guidBytes[(guidIndex - 3) * sizeof(GUID)], sizeof(GUID));
        } else {
            return MAPI_E_CORRUPT_DATA;
        }
        if (indexAndKind & 1) {
            name.kind = MNID_STRING;
            if (key + 4 > strings.size() || key + 4 + GetU32(&strings[key]) > strings.size()) {
                return MAPI_E_CORRUPT_DATA;
            }
            ULONG length = GetU32(&strings[key]);
            name.name.resize(length / sizeof(wchar_t));
            memcpy(name.name.data(), &strings[key + 4], name.name.size() * sizeof(wchar_t));
        } else {
            name.kind = MNID_ID;
            name.id = static_cast<LONG>(key);
        }
        if (names.size() <= index) {
            names.resize(index + 1);
        }
        names[index] = name;
    }
    return S_OK;
}

HRESULT WriteBody(IStorage* storage, const MessageModel& model, size_t headerSize);

// One storage per recipient or attachment, numbered in order; an attachment's embedded message
// goes into a storage of its own inside the attachment's.
HRESULT WriteSubobjects(IStorage* root, const wchar_t* prefix,
                        const std::vector<PropertyList>& objects, const MessageModel* owner) {
    for (size_t i = 0; i < objects.size(); ++i) {
        const MessageModel* embedded = nullptr;
        if (owner) {
            auto it = owner->embedded.find(GetLong(objects[i], PR_ATTACH_NUM, -1));
            embedded = it == owner->embedded.end() ? nullptr : it->second.get();
        }
        ComPtr<IStorage> storage;
        HRESULT hr = root->CreateStorage(NumberedName(prefix, static_cast<ULONG>(i)).c_str(),
                                         kCreateMode, 0, 0, storage.put());
        if (SUCCEEDED(hr)) {
            hr = WriteProperties(storage.get(), objects[i],
                                 std::vector<BYTE>(kSubobjectHeaderSize, 0), embedded);
        }
        if (SUCCEEDED(hr) && embedded) {
            ComPtr<IStorage> message;
            hr = storage->CreateStorage(SubstreamName(kEmbeddedTag).c_str(), kCreateMode, 0, 0,
                                        message.put());
            if (SUCCEEDED(hr)) {
                hr = WriteBody(message.get(), *embedded, kEmbeddedHeaderSize);
            }
            if (SUCCEEDED(hr)) {
                hr = message->Commit(STGC_DEFAULT);
            }
        }
        if (SUCCEEDED(hr)) {
            hr = storage->Commit(STGC_DEFAULT);
        }
        if (FAILED(hr)) {
            return hr;
        }
    }
    return S_OK;
}

// A message's properties, recipients and attachments, after a header of `headerSize` bytes.
HRESULT WriteBody(IStorage* storage, const MessageModel& model, size_t headerSize) {
    ULONG recipients = static_cast<ULONG>(model.recipients.size());
    ULONG attachments = static_cast<ULONG>(model.attachments.size());
    std::vector<BYTE> header(8, 0);
    PutU32(header, recipients);   // the next recipient's storage number
    PutU32(header, attachments);  // the next attachment's storage number
    PutU32(header, recipients);
    PutU32(header, attachments);
    header.resize(headerSize, 0);
    HRESULT hr = WriteProperties(storage, model.props, std::move(header));
    if (SUCCEEDED(hr)) {
        hr = WriteSubobjects(storage, kRecipientPrefix, model.recipients, nullptr);
    }
    if (SUCCEEDED(hr)) {
        hr = WriteSubobjects(storage, kAttachmentPrefix, model.attachments, &model);
    }
    return hr;
}

// Removes everything the storage holds, so a message written again leaves no stale values.
HRESULT Clear(IStorage* storage) {
    ComPtr<IEnumSTATSTG> elements;
    HRESULT hr = storage->EnumElements(0, nullptr, 0, elements.put());
    if (FAILED(hr)) {
        return hr;
    }
    std::vector<std::wstring> names;
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        names.emplace_back(stat.pwcsName);
        CoTaskMemFree(stat.pwcsName);
    }
    for (const std::wstring& name : names) {
        hr = storage->DestroyElement(name.c_str());
        if (FAILED(hr)) {
            return hr;
        }
    }
    return S_OK;
}

}  // namespace

HRESULT WriteMessage(IStorage* storage, const MessageModel& model) {
    HRESULT hr = Clear(storage);
    if (SUCCEEDED(hr)) {
        hr = WriteBody(storage, model, kTopHeaderSize);
    }
    if (SUCCEEDED(hr)) {
        hr = WriteNameMap(storage, model.names);
    }
    return hr;
}

namespace {

// A message's properties, recipients and attachments (with their embedded messages), after a
// header of `headerSize` bytes; an empty storage is an empty message.
HRESULT ReadBody(IStorage* storage, MessageModel& model, size_t headerSize) {
    ComPtr<IEnumSTATSTG> elements;
    HRESULT hr = storage->EnumElements(0, nullptr, 0, elements.put());
    if (FAILED(hr)) {
        return hr;
    }
    bool hasProperties = false;
    std::map<ULONG, std::wstring> recipients, attachments;
    STATSTG stat{};
    while (elements->Next(1, &stat, nullptr) == S_OK) {
        std::wstring name = stat.pwcsName;
        CoTaskMemFree(stat.pwcsName);
        size_t recipientPrefix = wcslen(kRecipientPrefix);
        size_t attachmentPrefix = wcslen(kAttachmentPrefix);
        if (name == kPropertyStream) {
            hasProperties = true;
        } else if (stat.type == STGTY_STORAGE &&
                   name.compare(0, recipientPrefix, kRecipientPrefix) == 0) {
            recipients[wcstoul(name.c_str() + recipientPrefix, nullptr, 16)] = name;
        } else if (stat.type == STGTY_STORAGE &&
                   name.compare(0, attachmentPrefix, kAttachmentPrefix) == 0) {
            attachments[wcstoul(name.c_str() + attachmentPrefix, nullptr, 16)] = name;
        }
    }
    if (!hasProperties) {
        return S_OK;  // a new, empty message
    }
    hr = ReadProperties(storage, headerSize, model.props);
    for (const auto& [number, name] : recipients) {
        ComPtr<IStorage> sub;
        if (SUCCEEDED(hr)) {
            hr = storage->OpenStorage(name.c_str(), nullptr, kOpenMode, nullptr, 0, sub.put());
        }
        if (SUCCEEDED(hr)) {
            model.recipients.emplace_back();
            hr = ReadProperties(sub.get(), kSubobjectHeaderSize, model.recipients.back());
            if (GetLong(model.recipients.back(), PR_ROWID, -1) < 0) {
                PutLong(model.recipients.back(), PR_ROWID, static_cast<LONG>(number));
            }
        }
    }
    for (const auto& [number, name] : attachments) {
        ComPtr<IStorage> sub;
        if (SUCCEEDED(hr)) {
            hr = storage->OpenStorage(name.c_str(), nullptr, kOpenMode, nullptr, 0, sub.put());
        }
        if (SUCCEEDED(hr)) {
            model.attachments.emplace_back();
            hr = ReadProperties(sub.get(), kSubobjectHeaderSize, model.attachments.back());
            if (GetLong(model.attachments.back(), PR_ATTACH_NUM, -1) < 0) {
                PutLong(model.attachments.back(), PR_ATTACH_NUM, static_cast<LONG>(number));
            }
        }
        ComPtr<IStorage> message;
        if (SUCCEEDED(hr) &&
            SUCCEEDED(sub->OpenStorage(SubstreamName(kEmbeddedTag).c_str(), nullptr, kOpenMode,
                                       nullptr, 0, message.put()))) {
            auto embedded = std::make_shared<MessageModel>();
            hr = ReadBody(message.get(), *embedded, kEmbeddedHeaderSize);
            model.embedded[GetLong(model.attachments.back(), PR_ATTACH_NUM, 0)] = embedded;
        }
    }
    return hr;
}

}  // namespace

HRESULT ReadMessage(IStorage* storage, MessageModel& model) {
    model = MessageModel{};
    HRESULT hr = ReadBody(storage, model, kTopHeaderSize);
    return SUCCEEDED(hr) ? ReadNameMap(storage, model.names) : hr;
}

}  // namespace mapisim

// Conversions between the simulator's stored values and MAPI's SPropValue.
#include "tools/mapisim/SimModel.h"

#include <mapicode.h>
#include <mapitags.h>
#include <mapix.h>

#include <cstring>
#include <new>

namespace mapisim {

std::atomic<ULONG> g_liveObjects{0};

bool NamedProperty::operator==(const NamedProperty& other) const {
    if (!IsEqualGUID(guid, other.guid) || kind != other.kind) {
        return false;
    }
    return kind == MNID_ID ? id == other.id : name == other.name;
}

HRESULT CaughtError() noexcept {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return MAPI_E_CALL_FAILED;
    }
}

int FixedSize(ULONG type) {
    switch (type) {
    case PT_I2:
    case PT_BOOLEAN:
        return 2;
    case PT_LONG:
    case PT_R4:
        return 4;
    case PT_DOUBLE:
    case PT_CURRENCY:
    case PT_APPTIME:
    case PT_I8:
    case PT_SYSTIME:
        return 8;
    case PT_STRING8:
    case PT_UNICODE:
    case PT_BINARY:
    case PT_CLSID:
        return 0;
    default:
        return -1;
    }
}

bool IsByteStringType(ULONG type) { return FixedSize(type) == 0; }

int ElementSize(ULONG baseType) {
    if (baseType == PT_BOOLEAN) {
        return -1;
    }
    return baseType == PT_CLSID ? static_cast<int>(sizeof(GUID)) : FixedSize(baseType);
}

std::wstring Widen(const std::string& narrow) {
    if (narrow.empty()) {
        return {};
    }
    int length =
        MultiByteToWideChar(CP_ACP, 0, narrow.data(), static_cast<int>(narrow.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_ACP, 0, narrow.data(), static_cast<int>(narrow.size()), wide.data(),
                        length);
    return wide;
}

std::string Narrow(const std::wstring& wide) {
    if (wide.empty()) {
        return {};
    }
    int length = WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), nullptr,
                                     0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(length), '\0');
    WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), narrow.data(),
                        length, nullptr, nullptr);
    return narrow;
}

void PutUnicode(PropertyList& list, ULONG tag, const std::wstring& text) {
    Property& p = list[PROP_ID(tag)];
    p.tag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
    const BYTE* bytes = reinterpret_cast<const BYTE*>(text.data());
    p.data.assign(bytes, bytes + text.size() * sizeof(wchar_t));
}

void PutLong(PropertyList& list, ULONG tag, LONG value) {
    Property& p = list[PROP_ID(tag)];
    p.tag = CHANGE_PROP_TYPE(tag, PT_LONG);
    const BYTE* bytes = reinterpret_cast<const BYTE*>(&value);
    p.data.assign(bytes, bytes + sizeof(value));
}

LONG GetLong(const PropertyList& list, ULONG tag, LONG fallback) {
    auto it = list.find(PROP_ID(tag));
    if (it == list.end() || PROP_TYPE(it->second.tag) != PT_LONG || it->second.data.size() != 4) {
        return fallback;
    }
    LONG value;
    memcpy(&value, it->second.data.data(), sizeof(value));
    return value;
}

namespace {

void SetError(SPropValue& out, ULONG tag, SCODE error) {
    out.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tag));
    out.Value.err = error;
}

// Stored string bytes converted to the requested string type, with the terminating zero.
std::vector<BYTE> StringBytes(const std::vector<BYTE>& stored, ULONG storedType, ULONG wantedType) {
    std::vector<BYTE> bytes;
    if (storedType == wantedType) {
        bytes = stored;
    } else if (wantedType == PT_UNICODE) {
        std::wstring wide = Widen(std::string(stored.begin(), stored.end()));
        const BYTE* p = reinterpret_cast<const BYTE*>(wide.data());
        bytes.assign(p, p + wide.size() * sizeof(wchar_t));
    } else {
        std::wstring wide(stored.size() / sizeof(wchar_t), L'\0');
        memcpy(wide.data(), stored.data(), wide.size() * sizeof(wchar_t));
        std::string narrow = Narrow(wide);
        bytes.assign(narrow.begin(), narrow.end());
    }
    bytes.resize(bytes.size() + (wantedType == PT_UNICODE ? sizeof(wchar_t) : 1), 0);
    return bytes;
}

bool IsString(ULONG type) { return type == PT_UNICODE || type == PT_STRING8; }

// A multi-valued property as SPropValue: the array, and each string or binary, allocated on
// `parent`. All the multi-valued members of the union share one layout: a count, then a pointer.
bool ToMultiValue(const Property& stored, ULONG tag, bool unicode, bool limit, void* parent,
                  SPropValue& out) {
    ULONG storedBase = PROP_TYPE(stored.tag) & ~MV_FLAG;
    ULONG wantedType = PROP_TYPE(tag);
    if (wantedType == PT_UNSPECIFIED) {
        wantedType = IsString(storedBase) ? MV_FLAG | (unicode ? PT_UNICODE : PT_STRING8)
                                          : PROP_TYPE(stored.tag);
    }
    ULONG wantedBase = wantedType & ~MV_FLAG;
    if (!(wantedType & MV_FLAG) ||
        (wantedBase != storedBase && !(IsString(storedBase) && IsString(wantedBase)))) {
        SetError(out, tag, MAPI_E_NOT_FOUND);
        return false;
    }
    std::vector<std::vector<BYTE>> items;
    size_t total = 0;
    for (const std::vector<BYTE>& item : stored.items) {
        items.push_back(IsString(wantedBase) ? StringBytes(item, storedBase, wantedBase) : item);
        total += items.back().size();
    }
    if (limit && total > kGetPropsLimit) {
        SetError(out, tag, MAPI_E_NOT_ENOUGH_MEMORY);
        return false;
    }
    int element = ElementSize(wantedBase);
    size_t slot = element > 0               ? static_cast<size_t>(element)
                  : wantedBase == PT_BINARY ? sizeof(SBinary)
                                            : sizeof(void*);
    BYTE* array = nullptr;
    if (MAPIAllocateMore(static_cast<ULONG>(slot * (items.size() + 1)), parent,
                         reinterpret_cast<void**>(&array)) != S_OK) {
        SetError(out, tag, MAPI_E_NOT_ENOUGH_MEMORY);
        return false;
    }
    for (size_t i = 0; i < items.size(); ++i) {
        if (element > 0) {
            memset(array + i * slot, 0, slot);
            memcpy(array + i * slot, items[i].data(), std::min(items[i].size(), slot));
            continue;
        }
        void* copy = nullptr;
        if (MAPIAllocateMore(static_cast<ULONG>(items[i].size() + 1), parent, &copy) != S_OK) {
            SetError(out, tag, MAPI_E_NOT_ENOUGH_MEMORY);
            return false;
        }
        if (!items[i].empty()) {
            memcpy(copy, items[i].data(), items[i].size());
        }
        if (wantedBase == PT_BINARY) {
            SBinary binary{static_cast<ULONG>(items[i].size()), static_cast<LPBYTE>(copy)};
            memcpy(array + i * slot, &binary, sizeof(binary));
        } else {
            memcpy(array + i * slot, &copy, sizeof(copy));
        }
    }
    out.ulPropTag = PROP_TAG(wantedType, PROP_ID(tag));
    out.Value.MVl.cValues = static_cast<ULONG>(items.size());
    memcpy(&out.Value.MVl.lpl, &array, sizeof(array));
    return true;
}

HRESULT FromMultiValue(const SPropValue& value, Property& stored) {
    ULONG base = PROP_TYPE(value.ulPropTag) & ~MV_FLAG;
    int element = ElementSize(base);
    if (element < 0) {
        return MAPI_E_INVALID_TYPE;
    }
    ULONG count = value.Value.MVl.cValues;
    const BYTE* array = nullptr;
    memcpy(&array, &value.Value.MVl.lpl, sizeof(array));
    if (count && !array) {
        return MAPI_E_INVALID_PARAMETER;
    }
    for (ULONG i = 0; i < count; ++i) {
        const BYTE* bytes = nullptr;
        size_t size = 0;
        if (element > 0) {
            bytes = array + i * static_cast<size_t>(element);
            size = static_cast<size_t>(element);
        } else if (base == PT_BINARY) {
            SBinary binary;
            memcpy(&binary, array + i * sizeof(SBinary), sizeof(binary));
            bytes = binary.lpb;
            size = binary.cb;
        } else {
            memcpy(&bytes, array + i * sizeof(void*), sizeof(bytes));
            if (!bytes) {
                return MAPI_E_INVALID_PARAMETER;
            }
            size = base == PT_UNICODE ? wcslen(reinterpret_cast<const wchar_t*>(bytes)) * 2
                                      : strlen(reinterpret_cast<const char*>(bytes));
        }
        stored.items.emplace_back(bytes, bytes + size);
    }
    return S_OK;
}

}  // namespace

bool ToPropValue(const PropertyList& list, ULONG tag, bool unicode, bool limit, void* parent,
                 SPropValue& out) {
    memset(&out, 0, sizeof(out));
    auto it = list.find(PROP_ID(tag));
    if (it == list.end()) {
        SetError(out, tag, MAPI_E_NOT_FOUND);
        return false;
    }
    const Property& stored = it->second;
    if (PROP_TYPE(stored.tag) & MV_FLAG) {
        return ToMultiValue(stored, tag, unicode, limit, parent, out);
    }
    ULONG storedType = PROP_TYPE(stored.tag);
    ULONG wantedType = PROP_TYPE(tag);
    bool storedIsString = storedType == PT_UNICODE || storedType == PT_STRING8;
    if (wantedType == PT_UNSPECIFIED) {
        wantedType = storedIsString ? (unicode ? PT_UNICODE : PT_STRING8) : storedType;
    }
    bool wantedIsString = wantedType == PT_UNICODE || wantedType == PT_STRING8;
    if (wantedType != storedType && !(storedIsString && wantedIsString)) {
        SetError(out, tag, MAPI_E_NOT_FOUND);
        return false;
    }
    ULONG resultTag = PROP_TAG(wantedType, PROP_ID(tag));
    int fixed = FixedSize(wantedType);
    if (fixed > 0) {
        out.ulPropTag = resultTag;
        memcpy(&out.Value, stored.data.data(), std::min<size_t>(stored.data.size(), fixed));
        return true;
    }
    std::vector<BYTE> bytes =
        wantedIsString ? StringBytes(stored.data, storedType, wantedType) : stored.data;
    if (limit && bytes.size() > kGetPropsLimit) {
        SetError(out, tag, MAPI_E_NOT_ENOUGH_MEMORY);
        return false;
    }
    void* buffer = nullptr;
    if (MAPIAllocateMore(static_cast<ULONG>(bytes.size() ? bytes.size() : 1), parent, &buffer) !=
        S_OK) {
        SetError(out, tag, MAPI_E_NOT_ENOUGH_MEMORY);
        return false;
    }
    if (!bytes.empty()) {
        memcpy(buffer, bytes.data(), bytes.size());
    }
    out.ulPropTag = resultTag;
    switch (wantedType) {
    case PT_UNICODE:
        out.Value.lpszW = static_cast<LPWSTR>(buffer);
        break;
    case PT_STRING8:
        out.Value.lpszA = static_cast<LPSTR>(buffer);
        break;
    case PT_CLSID:
        out.Value.lpguid = static_cast<LPGUID>(buffer);
        break;
    default:
        out.Value.bin.cb = static_cast<ULONG>(bytes.size());
        out.Value.bin.lpb = static_cast<LPBYTE>(buffer);
        break;
    }
    return true;
}

HRESULT FromPropValue(const SPropValue& value, PropertyList& list) {
    ULONG type = PROP_TYPE(value.ulPropTag);
    if ((type & MV_FLAG) && PROP_ID(value.ulPropTag) != 0) {
        Property stored;
        stored.tag = value.ulPropTag;
        HRESULT hr = FromMultiValue(value, stored);
        if (SUCCEEDED(hr)) {
            list[PROP_ID(value.ulPropTag)] = std::move(stored);
        }
        return hr;
    }
    int fixed = FixedSize(type);
    if (fixed < 0 || PROP_ID(value.ulPropTag) == 0) {
        return MAPI_E_INVALID_TYPE;
    }
    Property stored;
    stored.tag = value.ulPropTag;
    const BYTE* bytes = nullptr;
    size_t count = 0;
    if (fixed > 0) {
        bytes = reinterpret_cast<const BYTE*>(&value.Value);
        count = static_cast<size_t>(fixed);
    } else if (type == PT_UNICODE) {
        if (!value.Value.lpszW) {
            return MAPI_E_INVALID_PARAMETER;
        }
        bytes = reinterpret_cast<const BYTE*>(value.Value.lpszW);
        count = wcslen(value.Value.lpszW) * sizeof(wchar_t);
    } else if (type == PT_STRING8) {
        if (!value.Value.lpszA) {
            return MAPI_E_INVALID_PARAMETER;
        }
        bytes = reinterpret_cast<const BYTE*>(value.Value.lpszA);
        count = strlen(value.Value.lpszA);
    } else if (type == PT_CLSID) {
        if (!value.Value.lpguid) {
            return MAPI_E_INVALID_PARAMETER;
        }
        bytes = reinterpret_cast<const BYTE*>(value.Value.lpguid);
        count = sizeof(GUID);
    } else {
        if (!value.Value.bin.lpb && value.Value.bin.cb) {
            return MAPI_E_INVALID_PARAMETER;
        }
        bytes = value.Value.bin.lpb;
        count = value.Value.bin.cb;
    }
    if (count) {
        stored.data.assign(bytes, bytes + count);
    }
    list[PROP_ID(value.ulPropTag)] = std::move(stored);
    return S_OK;
}

}  // namespace mapisim

// The simulator's in-memory message: properties, recipients, attachments and the named-property
// map, independent of any COM object, so the message file reader and writer and the MAPI objects
// share one model. Also the conversions between the model and MAPI's SPropValue.
#pragma once

#include <windows.h>
#include <mapidefs.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace mapisim {

extern std::atomic<ULONG> g_liveObjects;

// Holds a slim reader/writer lock exclusively for a scope; unlike std::mutex it cannot throw.
class ExclusiveLock {
public:
    explicit ExclusiveLock(SRWLOCK& lock) noexcept : m_lock(lock) {
        AcquireSRWLockExclusive(&m_lock);
    }
    ~ExclusiveLock() { ReleaseSRWLockExclusive(&m_lock); }
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;

private:
    SRWLOCK& m_lock;
};

// One MAPI call from a program: the outermost offers itself to the hook a program installed
// (MapiSimSetCallHook), those it makes while it runs do not.
class SimCall {
public:
    explicit SimCall(const wchar_t* name) noexcept;
    ~SimCall();
    SimCall(const SimCall&) = delete;
    SimCall& operator=(const SimCall&) = delete;
    HRESULT Status() const noexcept { return m_status; }

private:
    HRESULT m_status = S_OK;
};
// Opens a method or function: returns the hook's failure at once.
#define MAPISIM_CALL(name)             \
    ::mapisim::SimCall simCall_(name); \
    if (FAILED(simCall_.Status())) {   \
        return simCall_.Status();      \
    }

// GetProps answers values longer than this with MAPI_E_NOT_ENOUGH_MEMORY, as a message store
// does; OpenProperty reads them whole through a stream.
constexpr size_t kGetPropsLimit = 32 * 1024;

// A stored value. Fixed-size types hold their bytes as they lie in SPropValue's union; PT_UNICODE
// holds UTF-16 code units and PT_STRING8 narrow characters, both without the terminating zero;
// PT_BINARY the bytes; PT_CLSID the 16 bytes of the GUID.
// A multi-valued property keeps its values in `items`, each in the form a single value of its
// base type would have in `data`.
struct Property {
    ULONG tag = 0;
    std::vector<BYTE> data;
    std::vector<std::vector<BYTE>> items;
};
// Keyed by property id: an object holds one value per id, whatever its type.
using PropertyList = std::map<ULONG, Property>;

struct NamedProperty {
    GUID guid{};
    ULONG kind = MNID_ID;
    LONG id = 0;
    std::wstring name;
    bool operator==(const NamedProperty& other) const;
};
// Named property i has the property id 0x8000 + i.
constexpr ULONG kFirstNamedId = 0x8000;

struct MessageModel {
    PropertyList props;
    std::vector<PropertyList> recipients;   // each holds its PR_ROWID
    std::vector<PropertyList> attachments;  // each holds its PR_ATTACH_NUM
    // The messages attached as PR_ATTACH_DATA_OBJ, by attachment number.
    std::map<LONG, std::shared_ptr<MessageModel>> embedded;
    // Only the message at the top of a file has names; embedded messages use those.
    std::vector<NamedProperty> names;
};

// Bytes of a fixed-size type, 0 for the types kept as byte strings, -1 for the types the
// simulator does not store (multi-valued, objects, errors).
int FixedSize(ULONG type);
bool IsByteStringType(ULONG type);
// Bytes of one value of a multi-valued type's base type when all values have that size (16 for
// PT_CLSID), 0 for strings and binaries, -1 for base types that cannot be multi-valued.
int ElementSize(ULONG baseType);

// The value of `tag` from the list as an SPropValue whose variable parts are allocated with
// MAPIAllocateMore on `parent`. `tag`'s type may be PT_UNSPECIFIED (the stored type, strings as
// PT_UNICODE when `unicode`), or the other string type (converted). Absent values, mismatched
// types and, when `limit`, values too long for GetProps become PT_ERROR values. Returns whether
// the value is real.
bool ToPropValue(const PropertyList& list, ULONG tag, bool unicode, bool limit, void* parent,
                 SPropValue& out);
// Stores `value` in `list`; fails for types the simulator does not store.
HRESULT FromPropValue(const SPropValue& value, PropertyList& list);

// The result a COM method or export gives for the exception it caught: no exception leaves the
// module.
HRESULT CaughtError() noexcept;

std::wstring Widen(const std::string& narrow);
std::string Narrow(const std::wstring& wide);
void PutUnicode(PropertyList& list, ULONG tag, const std::wstring& text);
void PutLong(PropertyList& list, ULONG tag, LONG value);
// A PT_LONG value, or `fallback` when absent.
LONG GetLong(const PropertyList& list, ULONG tag, LONG fallback);

// Reads the message file layout from a storage into `model` (an empty storage gives an empty
// message). Writes `model` into a storage, replacing what it held.
HRESULT ReadMessage(IStorage* storage, MessageModel& model);
HRESULT WriteMessage(IStorage* storage, const MessageModel& model);

}  // namespace mapisim

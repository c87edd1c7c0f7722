#include "outlooksim/MapiSession.h"

#include <mapitags.h>
#include <mapiutil.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "common/ComObject.h"
#include "officesim/CallSequence.h"
#include "outlooksim/MapiHelpers.h"

namespace outlooksim {

// What the session's objects share: the address book's entries and the objects alive, for the
// reference checks. Outlives the simulated Outlook while anybody holds one of its objects.
struct Directory {
    struct Live {
        std::wstring label;
        const void* object;
        ULONG (*refCount)(const void* object);
    };
    std::vector<AddressBookEntry> entries;
    std::vector<Live> live;
};

namespace {

constexpr ULONG kPrSmtpAddress = PROP_TAG(PT_UNICODE, 0x39FE);
constexpr wchar_t kSessionLabel[] = L"MAPI session";

// Registers itself among the directory's live objects for as long as it exists.
template <class Derived>
class Tracked {
protected:
    Tracked(std::shared_ptr<Directory> directory, std::wstring label)
        : m_directory(std::move(directory)) {
        m_directory->live.push_back({std::move(label), this, [](const void* object) {
                                         return static_cast<const Derived*>(
                                                    static_cast<const Tracked*>(object))
                                             ->References();
                                     }});
    }
    ~Tracked() {
        auto& live = m_directory->live;
        live.erase(
            std::remove_if(live.begin(), live.end(),
                           [this](const Directory::Live& entry) { return entry.object == this; }),
            live.end());
    }
    Tracked(const Tracked&) = delete;
    Tracked& operator=(const Tracked&) = delete;

    std::shared_ptr<Directory> m_directory;
};

#define OUTLOOKSIM_NO_SUPPORT \
    override { return MAPI_E_NO_SUPPORT; }

// The interfaces with every method answering MAPI_E_NO_SUPPORT; the objects below override the
// few they model.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
class NoSupportSession : public IMAPISession {
public:
    MAPI_IMAPISESSION_METHODS(OUTLOOKSIM_NO_SUPPORT)
};
class NoSupportAddrBook : public IAddrBook {
public:
    MAPI_IMAPIPROP_METHODS(OUTLOOKSIM_NO_SUPPORT)
    MAPI_IADDRBOOK_METHODS(OUTLOOKSIM_NO_SUPPORT)
};
class NoSupportMailUser : public IMailUser {
public:
    MAPI_IMAPIPROP_METHODS(OUTLOOKSIM_NO_SUPPORT)
};
#pragma GCC diagnostic pop
#undef OUTLOOKSIM_NO_SUPPORT

// One property of a mail user, before it is copied into the caller's buffer.
struct UserProperty {
    ULONG tag;
    std::wstring text;
    LONG number = 0;
    const std::vector<BYTE>* bytes = nullptr;
};

std::vector<UserProperty> PropertiesOf(const AddressBookEntry& entry) {
    return {
        {PR_DISPLAY_NAME_W, entry.displayName},      {PR_ADDRTYPE_W, L"EX"},
        {PR_EMAIL_ADDRESS_W, entry.exchangeAddress}, {kPrSmtpAddress, entry.smtpAddress},
        {PR_ENTRYID, L"", 0, &entry.entryId},        {PR_OBJECT_TYPE, L"", MAPI_MAILUSER},
        {PR_DISPLAY_TYPE, L"", DT_MAILUSER},
    };
}

bool IsText(ULONG type) { return type == PT_UNICODE || type == PT_STRING8; }

// Copies `property` as the requested type into `value`, with what it points to allocated "more"
// on `base`. A type the property does not have gives PT_ERROR.
HRESULT CopyValue(const UserProperty& property, ULONG requested, bool unicode, void* base,
                  SPropValue& value) {
    ULONG type = PROP_TYPE(requested);
    const ULONG own = PROP_TYPE(property.tag);
    if (type == PT_UNSPECIFIED) {
        type = own == PT_UNICODE && !unicode ? PT_STRING8 : own;
    }
    if (!(type == own || (IsText(type) && IsText(own)))) {
        value.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(requested));
        value.Value.err = MAPI_E_NOT_FOUND;
        return S_OK;
    }
    value.ulPropTag = PROP_TAG(type, PROP_ID(property.tag));
    if (type == PT_UNICODE) {
        const size_t bytes = (property.text.size() + 1) * sizeof(wchar_t);
        HRESULT hr = MAPIAllocateMore(static_cast<ULONG>(bytes), base,
                                      reinterpret_cast<void**>(&value.Value.lpszW));
        if (SUCCEEDED(hr)) {
            std::memcpy(value.Value.lpszW, property.text.c_str(), bytes);
        }
        return hr;
    }
    if (type == PT_STRING8) {
        const std::string narrow = Narrow(property.text);
        HRESULT hr = MAPIAllocateMore(static_cast<ULONG>(narrow.size() + 1), base,
                                      reinterpret_cast<void**>(&value.Value.lpszA));
        if (SUCCEEDED(hr)) {
            std::memcpy(value.Value.lpszA, narrow.c_str(), narrow.size() + 1);
        }
        return hr;
    }
    if (type == PT_BINARY) {
        value.Value.bin.cb = static_cast<ULONG>(property.bytes->size());
        HRESULT hr = MAPIAllocateMore(value.Value.bin.cb ? value.Value.bin.cb : 1, base,
                                      reinterpret_cast<void**>(&value.Value.bin.lpb));
        if (SUCCEEDED(hr) && value.Value.bin.cb) {
            std::memcpy(value.Value.bin.lpb, property.bytes->data(), value.Value.bin.cb);
        }
        return hr;
    }
    value.Value.l = property.number;
    return S_OK;
}

class MailUser final
    : public ComObject<MailUser, LiveCount::NotCounted,
                       Implements<NoSupportMailUser, IID_IMailUser, IID_IMAPIProp>>,
      public Tracked<MailUser> {
public:
    MailUser(std::shared_ptr<Directory> directory, AddressBookEntry entry)
        : Tracked(std::move(directory), L"mail user " + entry.displayName),
          m_entry(std::move(entry)) {}
    ULONG References() const { return RefCount(); }

    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                       LPSPropValue* values) noexcept override try {
        if (CallSequence::Fault fault{};
            CallSequence::Next(L"IMailUser::GetProps", CallSequence::Kind::Mapi, fault)) {
            return fault.hr;
        }
        if (!count || !values) {
            return MAPI_E_INVALID_PARAMETER;
        }
        *count = 0;
        *values = nullptr;
        const bool unicode = (flags & MAPI_UNICODE) != 0;
        const auto properties = PropertiesOf(m_entry);
        std::vector<ULONG> requested;
        if (tags) {
            requested.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
        } else {
            for (const UserProperty& property : properties) {
                requested.push_back(CHANGE_PROP_TYPE(property.tag, PT_UNSPECIFIED));
            }
        }
        LPSPropValue raw = nullptr;
        HRESULT hr = MAPIAllocateBuffer(
            static_cast<ULONG>(std::max<size_t>(requested.size(), 1) * sizeof(SPropValue)),
            reinterpret_cast<void**>(&raw));
        if (FAILED(hr)) {
            return hr;
        }
        MapiBuffer<SPropValue> result(raw);
        bool errors = false;
        for (size_t i = 0; i < requested.size(); ++i) {
            SPropValue& value = result.get()[i];
            value = SPropValue{};
            value.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(requested[i]));
            value.Value.err = MAPI_E_NOT_FOUND;
            for (const UserProperty& property : properties) {
                if (PROP_ID(property.tag) == PROP_ID(requested[i])) {
                    hr = CopyValue(property, requested[i], unicode, raw, value);
                    if (FAILED(hr)) {
                        return hr;
                    }
                }
            }
            errors = errors || PROP_TYPE(value.ulPropTag) == PT_ERROR;
        }
        *count = static_cast<ULONG>(requested.size());
        *values = result.release();
        return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
    } catch (...) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }

private:
    friend ComObject;
    AddressBookEntry m_entry;
};

class AddrBook final
    : public ComObject<AddrBook, LiveCount::NotCounted,
                       Implements<NoSupportAddrBook, IID_IAddrBook, IID_IMAPIProp>>,
      public Tracked<AddrBook> {
public:
    explicit AddrBook(std::shared_ptr<Directory> directory)
        : Tracked(std::move(directory), L"address book") {}
    ULONG References() const { return RefCount(); }

    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG size, LPENTRYID entryId, LPCIID iid, ULONG,
                                        ULONG* objectType, LPUNKNOWN* unknown) noexcept override
        try {
        if (CallSequence::Fault fault{};
            CallSequence::Next(L"IAddrBook::OpenEntry", CallSequence::Kind::Mapi, fault)) {
            return fault.hr;
        }
        if (!unknown) {
            return MAPI_E_INVALID_PARAMETER;
        }
        *unknown = nullptr;
        if (iid && !IsEqualIID(*iid, IID_IMailUser) && !IsEqualIID(*iid, IID_IMAPIProp)) {
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        }
        const BYTE* bytes = reinterpret_cast<const BYTE*>(entryId);
        for (const AddressBookEntry& entry : m_directory->entries) {
            if (entryId && size == entry.entryId.size() &&
                std::equal(bytes, bytes + size, entry.entryId.begin())) {
                ComPtr<MailUser> user = MakeComObject<MailUser>(m_directory, entry);
                if (objectType) {
                    *objectType = MAPI_MAILUSER;
                }
                *unknown = static_cast<IMailUser*>(user.Detach());
                return S_OK;
            }
        }
        return MAPI_E_NOT_FOUND;
    } catch (...) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }

private:
    friend ComObject;
};

class SessionObject final : public ComObject<SessionObject, LiveCount::NotCounted,
                                             Implements<NoSupportSession, IID_IMAPISession>>,
                            public Tracked<SessionObject> {
public:
    explicit SessionObject(std::shared_ptr<Directory> directory)
        : Tracked(std::move(directory), kSessionLabel) {}
    ULONG References() const { return RefCount(); }

    HRESULT STDMETHODCALLTYPE OpenAddressBook(ULONG_PTR, LPCIID iid, ULONG,
                                              LPADRBOOK* book) noexcept override try {
        if (CallSequence::Fault fault{};
            CallSequence::Next(L"IMAPISession::OpenAddressBook", CallSequence::Kind::Mapi, fault)) {
            return fault.hr;
        }
        if (!book) {
            return MAPI_E_INVALID_PARAMETER;
        }
        *book = nullptr;
        if (iid && !IsEqualIID(*iid, IID_IAddrBook)) {
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        }
        *book = MakeComObject<AddrBook>(m_directory).Detach();
        return S_OK;
    } catch (...) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }

private:
    friend ComObject;
};

}  // namespace

SimulatedSession::SimulatedSession() : m_directory(std::make_shared<Directory>()) {
    m_session = ComPtr<IMAPISession>(MakeComObject<SessionObject>(m_directory).get());
}

SimulatedSession::~SimulatedSession() = default;

ComPtr<IMAPISession> SimulatedSession::Share() {
    ++m_shared;
    return m_session;
}

void SimulatedSession::AddEntry(AddressBookEntry entry) {
    m_directory->entries.push_back(std::move(entry));
}

RefCountList SimulatedSession::RefCounts() const {
    RefCountList counts;
    for (const Directory::Live& live : m_directory->live) {
        counts.emplace_back(live.label, live.refCount(live.object));
    }
    return counts;
}

ULONG SimulatedSession::LiveObjects() const {
    ULONG count = 0;
    for (const Directory::Live& live : m_directory->live) {
        // The session lives as long as this object; only the others' references to it count.
        count += live.label == kSessionLabel ? live.refCount(live.object) - 1 - m_shared : 1;
    }
    return count;
}

}  // namespace outlooksim

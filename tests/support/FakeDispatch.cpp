#include "support/FakeDispatch.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <utility>

#include "common/ComError.h"
#include "support/TestFiles.h"

namespace {

// Deep copies that read through VT_BYREF, as a server reads its arguments.
Variant CopyOf(const VARIANT& source) {
    Variant copy;
    // The source is only read; the declaration merely lacks the const.
    ThrowIfFailed(::VariantCopyInd(&copy, const_cast<VARIANT*>(&source)));
    return copy;
}

// An injected DeferredException keeps its scode in the reserved field until the caller asks for
// the details, the way a server postpones building its error text.
HRESULT STDAPICALLTYPE FillInDeferred(EXCEPINFO* excep) {
    excep->scode = static_cast<SCODE>(reinterpret_cast<intptr_t>(excep->pvReserved));
    excep->pvReserved = nullptr;
    excep->pfnDeferredFillIn = nullptr;
    excep->bstrSource = ::SysAllocString(L"FakeDispatch");
    excep->bstrDescription = ::SysAllocString(L"injected failure (deferred)");
    return S_OK;
}

void FillException(EXCEPINFO* excep, HRESULT hr, FakeDispatch::FaultStyle style) {
    if (!excep) {
        return;
    }
    *excep = EXCEPINFO{};
    switch (style) {
    case FakeDispatch::FaultStyle::DeferredException:
        excep->pvReserved = reinterpret_cast<void*>(static_cast<intptr_t>(hr));
        excep->pfnDeferredFillIn = FillInDeferred;
        return;
    case FakeDispatch::FaultStyle::ExceptionCodeOnly:
        excep->wCode = static_cast<WORD>(HRESULT_CODE(hr));
        break;
    default:
        excep->scode = hr;
        break;
    }
    excep->bstrSource = ::SysAllocString(L"FakeDispatch");
    excep->bstrDescription = ::SysAllocString(L"injected failure");
}

// Objects after their final Release, kept until the program ends.
std::vector<std::unique_ptr<FakeDispatch>>& Graveyard() {
    static std::vector<std::unique_ptr<FakeDispatch>> graveyard;
    return graveyard;
}

}  // namespace

const char* ToString(FakeDispatch::CallKind kind) noexcept {
    switch (kind) {
    case FakeDispatch::CallKind::Get:
        return "get";
    case FakeDispatch::CallKind::Put:
        return "put";
    case FakeDispatch::CallKind::Call:
        return "call";
    }
    return "?";
}

ComPtr<FakeDispatch> FakeDispatch::Create() {
    ComPtr<FakeDispatch> object;
    // Owned by its reference count from here on; see Release.
    object.Attach(new FakeDispatch);
    return object;
}

std::wstring FakeDispatch::Key(const std::wstring& name) {
    std::wstring key = name;
    if (!key.empty()) {
        ::CharUpperBuffW(key.data(), static_cast<DWORD>(key.size()));
    }
    return key;
}

FakeDispatch::Member& FakeDispatch::Define(const std::wstring& name, MemberKind kind) {
    auto [it, added] = m_members.try_emplace(Key(name));
    Member& member = it->second;
    if (added) {
        member.id = m_nextId++;
    }
    member.name = name;
    member.kind = kind;
    member.value.Clear();
    member.get = nullptr;
    member.put = nullptr;
    return member;
}

FakeDispatch::Member& FakeDispatch::Existing(const std::wstring& name) {
    auto it = m_members.find(Key(name));
    if (it == m_members.end()) {
        throw std::logic_error("FakeDispatch: define member " + ToUtf8(name) +
                               " before injecting failures into it");
    }
    return it->second;
}

const FakeDispatch::Member* FakeDispatch::Find(const std::wstring& name) const {
    auto it = m_members.find(Key(name));
    return it == m_members.end() ? nullptr : &it->second;
}

FakeDispatch::Member* FakeDispatch::FindById(DISPID id) {
    for (auto& [key, member] : m_members) {
        if (member.id == id) {
            return &member;
        }
    }
    return nullptr;
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, const VARIANT& value,
                                        PutHandler onPut) {
    Variant copy = CopyOf(value);
    Member& member = Define(name, MemberKind::StoredProperty);
    member.value = std::move(copy);
    member.put = std::move(onPut);
    return *this;
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, const wchar_t* text) {
    return SetProperty(name, Variant(text));
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, int32_t number) {
    return SetProperty(name, Variant(number));
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, bool flag) {
    return SetProperty(name, Variant(flag));
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, IDispatch* object) {
    return SetProperty(name, Variant(object));
}

FakeDispatch& FakeDispatch::SetComputedProperty(const std::wstring& name, Handler get,
                                                PutHandler put) {
    Member& member = Define(name, MemberKind::ComputedProperty);
    member.get = std::move(get);
    member.put = std::move(put);
    return *this;
}

FakeDispatch& FakeDispatch::SetMethod(const std::wstring& name, Handler handler) {
    Member& member = Define(name, MemberKind::Method);
    member.get = std::move(handler);
    return *this;
}

FakeDispatch& FakeDispatch::FailCall(const std::wstring& name, int nth, HRESULT hr,
                                     FaultStyle style) {
    Existing(name).faults.push_back(Fault{nth, false, hr, style});
    return *this;
}

FakeDispatch& FakeDispatch::FailCallsFrom(const std::wstring& name, int first, HRESULT hr,
                                          FaultStyle style) {
    Existing(name).faults.push_back(Fault{first, true, hr, style});
    return *this;
}

FakeDispatch& FakeDispatch::FailLookup(const std::wstring& name, HRESULT hr) {
    m_lookupFailures[Key(name)] = hr;
    return *this;
}

size_t FakeDispatch::CallCount(const std::wstring& name) const {
    std::wstring key = Key(name);
    size_t count = 0;
    for (const CallRecord& call : m_calls) {
        count += Key(call.member) == key ? 1 : 0;
    }
    return count;
}

size_t FakeDispatch::CallCount(const std::wstring& name, CallKind kind) const {
    std::wstring key = Key(name);
    size_t count = 0;
    for (const CallRecord& call : m_calls) {
        count += call.kind == kind && Key(call.member) == key ? 1 : 0;
    }
    return count;
}

size_t FakeDispatch::LookupCount(const std::wstring& name) const {
    auto it = m_lookups.find(Key(name));
    return it == m_lookups.end() ? 0 : it->second;
}

const VARIANT& FakeDispatch::Value(const std::wstring& name) const {
    static const Variant empty;
    const Member* member = Find(name);
    return member && member->kind == MemberKind::StoredProperty ? member->value : empty;
}

DISPID FakeDispatch::DispIdOf(const std::wstring& name) const {
    const Member* member = Find(name);
    return member ? member->id : DISPID_UNKNOWN;
}

bool FakeDispatch::ReportIfReleased(const char* method) const {
    if (m_released) {
        ADD_FAILURE() << "FakeDispatch::" << method << " on an object after its final Release";
    }
    return m_released;
}

void FakeDispatch::Bury() noexcept {
    m_released = true;
    // Moved out before they go: releasing a held object may call back into this one.
    auto members = std::move(m_members);
    auto calls = std::move(m_calls);
    m_members.clear();
    m_calls.clear();
    try {
        Graveyard().emplace_back(this);
    } catch (...) {
        // Not kept, not freed either: a few bytes lost in a test program.
    }
}

HRESULT FakeDispatch::QueryInterface(REFIID riid, void** object) noexcept {
    if (ReportIfReleased("QueryInterface")) {
        return E_UNEXPECTED;
    }
    if (!object) {
        return E_POINTER;
    }
    if (riid == IID_IUnknown || riid == IID_IDispatch) {
        *object = static_cast<IDispatch*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG FakeDispatch::AddRef() noexcept {
    if (ReportIfReleased("AddRef")) {
        return 0;
    }
    return ++m_refs;
}

ULONG FakeDispatch::Release() noexcept {
    if (ReportIfReleased("Release")) {
        return 0;
    }
    ULONG refs = --m_refs;
    if (refs == 0) {
        Bury();
    }
    return refs;
}

HRESULT FakeDispatch::GetTypeInfoCount(UINT* count) noexcept {
    if (!count) {
        return E_POINTER;
    }
    // No type library: everything goes through names, as the add-in's late binding expects.
    *count = 0;
    return S_OK;
}

HRESULT FakeDispatch::GetTypeInfo(UINT, LCID, ITypeInfo** info) noexcept {
    if (info) {
        *info = nullptr;
    }
    return DISP_E_BADINDEX;
}

HRESULT FakeDispatch::GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID,
                                    DISPID* ids) noexcept try {
    if (ReportIfReleased("GetIDsOfNames")) {
        return E_UNEXPECTED;
    }
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!names || !ids || count == 0 || !names[0]) {
        return E_INVALIDARG;
    }
    for (UINT i = 0; i < count; ++i) {
        ids[i] = DISPID_UNKNOWN;
    }
    std::wstring key = Key(names[0]);
    ++m_lookups[key];
    if (auto failure = m_lookupFailures.find(key); failure != m_lookupFailures.end()) {
        return failure->second;
    }
    const Member* member = Find(names[0]);
    if (!member) {
        return DISP_E_UNKNOWNNAME;
    }
    ids[0] = member->id;
    // Named parameters are not modelled: their names stay unknown.
    return count == 1 ? S_OK : DISP_E_UNKNOWNNAME;
} catch (...) {
    return HResultFromCaughtException();
}

HRESULT FakeDispatch::Invoke(DISPID id, REFIID riid, LCID, WORD flags, DISPPARAMS* params,
                             VARIANT* result, EXCEPINFO* excep, UINT* argError) noexcept try {
    if (ReportIfReleased("Invoke")) {
        return E_UNEXPECTED;
    }
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!params || (params->cArgs && !params->rgvarg) ||
        (params->cNamedArgs && !params->rgdispidNamedArgs) || params->cNamedArgs > params->cArgs) {
        return E_INVALIDARG;
    }
    Member* member = FindById(id);
    if (!member) {
        return DISP_E_MEMBERNOTFOUND;
    }

    // Which of the member's faces the caller asked for; a mismatch is what a type-library
    // server answers for a method read as a property or a property called as a method.
    CallKind kind;
    if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
        if (member->kind == MemberKind::Method || !(flags & DISPATCH_PROPERTYPUT)) {
            return DISP_E_MEMBERNOTFOUND;
        }
        if (params->cNamedArgs != 1 || params->rgdispidNamedArgs[0] != DISPID_PROPERTYPUT) {
            return DISP_E_PARAMNOTFOUND;
        }
        kind = CallKind::Put;
    } else {
        if (params->cNamedArgs != 0) {
            return DISP_E_NONAMEDARGS;
        }
        if (member->kind == MemberKind::Method) {
            if (!(flags & DISPATCH_METHOD)) {
                return DISP_E_MEMBERNOTFOUND;
            }
            kind = CallKind::Call;
        } else {
            if (!(flags & DISPATCH_PROPERTYGET)) {
                return DISP_E_MEMBERNOTFOUND;
            }
            kind = CallKind::Get;
        }
    }

    // Named arguments come first in rgvarg, the positional ones follow last to first.
    Args args;
    for (UINT i = params->cArgs; i > params->cNamedArgs; --i) {
        args.push_back(CopyOf(params->rgvarg[i - 1]));
    }
    const VARIANT* putValue = kind == CallKind::Put ? &params->rgvarg[0] : nullptr;

    CallRecord record{member->name, kind, {}, S_OK};
    for (const Variant& arg : args) {
        record.args.push_back(CopyOf(arg));
    }
    if (putValue) {
        record.args.push_back(CopyOf(*putValue));
    }
    size_t index = m_calls.size();
    m_calls.push_back(std::move(record));

    int callNumber = ++member->calls;
    HRESULT hr = S_OK;
    const Fault* fault = nullptr;
    for (const Fault& candidate : member->faults) {
        if (candidate.repeats ? callNumber >= candidate.first : callNumber == candidate.first) {
            fault = &candidate;
            break;
        }
    }
    if (fault) {
        hr = fault->hr;
        if (fault->style != FaultStyle::Plain) {
            FillException(excep, fault->hr, fault->style);
            hr = DISP_E_EXCEPTION;
        }
    } else {
        hr = Dispatch(*member, kind, args, putValue, result);
    }
    if (argError) {
        *argError = 0;
    }
    // The handler may have called into this object again; the record is found by position.
    m_calls[index].hr = hr;
    return hr;
} catch (...) {
    ADD_FAILURE() << "FakeDispatch: a member handler or the call record threw";
    return HResultFromCaughtException();
}

HRESULT FakeDispatch::Dispatch(Member& member, CallKind kind, const Args& args,
                               const VARIANT* putValue, VARIANT* result) {
    if (kind == CallKind::Put) {
        if (member.kind == MemberKind::StoredProperty && !args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        if (!member.put && member.kind != MemberKind::StoredProperty) {
            return DISP_E_MEMBERNOTFOUND;
        }
        // Copies of the handlers: a handler may define members anew while it runs.
        if (PutHandler put = member.put) {
            HRESULT hr = put(args, *putValue);
            if (FAILED(hr)) {
                return hr;
            }
        }
        if (member.kind == MemberKind::StoredProperty) {
            member.value = CopyOf(*putValue);
        }
        return S_OK;
    }

    Variant out;
    HRESULT hr = S_OK;
    if (member.kind == MemberKind::StoredProperty) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        hr = ::VariantCopy(&out, &member.value);
    } else if (Handler get = member.get) {
        hr = get(args, &out);
    } else {
        hr = E_NOTIMPL;
    }
    if (SUCCEEDED(hr) && result) {
        // Like a real server, the result is written over, not cleared: emptying it is the
        // caller's part, and a reference the caller left in it leaks visibly.
        *result = out;
        ::VariantInit(&out);
    }
    return hr;
}

#include "officesim/FakeDispatch.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "common/ComError.h"
#include "officesim/CallSequence.h"

namespace {

void WriteToStandardError(const std::string& message) {
    std::fprintf(stderr, "%s\n", message.c_str());
    std::fflush(stderr);
}

FakeDispatch::MisuseReport g_reportMisuse = WriteToStandardError;

std::string Utf8(const std::wstring& text) {
    const int size = static_cast<int>(text.size());
    const int bytes =
        WideCharToMultiByte(CP_UTF8, 0, text.c_str(), size, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), size, utf8.data(), bytes, nullptr, nullptr);
    return utf8;
}

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
    excep->bstrDescription = ::SysAllocString(L"injected failure (deferred)");
    return S_OK;
}

void FillException(EXCEPINFO* excep, HRESULT hr, FakeDispatch::FaultStyle style) {
    if (!excep) {
        return;
    }
    *excep = EXCEPINFO{};
    if (style == FakeDispatch::FaultStyle::DeferredException) {
        excep->pvReserved = reinterpret_cast<void*>(static_cast<intptr_t>(hr));
        excep->pfnDeferredFillIn = FillInDeferred;
    } else {
        excep->scode = hr;
        excep->bstrDescription = ::SysAllocString(L"injected failure");
    }
}

}  // namespace

ComPtr<FakeDispatch> FakeDispatch::Create() { return MakeComObject<FakeDispatch>(); }

void FakeDispatch::ReportMisuseTo(MisuseReport report) noexcept {
    g_reportMisuse = report ? report : WriteToStandardError;
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
    member.handler = nullptr;
    return member;
}

FakeDispatch::Member& FakeDispatch::Existing(const std::wstring& name) {
    auto it = m_members.find(Key(name));
    if (it == m_members.end()) {
        throw std::logic_error("FakeDispatch: define member " + Utf8(name) +
                               " before injecting failures into it");
    }
    return it->second;
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, const VARIANT& value) {
    Variant copy = CopyOf(value);
    Define(name, MemberKind::StoredProperty).value = std::move(copy);
    return *this;
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, const wchar_t* text) {
    return SetProperty(name, Variant(text));
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, bool flag) {
    return SetProperty(name, Variant(flag));
}

FakeDispatch& FakeDispatch::SetProperty(const std::wstring& name, IDispatch* object) {
    return SetProperty(name, Variant(object));
}

FakeDispatch& FakeDispatch::SetComputedProperty(const std::wstring& name, Handler get) {
    Define(name, MemberKind::ComputedProperty).handler = std::move(get);
    return *this;
}

FakeDispatch& FakeDispatch::SetMethod(const std::wstring& name, Handler handler) {
    Define(name, MemberKind::Method).handler = std::move(handler);
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

size_t FakeDispatch::CallCount(const std::wstring& name, std::optional<CallKind> kind) const {
    const std::wstring key = Key(name);
    return static_cast<size_t>(std::count_if(m_calls.begin(), m_calls.end(), [&](const auto& call) {
        return (!kind || call.kind == *kind) && Key(call.member) == key;
    }));
}

size_t FakeDispatch::LookupCount(const std::wstring& name) const {
    auto it = m_lookups.find(Key(name));
    return it == m_lookups.end() ? 0 : it->second;
}

const VARIANT& FakeDispatch::Value(const std::wstring& name) const {
    static const Variant empty;
    auto it = m_members.find(Key(name));
    return it != m_members.end() && it->second.kind == MemberKind::StoredProperty ? it->second.value
                                                                                  : empty;
}

bool FakeDispatch::ReportIfReleased(const char* method) const {
    if (m_released) {
        g_reportMisuse(std::string("FakeDispatch::") + method +
                       " on an object after its final Release");
    }
    return m_released;
}

HRESULT FakeDispatch::QueryInterface(REFIID riid, void** object) noexcept {
    if (ReportIfReleased("QueryInterface")) {
        return E_UNEXPECTED;
    }
    for (const IID& dual : m_dualInterfaces) {
        if (object && IsEqualIID(riid, dual)) {
            *object = static_cast<IDispatch*>(this);
            AddRef();
            return S_OK;
        }
    }
    return ComObject::QueryInterface(riid, object);
}

FakeDispatch& FakeDispatch::AnswerInterface(REFIID iid) {
    m_dualInterfaces.push_back(iid);
    return *this;
}

ULONG FakeDispatch::AddRef() noexcept {
    return ReportIfReleased("AddRef") ? 0 : ComObject::AddRef();
}

ULONG FakeDispatch::Release() noexcept {
    return ReportIfReleased("Release") ? 0 : ComObject::Release();
}

void FakeDispatch::FinalRelease() noexcept {
    // What it holds goes; the object itself stays. Moved out first: releasing a held object may
    // call back.
    m_released = true;
    auto members = std::move(m_members);
    auto calls = std::move(m_calls);
    m_members.clear();
    m_calls.clear();
}

HRESULT FakeDispatch::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) noexcept
    try {
    if (ReportIfReleased("GetIDsOfNames")) {
        return E_UNEXPECTED;
    }
    if (!names || !ids || count == 0 || !names[0]) {
        return E_INVALIDARG;
    }
    std::fill(ids, ids + count, DISPID_UNKNOWN);
    std::wstring key = Key(names[0]);
    ++m_lookups[key];
    if (CallSequence::Fault fault{};
        CallSequence::Next((L"GetIDsOfNames " + std::wstring(names[0])).c_str(),
                           CallSequence::Kind::Automation, fault)) {
        return fault.hr;
    }
    if (auto failure = m_lookupFailures.find(key); failure != m_lookupFailures.end()) {
        return failure->second;
    }
    auto member = m_members.find(key);
    if (member == m_members.end()) {
        return DISP_E_UNKNOWNNAME;
    }
    ids[0] = member->second.id;
    // Named parameters are not modelled: their names stay unknown.
    return count == 1 ? S_OK : DISP_E_UNKNOWNNAME;
} catch (...) {
    return HResultFromCaughtException();
}

HRESULT FakeDispatch::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                             VARIANT* result, EXCEPINFO* excep, UINT*) noexcept try {
    if (ReportIfReleased("Invoke")) {
        return E_UNEXPECTED;
    }
    if (!params || (params->cArgs && !params->rgvarg) ||
        (params->cNamedArgs && !params->rgdispidNamedArgs) || params->cNamedArgs > params->cArgs) {
        return E_INVALIDARG;
    }
    auto found = std::find_if(m_members.begin(), m_members.end(),
                              [&](const auto& entry) { return entry.second.id == id; });
    if (found == m_members.end()) {
        return DISP_E_MEMBERNOTFOUND;
    }
    Member& member = found->second;

    // Which of the member's faces the caller asked for; a mismatch is what a type-library
    // server answers for a method read as a property or a property called as a method.
    const bool method = member.kind == MemberKind::Method;
    const CallKind kind = (flags & DISPATCH_PROPERTYPUT) ? CallKind::Put
                          : method                       ? CallKind::Call
                                                         : CallKind::Get;
    if ((flags & DISPATCH_PROPERTYPUTREF) || (kind == CallKind::Put && method) ||
        (kind == CallKind::Call && !(flags & DISPATCH_METHOD)) ||
        (kind == CallKind::Get && !(flags & DISPATCH_PROPERTYGET))) {
        return DISP_E_MEMBERNOTFOUND;
    }
    const UINT named = kind == CallKind::Put ? 1 : 0;
    if (params->cNamedArgs != named) {
        return named ? DISP_E_PARAMNOTFOUND : DISP_E_NONAMEDARGS;
    }
    if (named && params->rgdispidNamedArgs[0] != DISPID_PROPERTYPUT) {
        return DISP_E_PARAMNOTFOUND;
    }

    // The named put value comes first in rgvarg, the positional arguments follow last to first;
    // read from the end, the record gets the put value last.
    const VARIANT* putValue = named ? &params->rgvarg[0] : nullptr;
    Args args;
    CallRecord record{member.name, kind, {}};
    for (UINT i = params->cArgs; i > 0; --i) {
        if (i > named) {
            args.push_back(CopyOf(params->rgvarg[i - 1]));
        }
        record.args.push_back(CopyOf(params->rgvarg[i - 1]));
    }
    m_calls.push_back(std::move(record));

    const int call = ++member.calls;
    if (CallSequence::Fault fault{};
        CallSequence::Next((std::wstring(kind == CallKind::Put   ? L"put "
                                         : kind == CallKind::Get ? L"get "
                                                                 : L"call ") +
                            member.name)
                               .c_str(),
                           CallSequence::Kind::Automation, fault)) {
        if (fault.style == CallSequence::Style::Plain ||
            fault.style == CallSequence::Style::OutOfMemory) {
            return fault.hr;
        }
        FillException(excep, fault.hr,
                      fault.style == CallSequence::Style::Exception
                          ? FaultStyle::Exception
                          : FaultStyle::DeferredException);
        return DISP_E_EXCEPTION;
    }
    for (const Fault& fault : member.faults) {
        if (fault.repeats ? call >= fault.first : call == fault.first) {
            if (fault.style == FaultStyle::Plain) {
                return fault.hr;
            }
            FillException(excep, fault.hr, fault.style);
            return DISP_E_EXCEPTION;
        }
    }
    return Dispatch(member, kind, args, putValue, result);
} catch (...) {
    g_reportMisuse("FakeDispatch: a member handler or the call record threw");
    return HResultFromCaughtException();
}

HRESULT FakeDispatch::Dispatch(Member& member, CallKind kind, const Args& args,
                               const VARIANT* putValue, VARIANT* result) {
    Variant out;
    HRESULT hr = S_OK;
    if (member.kind == MemberKind::StoredProperty) {
        if (!args.empty()) {
            return DISP_E_BADPARAMCOUNT;
        }
        if (kind == CallKind::Put) {
            member.value = CopyOf(*putValue);
            return S_OK;
        }
        hr = ::VariantCopy(&out, &member.value);
    } else if (kind == CallKind::Put) {
        return DISP_E_MEMBERNOTFOUND;  // computed properties are read-only
    } else {
        // A copy of the handler: it may define its member anew while it runs. What it calls is
        // part of this one call.
        Handler handler = member.handler;
        CallSequence::Serving serving;
        hr = handler(args, &out);
    }
    if (SUCCEEDED(hr) && result) {
        // Like a real server, the result is written over, not cleared: emptying it is the
        // caller's part, and a reference the caller left in it leaks visibly.
        *result = out;
        ::VariantInit(&out);
    }
    return hr;
}

HRESULT ItemIndex(const FakeDispatch::Args& args, size_t count, size_t* index) {
    if (args.size() != 1) {
        return DISP_E_BADPARAMCOUNT;
    }
    Variant position;
    if (FAILED(::VariantChangeType(&position, const_cast<Variant*>(&args[0]), 0, VT_I4))) {
        return DISP_E_TYPEMISMATCH;
    }
    if (position.lVal < 1 || static_cast<size_t>(position.lVal) > count) {
        return DISP_E_BADINDEX;
    }
    *index = static_cast<size_t>(position.lVal) - 1;
    return S_OK;
}

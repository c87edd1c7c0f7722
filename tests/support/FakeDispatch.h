// A test double for the late-bound automation objects the add-in talks to (the host's
// Application, its documents, items and collections). It is not a model of any real host: it
// answers IDispatch the way a type-library-driven automation server does (names resolved without
// regard to case, the dispatch kind checked, arguments taken last to first), and a test scripts
// its members, watches every call, injects failures and checks the reference count.
//
// Single-threaded like the hosts' apartments: plain integer reference counts, no locking.
#pragma once

#include <oaidl.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/ComPtr.h"
#include "common/Variant.h"

class FakeDispatch final : public IDispatch {
public:
    // Arguments of one call in their natural order (the first argument first), deep copies.
    using Args = std::vector<Variant>;
    // Computes a property value or runs a method. `result` is never null and starts out empty;
    // what the handler leaves in it goes to the caller (or is cleared when the caller passed no
    // result).
    using Handler = std::function<HRESULT(const Args& args, VARIANT* result)>;
    // Receives a put: the index arguments (empty for a plain property) and the value.
    using PutHandler = std::function<HRESULT(const Args& args, const VARIANT& value)>;

    enum class CallKind { Get, Put, Call };

    struct CallRecord {
        std::wstring member;  // as the member was defined, not as the caller spelled it
        CallKind kind;
        Args args;   // a put's index arguments first, the assigned value last
        HRESULT hr;  // what Invoke returned
    };

    // How an injected failure reaches the caller.
    enum class FaultStyle {
        Plain,              // Invoke returns the HRESULT
        Exception,          // DISP_E_EXCEPTION, EXCEPINFO filled with scode = the HRESULT
        DeferredException,  // DISP_E_EXCEPTION, EXCEPINFO filled only by its pfnDeferredFillIn
        ExceptionCodeOnly,  // DISP_E_EXCEPTION, scode zero and wCode = HRESULT_CODE(the HRESULT),
                            // as servers that number their own errors report them
    };

    // A new object with one reference, owned by the returned pointer.
    static ComPtr<FakeDispatch> Create();

    // --- Members. Defining a name again replaces its behaviour and keeps its DISPID, its call
    // counter and its injected failures.

    // A property holding `value`: a get hands out a copy (VariantCopy), a put stores the new
    // value after `onPut` (if any) accepted it. A get with arguments fails DISP_E_BADPARAMCOUNT.
    // Puts of any property must come as DISPATCH_PROPERTYPUT with the one named argument
    // DISPID_PROPERTYPUT; DISPATCH_PROPERTYPUTREF is refused with DISP_E_MEMBERNOTFOUND.
    FakeDispatch& SetProperty(const std::wstring& name, const VARIANT& value,
                              PutHandler onPut = {});
    FakeDispatch& SetProperty(const std::wstring& name, const wchar_t* text);
    FakeDispatch& SetProperty(const std::wstring& name, int32_t number);
    FakeDispatch& SetProperty(const std::wstring& name, bool flag);
    // Holds its own reference to `object` (null stands for Nothing).
    FakeDispatch& SetProperty(const std::wstring& name, IDispatch* object);

    // A property whose get is computed (indexed properties such as Item(i) see their arguments);
    // without `put` the property is read-only and a put fails DISP_E_MEMBERNOTFOUND.
    FakeDispatch& SetComputedProperty(const std::wstring& name, Handler get, PutHandler put = {});

    // A method: answers DISPATCH_METHOD (alone or together with DISPATCH_PROPERTYGET).
    FakeDispatch& SetMethod(const std::wstring& name, Handler handler);

    // --- Failure injection. The calls of a member are counted from 1 across gets, puts and
    // method calls; an injected failure replaces the member's behaviour for that call.

    FakeDispatch& FailCall(const std::wstring& name, int nth, HRESULT hr,
                           FaultStyle style = FaultStyle::Plain);
    FakeDispatch& FailCallsFrom(const std::wstring& name, int first, HRESULT hr,
                                FaultStyle style = FaultStyle::Plain);
    // GetIDsOfNames fails with `hr` for this name, defined or not.
    FakeDispatch& FailLookup(const std::wstring& name, HRESULT hr);

    // --- Observation.

    const std::vector<CallRecord>& Calls() const noexcept { return m_calls; }
    // Calls of `name` (any spelling), of every kind or of one kind.
    size_t CallCount(const std::wstring& name) const;
    size_t CallCount(const std::wstring& name, CallKind kind) const;
    // GetIDsOfNames requests for `name`, failed ones included.
    size_t LookupCount(const std::wstring& name) const;
    // The recorded calls hold copies of their arguments, objects included; clearing them
    // releases those references.
    void ClearCalls() noexcept { m_calls.clear(); }
    // The stored value of a property defined with SetProperty (VT_EMPTY for anything else).
    const VARIANT& Value(const std::wstring& name) const;
    // The final Release lets go of everything the object holds (values, handlers, recorded
    // arguments) at once. Its storage stays until the program ends, so that a Release or a call
    // too many is reported as a test failure rather than touching freed memory.
    ULONG RefCount() const noexcept { return m_refs; }
    // The DISPID handed out for `name`, DISPID_UNKNOWN when it is not defined.
    DISPID DispIdOf(const std::wstring& name) const;

    // --- IUnknown and IDispatch.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) noexcept override;
    ULONG STDMETHODCALLTYPE AddRef() noexcept override;
    ULONG STDMETHODCALLTYPE Release() noexcept override;
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) noexcept override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID lcid,
                                          ITypeInfo** info) noexcept override;
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) noexcept override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) noexcept override;

private:
    enum class MemberKind { StoredProperty, ComputedProperty, Method };

    struct Fault {
        int first;
        bool repeats;
        HRESULT hr;
        FaultStyle style;
    };

    struct Member {
        std::wstring name;
        DISPID id = DISPID_UNKNOWN;
        MemberKind kind = MemberKind::StoredProperty;
        Variant value;
        Handler get;  // computed property get, or method
        PutHandler put;
        int calls = 0;
        std::vector<Fault> faults;
    };

    friend struct std::default_delete<FakeDispatch>;
    FakeDispatch() = default;
    ~FakeDispatch() = default;

    void Bury() noexcept;
    bool ReportIfReleased(const char* method) const;

    Member& Define(const std::wstring& name, MemberKind kind);
    Member& Existing(const std::wstring& name);
    const Member* Find(const std::wstring& name) const;
    Member* FindById(DISPID id);
    HRESULT Dispatch(Member& member, CallKind kind, const Args& args, const VARIANT* putValue,
                     VARIANT* result);
    static std::wstring Key(const std::wstring& name);

    ULONG m_refs = 1;
    bool m_released = false;
    DISPID m_nextId = 1;
    // Keyed by the upper-case name: the hosts resolve names without regard to case.
    std::map<std::wstring, Member> m_members;
    std::map<std::wstring, HRESULT> m_lookupFailures;
    std::map<std::wstring, size_t> m_lookups;
    std::vector<CallRecord> m_calls;
};

const char* ToString(FakeDispatch::CallKind kind) noexcept;

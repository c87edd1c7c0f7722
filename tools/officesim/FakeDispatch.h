// A scriptable stand-in for the late-bound automation objects the add-in talks to (the host's
// Application, its documents, items and collections), used by the tests and by the simulated
// host. It is not a model of any real host: it answers IDispatch the way a type-library-driven
// automation server does (names resolved without regard to case, the dispatch kind checked,
// arguments taken last to first), and its user scripts its members, watches every call, injects
// failures and checks the reference count.
//
// Single-threaded like the hosts' apartments: plain integer reference counts, no locking.
#pragma once

#include <oaidl.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/ComObject.h"
#include "common/ComPtr.h"
#include "common/Variant.h"

class FakeDispatch final
    : public ComObject<FakeDispatch, LiveCount::NotCounted, Implements<IDispatch, IID_IDispatch>> {
public:
    // Arguments of one call in their natural order (the first argument first), deep copies.
    using Args = std::vector<Variant>;
    // Computes a property value or runs a method. `result` is never null and starts out empty;
    // what the handler leaves in it goes to the caller (or is cleared when the caller passed no
    // result).
    using Handler = std::function<HRESULT(const Args& args, VARIANT* result)>;

    enum class CallKind { Get, Put, Call };

    struct CallRecord {
        std::wstring member;  // as the member was defined, not as the caller spelled it
        CallKind kind;
        Args args;  // a put's assigned value last
    };

    // How an injected failure reaches the caller.
    enum class FaultStyle {
        Plain,              // Invoke returns the HRESULT
        Exception,          // DISP_E_EXCEPTION, EXCEPINFO filled with scode = the HRESULT
        DeferredException,  // DISP_E_EXCEPTION, EXCEPINFO filled only by its pfnDeferredFillIn
    };

    // A new object with one reference, owned by the returned pointer.
    static ComPtr<FakeDispatch> Create();

    // Where misuse of a fake goes: a call or a Release after the final Release, a member handler
    // that threw. The tests make it a test failure; by default it is written to standard error.
    using MisuseReport = void (*)(const std::string& message);
    static void ReportMisuseTo(MisuseReport report) noexcept;

    // --- Members. Defining a name again replaces its behaviour and keeps its DISPID, its call
    // counter and its injected failures.

    // A property holding `value`: a get hands out a copy (VariantCopy), a put stores the new
    // value. Gets and puts with index arguments fail DISP_E_BADPARAMCOUNT. Puts must come as
    // DISPATCH_PROPERTYPUT with the one named argument DISPID_PROPERTYPUT.
    FakeDispatch& SetProperty(const std::wstring& name, const VARIANT& value);
    FakeDispatch& SetProperty(const std::wstring& name, const wchar_t* text);
    FakeDispatch& SetProperty(const std::wstring& name, bool flag);
    // Holds its own reference to `object` (null stands for Nothing).
    FakeDispatch& SetProperty(const std::wstring& name, IDispatch* object);

    // A read-only property whose get is computed (indexed properties such as Item(i) see their
    // arguments).
    FakeDispatch& SetComputedProperty(const std::wstring& name, Handler get);

    // A method: answers DISPATCH_METHOD (alone or together with DISPATCH_PROPERTYGET).
    FakeDispatch& SetMethod(const std::wstring& name, Handler handler);

    // Makes QueryInterface answer `iid` with the object's IDispatch face, as a dual interface of
    // an automation server does (an Outlook item answers its _MailItem, _ContactItem... IIDs).
    FakeDispatch& AnswerInterface(REFIID iid);

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
    size_t CallCount(const std::wstring& name, std::optional<CallKind> kind = {}) const;
    // GetIDsOfNames requests for `name`, failed ones included.
    size_t LookupCount(const std::wstring& name) const;
    // The recorded calls hold copies of their arguments, objects included; clearing them
    // releases those references.
    void ClearCalls() noexcept { m_calls.clear(); }
    // The stored value of a property defined with SetProperty (VT_EMPTY for anything else).
    const VARIANT& Value(const std::wstring& name) const;
    // The final Release lets go of everything the object holds (values, handlers, recorded
    // arguments) at once; a Release or a call after it is reported as misuse.
    using ComObject::RefCount;

    // --- IUnknown and IDispatch. There is no type information: everything goes through names,
    // as the add-in's late binding expects.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) noexcept override;
    ULONG STDMETHODCALLTYPE AddRef() noexcept override;
    ULONG STDMETHODCALLTYPE Release() noexcept override;
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
        Handler handler;  // computed property get, or method
        int calls = 0;
        std::vector<Fault> faults;
    };

    friend ComObject;
    ~FakeDispatch() override = default;
    // Keeps the object's memory, so that a call too many is reported rather than touching freed
    // memory.
    void FinalRelease() noexcept;

    bool ReportIfReleased(const char* method) const;
    Member& Define(const std::wstring& name, MemberKind kind);
    Member& Existing(const std::wstring& name);
    HRESULT Dispatch(Member& member, CallKind kind, const Args& args, const VARIANT* putValue,
                     VARIANT* result);
    static std::wstring Key(const std::wstring& name);

    bool m_released = false;
    DISPID m_nextId = 1;
    // Keyed by the upper-case name: the hosts resolve names without regard to case.
    std::map<std::wstring, Member> m_members;
    std::map<std::wstring, HRESULT> m_lookupFailures;
    std::vector<IID> m_dualInterfaces;
    std::map<std::wstring, size_t> m_lookups;
    std::vector<CallRecord> m_calls;
};

// Item(i) of a simulated collection of `count` objects: the index of the object it names (i
// counts from 1), or the HRESULT a collection answers a wrong call with.
HRESULT ItemIndex(const FakeDispatch::Args& args, size_t count, size_t* index);

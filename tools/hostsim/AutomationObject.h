// A late-bound object of the simulated host: named properties and methods answered through
// IDispatch, the way a host's object model answers the add-in. Names are resolved without regard
// to case. It counts its references so the simulator can show that the add-in released all it took.
#pragma once

#include <oaidl.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "common/ComPtr.h"
#include "common/Variant.h"

class AutomationObject final : public IDispatch {
public:
    // Arguments in their natural order.
    using Args = std::vector<VARIANT*>;
    using Method = std::function<HRESULT(const Args& args, VARIANT* result)>;

    static ComPtr<AutomationObject> Create();

    // A property that reads as a copy of `value` and stores what is put into it.
    AutomationObject& Property(const std::wstring& name, Variant value);
    // A property or method computed on each call.
    AutomationObject& Member(const std::wstring& name, Method method);

    // The current value of a stored property.
    const VARIANT& Value(const std::wstring& name);
    ULONG RefCount() const noexcept { return m_refCount; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) override;
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                                     UINT* argError) override;

private:
    AutomationObject() = default;
    ~AutomationObject() = default;

    struct Entry {
        std::wstring name;
        Variant value;
        Method method;
    };
    Entry& Find(const std::wstring& name);

    ULONG m_refCount = 1;
    std::vector<Entry> m_members;  // the DISPID is the position + 1
};

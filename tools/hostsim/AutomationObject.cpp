#include "tools/hostsim/AutomationObject.h"

#include <windows.h>

#include <new>

ComPtr<AutomationObject> AutomationObject::Create() {
    ComPtr<AutomationObject> object;
    object.Attach(new AutomationObject());
    return object;
}

AutomationObject::Entry& AutomationObject::Find(const std::wstring& name) {
    for (Entry& entry : m_members) {
        if (lstrcmpiW(entry.name.c_str(), name.c_str()) == 0) {
            return entry;
        }
    }
    m_members.push_back(Entry{name, Variant(), {}});
    return m_members.back();
}

AutomationObject& AutomationObject::Property(const std::wstring& name, Variant value) {
    Find(name).value = std::move(value);
    return *this;
}

AutomationObject& AutomationObject::Member(const std::wstring& name, Method method) {
    Find(name).method = std::move(method);
    return *this;
}

const VARIANT& AutomationObject::Value(const std::wstring& name) { return Find(name).value; }

HRESULT AutomationObject::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IDispatch) {
        return E_NOINTERFACE;
    }
    *ppv = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
}

ULONG AutomationObject::AddRef() { return ++m_refCount; }

ULONG AutomationObject::Release() {
    ULONG count = --m_refCount;
    if (count == 0) {
        delete this;
    }
    return count;
}

HRESULT AutomationObject::GetTypeInfoCount(UINT* count) {
    if (!count) {
        return E_POINTER;
    }
    *count = 0;
    return S_OK;
}

HRESULT AutomationObject::GetTypeInfo(UINT, LCID, ITypeInfo**) { return E_NOTIMPL; }

HRESULT AutomationObject::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
    if (!names || !ids) {
        return E_POINTER;
    }
    HRESULT hr = S_OK;
    for (UINT i = 0; i < count; ++i) {
        ids[i] = DISPID_UNKNOWN;
        for (size_t m = 0; m < m_members.size(); ++m) {
            if (names[i] && lstrcmpiW(names[i], m_members[m].name.c_str()) == 0) {
                ids[i] = static_cast<DISPID>(m + 1);
            }
        }
        if (ids[i] == DISPID_UNKNOWN) {
            hr = DISP_E_UNKNOWNNAME;
        }
    }
    return hr;
}

HRESULT AutomationObject::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                 VARIANT* result, EXCEPINFO*, UINT*) {
    if (id < 1 || static_cast<size_t>(id) > m_members.size()) {
        return DISP_E_MEMBERNOTFOUND;
    }
    if (!params) {
        return E_POINTER;
    }
    Entry& entry = m_members[static_cast<size_t>(id - 1)];
    try {
        Args args;
        for (UINT i = params->cArgs; i > params->cNamedArgs; --i) {
            args.push_back(&params->rgvarg[i - 1]);
        }
        if (entry.method) {
            Variant ignored;
            return entry.method(args, result ? result : &ignored);
        }
        if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
            if (params->cArgs < 1) {
                return DISP_E_BADPARAMCOUNT;
            }
            return VariantCopy(&entry.value, &params->rgvarg[0]);
        }
        return result ? VariantCopy(result, &entry.value) : S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

#include "addin/TDConnectorCOM.h"

#include <windows.h>

#include "common/LogFile.h"
#include "common/ServerCounts.h"

namespace {
constexpr const wchar_t* kMethodNames[] = {L"Run", L"DisplaySettings", L"DisplayInfo",
                                           L"DeleteMail"};
}

HRESULT CTDConnectorCOM::QueryInterface(REFIID riid, void** ppv) {
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

ULONG CTDConnectorCOM::AddRef() { return ++m_refCount; }

ULONG CTDConnectorCOM::Release() {
    ULONG count = --m_refCount;
    if (count == 0) {
        ObjectDestroyed();
        delete this;
    }
    return count;
}

HRESULT CTDConnectorCOM::GetTypeInfoCount(UINT* count) {
    if (!count) {
        return E_POINTER;
    }
    *count = 0;
    return S_OK;
}

HRESULT CTDConnectorCOM::GetTypeInfo(UINT, LCID, ITypeInfo** info) {
    if (!info) {
        return E_POINTER;
    }
    *info = nullptr;
    return E_FAIL;
}

HRESULT CTDConnectorCOM::GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID,
                                       DISPID* ids) {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!names || !ids) {
        return E_POINTER;
    }
    HRESULT hr = S_OK;
    for (UINT i = 0; i < count; ++i) {
        ids[i] = DISPID_UNKNOWN;
        for (size_t m = 0; m < std::size(kMethodNames); ++m) {
            if (names[i] && lstrcmpiW(names[i], kMethodNames[m]) == 0) {
                ids[i] = static_cast<DISPID>(m + 1);
            }
        }
        if (ids[i] == DISPID_UNKNOWN) {
            hr = DISP_E_UNKNOWNNAME;
        }
    }
    return hr;
}

HRESULT CTDConnectorCOM::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                EXCEPINFO*, UINT*) {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!params) {
        return E_POINTER;
    }
    if (id < 1 || id > static_cast<DISPID>(std::size(kMethodNames))) {
        return DISP_E_MEMBERNOTFOUND;
    }
    LogWarning(L"CTDConnectorCOM: %s is not available in this build.\n", kMethodNames[id - 1]);
    return E_NOTIMPL;
}

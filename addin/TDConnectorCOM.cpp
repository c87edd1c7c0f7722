#include "addin/TDConnectorCOM.h"

#include <windows.h>

#include "common/LogFile.h"

namespace {
constexpr const wchar_t* kMethodNames[] = {L"Run", L"DisplaySettings", L"DisplayInfo",
                                           L"DeleteMail"};
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

#include "addin/EventConnection.h"

#include <olectl.h>

#include <utility>

HRESULT EventConnection::Connect(IUnknown* source, std::initializer_list<IID> events,
                                 IUnknown* sink) noexcept {
    if (!source || !sink) {
        return E_POINTER;
    }
    if (m_point) {
        return E_UNEXPECTED;
    }
    ComPtr<IConnectionPointContainer> container;
    HRESULT hr = source->QueryInterface(IID_IConnectionPointContainer, container.put_void());
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IConnectionPoint> point;
    hr = CONNECT_E_NOCONNECTION;
    for (const IID& iid : events) {
        hr = container->FindConnectionPoint(iid, point.put());
        if (SUCCEEDED(hr) && point) {
            break;
        }
    }
    if (FAILED(hr) || !point) {
        return FAILED(hr) ? hr : E_UNEXPECTED;
    }
    DWORD cookie = 0;
    hr = point->Advise(sink, &cookie);
    if (FAILED(hr)) {
        return hr;
    }
    m_point = std::move(point);
    m_cookie = cookie;
    return S_OK;
}

HRESULT EventConnection::Disconnect() noexcept {
    if (!m_point) {
        return S_FALSE;
    }
    // Cleared before the call: a sink released inside Unadvise finds itself disconnected.
    const ComPtr<IConnectionPoint> point = std::move(m_point);
    const DWORD cookie = std::exchange(m_cookie, 0);
    return point->Unadvise(cookie);
}

HRESULT NoEventNames(REFIID riid, DISPID* ids) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!ids) {
        return E_POINTER;
    }
    ids[0] = DISPID_UNKNOWN;
    return DISP_E_UNKNOWNNAME;
}

ComPtr<IDispatch> FirstObjectArgument(const DISPPARAMS* params) noexcept {
    ComPtr<IDispatch> object;
    if (!params || params->cArgs < 1 || !params->rgvarg) {
        return object;
    }
    const VARIANT& first = params->rgvarg[params->cArgs - 1];
    if (first.vt == VT_DISPATCH) {
        object = ComPtr<IDispatch>(first.pdispVal);
    } else if (first.vt == (VT_DISPATCH | VT_BYREF) && first.ppdispVal) {
        object = ComPtr<IDispatch>(*first.ppdispVal);
    }
    return object;
}

#include "addin/ButtonHandler.h"

#include <utility>

#include "common/ComError.h"
#include "common/LogFile.h"

HRESULT CButtonHandler::Connect(IDispatch* button) noexcept {
    if (!button) {
        return E_POINTER;
    }
    if (m_connectionPoint) {
        return E_UNEXPECTED;
    }
    ComPtr<IConnectionPointContainer> container;
    HRESULT hr = button->QueryInterface(IID_IConnectionPointContainer, container.put_void());
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IConnectionPoint> point;
    hr = container->FindConnectionPoint(DIID_CommandBarButtonEvents, point.put());
    if (FAILED(hr)) {
        return hr;
    }
    DWORD cookie = 0;
    hr = point->Advise(static_cast<IDispatch*>(this), &cookie);
    if (FAILED(hr)) {
        return hr;
    }
    m_connectionPoint = std::move(point);
    m_cookie = cookie;
    return S_OK;
}

void CButtonHandler::Disconnect() noexcept {
    m_target = nullptr;
    if (!m_connectionPoint) {
        return;
    }
    // The connection point may hold the last other reference to this sink: keep it alive until
    // Unadvise has returned.
    const ComPtr<CButtonHandler> self(this);
    const ComPtr<IConnectionPoint> point = std::move(m_connectionPoint);
    const HRESULT hr = point->Unadvise(m_cookie);
    if (FAILED(hr)) {
        LogError(L"Failed to unadvise the button events! hr = 0x%08X\n", hr);
    }
    m_cookie = 0;
}

HRESULT CButtonHandler::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID, DISPID* ids) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (!ids) {
        return E_POINTER;
    }
    // The host fires events by DISPID; there are no names to resolve.
    ids[0] = DISPID_UNKNOWN;
    return DISP_E_UNKNOWNNAME;
}

HRESULT CButtonHandler::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS*, VARIANT*,
                               EXCEPINFO*, UINT*) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (id != DISPID_CommandBarButtonClick) {
        return DISP_E_MEMBERNOTFOUND;
    }
    if (!m_target) {
        return S_OK;
    }
    try {
        // The command's dialogs run a message loop in which the add-in may shut down.
        const ComPtr<CButtonHandler> self(this);
        m_target->RunButtonCommand(m_command);
    } catch (...) {
        LogError(L"Button command %d failed! hr = 0x%08X\n", static_cast<int>(m_command),
                 HResultFromCaughtException());
    }
    return S_OK;
}

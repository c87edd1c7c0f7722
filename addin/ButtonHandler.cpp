#include "addin/ButtonHandler.h"

#include <utility>

#include "common/ComError.h"
#include "common/LogFile.h"

HRESULT CButtonHandler::Connect(IDispatch* button) noexcept {
    if (!button) {
        return E_POINTER;
    }
    ComPtr<IUnknown> identity;
    HRESULT hr = button->QueryInterface(IID_IUnknown, identity.put_void());
    if (SUCCEEDED(hr)) {
        hr = m_connection.Connect(button, {DIID_CommandBarButtonEvents},
                                  static_cast<IDispatch*>(this));
    }
    if (SUCCEEDED(hr)) {
        m_button = std::move(identity);
    }
    return hr;
}

bool CButtonHandler::IsOwnClick(const DISPPARAMS* params) const noexcept {
    const ComPtr<IDispatch> control = FirstObjectArgument(params);
    ComPtr<IUnknown> identity;
    if (!control || !m_button ||
        FAILED(control->QueryInterface(IID_IUnknown, identity.put_void()))) {
        // Nothing to tell it by: the click is taken as this button's.
        return true;
    }
    return identity.get() == m_button.get();
}

void CButtonHandler::Disconnect() noexcept {
    m_target = nullptr;
    // The connection point may hold the last other reference to this sink: keep it alive until
    // Unadvise has returned.
    const ComPtr<CButtonHandler> self(this);
    const HRESULT hr = m_connection.Disconnect();
    if (FAILED(hr)) {
        LogError(L"Failed to unadvise the button events! hr = 0x%08X\n", hr);
    }
    m_window.reset();
    m_button.reset();
}

HRESULT CButtonHandler::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID, DISPID* ids) noexcept {
    return NoEventNames(riid, ids);
}

HRESULT CButtonHandler::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS* params, VARIANT*,
                               EXCEPINFO*, UINT*) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (id != DISPID_CommandBarButtonClick) {
        return DISP_E_MEMBERNOTFOUND;
    }
    // Office delivers a click to the sinks of every button that carries the clicked one's tag,
    // in every window that has one: each window's sink runs its command for its own button only.
    if (!m_target || !IsOwnClick(params)) {
        return S_OK;
    }
    try {
        // The command's dialogs run a message loop in which the add-in may shut down.
        const ComPtr<CButtonHandler> self(this);
        const ComPtr<IDispatch> window = m_window;
        m_target->RunButtonCommand(m_command, window.get());
    } catch (...) {
        LogError(L"Button command %d failed! hr = 0x%08X\n", static_cast<int>(m_command),
                 HResultFromCaughtException());
    }
    return S_OK;
}

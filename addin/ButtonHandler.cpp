#include "addin/ButtonHandler.h"

#include "common/ComError.h"
#include "common/LogFile.h"

HRESULT CButtonHandler::Connect(IDispatch* button) noexcept {
    if (!button) {
        return E_POINTER;
    }
    return m_connection.Connect(button, {DIID_CommandBarButtonEvents},
                                static_cast<IDispatch*>(this));
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
}

HRESULT CButtonHandler::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID, DISPID* ids) noexcept {
    return NoEventNames(riid, ids);
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
        const ComPtr<IDispatch> window = m_window;
        m_target->RunButtonCommand(m_command, window.get());
    } catch (...) {
        LogError(L"Button command %d failed! hr = 0x%08X\n", static_cast<int>(m_command),
                 HResultFromCaughtException());
    }
    return S_OK;
}

#include "addin/ExplorerHandler.h"

#include "common/Automation.h"
#include "common/ComError.h"
#include "common/LogFile.h"

HRESULT CExplorerHandler::Connect(IDispatch* explorer, const CommandBarOptions& options) noexcept {
    if (!explorer) {
        return E_POINTER;
    }
    ComPtr<IDispatch> commandBars;
    HRESULT hr = GetObjectPropertyNoThrow(explorer, L"CommandBars", commandBars.put());
    if (FAILED(hr)) {
        LogError(L"Failed to access CommandBars property! hr = 0x%08X\n", hr);
        return hr;
    }
    hr = SetUpCommandBars(commandBars.get(), options, m_commands, m_buttons);
    if (SUCCEEDED(hr)) {
        hr = m_connection.Connect(explorer, {DIID_ExplorerEvents_10, DIID_ExplorerEvents},
                                  static_cast<IDispatch*>(this));
    }
    if (FAILED(hr)) {
        ReleaseButtonHandlers(m_buttons);
    }
    return hr;
}

void CExplorerHandler::Disconnect() noexcept {
    m_target = nullptr;
    const ComPtr<CExplorerHandler> self(this);
    ReleaseButtonHandlers(m_buttons);
    const HRESULT hr = m_connection.Disconnect();
    if (FAILED(hr)) {
        LogError(L"Failed to unadvise the explorer events! hr = 0x%08X\n", hr);
    }
}

HRESULT CExplorerHandler::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID, DISPID* ids) noexcept {
    return NoEventNames(riid, ids);
}

HRESULT CExplorerHandler::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS*, VARIANT*,
                                 EXCEPINFO*, UINT*) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    // Activate, Deactivate, SelectionChange... are not the add-in's business.
    if (id != DISPID_WindowClose) {
        return DISP_E_MEMBERNOTFOUND;
    }
    if (!m_target) {
        return S_OK;
    }
    try {
        // The add-in drops its reference in here.
        const ComPtr<CExplorerHandler> self(this);
        m_target->ExplorerClosed(*this);
    } catch (...) {
        LogError(L"Explorer Close failed! hr = 0x%08X\n", HResultFromCaughtException());
    }
    return S_OK;
}

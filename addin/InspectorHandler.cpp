#include "addin/InspectorHandler.h"

#include "common/Automation.h"
#include "common/ComError.h"
#include "common/LogFile.h"

HRESULT CInspectorHandler::Connect(IDispatch* inspector,
                                   const CommandBarOptions& options) noexcept {
    if (!inspector) {
        return E_POINTER;
    }
    ComPtr<IDispatch> commandBars;
    HRESULT hr = GetObjectPropertyNoThrow(inspector, L"CommandBars", commandBars.put());
    if (FAILED(hr)) {
        LogError(L"Failed to access CommandBars property! hr = 0x%08X\n", hr);
        return hr;
    }
    CommandBarOptions inspectorOptions = options;
    inspectorOptions.inspector = inspector;
    hr = SetUpCommandBars(commandBars.get(), inspectorOptions, m_commands, m_buttons);
    if (SUCCEEDED(hr)) {
        hr = m_connection.Connect(inspector, {DIID_InspectorEvents_10, DIID_InspectorEvents},
                                  static_cast<IDispatch*>(this));
    }
    if (FAILED(hr)) {
        ReleaseButtonHandlers(m_buttons);
    }
    return hr;
}

void CInspectorHandler::Disconnect() noexcept {
    m_target = nullptr;
    const ComPtr<CInspectorHandler> self(this);
    ReleaseButtonHandlers(m_buttons);
    const HRESULT hr = m_connection.Disconnect();
    if (FAILED(hr)) {
        LogError(L"Failed to unadvise the inspector events! hr = 0x%08X\n", hr);
    }
}

HRESULT CInspectorHandler::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID, DISPID* ids) noexcept {
    return NoEventNames(riid, ids);
}

HRESULT CInspectorHandler::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS*, VARIANT*,
                                  EXCEPINFO*, UINT*) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    // Activate, Deactivate, BeforeMaximize... are not the add-in's business.
    if (id != DISPID_WindowClose) {
        return DISP_E_MEMBERNOTFOUND;
    }
    if (!m_target) {
        return S_OK;
    }
    try {
        // The add-in drops its reference in here.
        const ComPtr<CInspectorHandler> self(this);
        m_target->InspectorClosed(*this);
    } catch (...) {
        LogError(L"Inspector Close failed! hr = 0x%08X\n", HResultFromCaughtException());
    }
    return S_OK;
}

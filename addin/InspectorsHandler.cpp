#include "addin/InspectorsHandler.h"

#include "common/ComError.h"
#include "common/LogFile.h"

HRESULT CInspectorsHandler::Connect(IDispatch* inspectors) noexcept {
    return m_connection.Connect(inspectors, {DIID_InspectorsEvents}, static_cast<IDispatch*>(this));
}

HRESULT CInspectorsHandler::Disconnect() noexcept {
    m_target = nullptr;
    const ComPtr<CInspectorsHandler> self(this);
    return m_connection.Disconnect();
}

HRESULT CInspectorsHandler::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID,
                                          DISPID* ids) noexcept {
    return NoEventNames(riid, ids);
}

HRESULT CInspectorsHandler::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                   EXCEPINFO*, UINT*) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (id != DISPID_NewInspector) {
        return DISP_E_MEMBERNOTFOUND;
    }
    const ComPtr<IDispatch> inspector = FirstObjectArgument(params);
    if (!m_target || !inspector) {
        return S_OK;
    }
    try {
        const ComPtr<CInspectorsHandler> self(this);
        m_target->InspectorOpened(inspector.get());
    } catch (...) {
        LogError(L"NewInspector failed! hr = 0x%08X\n", HResultFromCaughtException());
    }
    return S_OK;
}

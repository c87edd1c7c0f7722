#include "addin/ExplorersHandler.h"

#include "common/ComError.h"
#include "common/LogFile.h"

HRESULT CExplorersHandler::Connect(IDispatch* explorers) noexcept {
    return m_connection.Connect(explorers, {DIID_ExplorersEvents}, static_cast<IDispatch*>(this));
}

HRESULT CExplorersHandler::Disconnect() noexcept {
    m_target = nullptr;
    const ComPtr<CExplorersHandler> self(this);
    return m_connection.Disconnect();
}

HRESULT CExplorersHandler::GetIDsOfNames(REFIID riid, LPOLESTR*, UINT, LCID, DISPID* ids) noexcept {
    return NoEventNames(riid, ids);
}

HRESULT CExplorersHandler::Invoke(DISPID id, REFIID riid, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                  EXCEPINFO*, UINT*) noexcept {
    if (riid != IID_NULL) {
        return DISP_E_UNKNOWNINTERFACE;
    }
    if (id != DISPID_NewExplorer) {
        return DISP_E_MEMBERNOTFOUND;
    }
    const ComPtr<IDispatch> explorer = FirstObjectArgument(params);
    if (!m_target || !explorer) {
        return S_OK;
    }
    try {
        const ComPtr<CExplorersHandler> self(this);
        m_target->ExplorerOpened(explorer.get());
    } catch (...) {
        LogError(L"NewExplorer failed! hr = 0x%08X\n", HResultFromCaughtException());
    }
    return S_OK;
}

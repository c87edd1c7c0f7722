#include "server/ComServer.h"

#include "addin/TDConnectorCOM.h"
#include "addin/TalvornAddin.h"
#include "common/ComError.h"
#include "common/ComObject.h"
#include "common/ServerCounts.h"
#include "server/ClassFactory.h"

using CTalvornAddinCF = CClassFactory<CTalvornAddin>;
using CTDConnectorCOMCF = CClassFactory<CTDConnectorCOM>;

namespace {

template <class Factory>
HRESULT HandOutFactory(REFIID riid, void** ppv) noexcept {
    try {
        // A factory asked for an interface it does not have goes with this reference.
        return MakeComObject<Factory>()->QueryInterface(riid, ppv);
    } catch (...) {
        return HResultFromCaughtException();
    }
}

}  // namespace

HRESULT GetServerClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept {
    if (!ppv) {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (clsid == CLSID_TalvornAddin) {
        return HandOutFactory<CTalvornAddinCF>(riid, ppv);
    }
    if (clsid == CLSID_TDConnectorCOM) {
        return HandOutFactory<CTDConnectorCOMCF>(riid, ppv);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CanUnloadServer() noexcept {
    return (LiveObjectCount() != 0 || ServerLockCount() != 0) ? S_FALSE : S_OK;
}

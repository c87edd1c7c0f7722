#include "server/ComServer.h"

#include <memory>
#include <new>

#include "addin/TDConnectorCOM.h"
#include "addin/TalvornAddin.h"
#include "server/ClassFactory.h"

using CTalvornAddinCF = CClassFactory<CTalvornAddin>;
using CTDConnectorCOMCF = CClassFactory<CTDConnectorCOM>;

namespace {

template <class Factory>
HRESULT HandOutFactory(REFIID riid, void** ppv) {
    std::unique_ptr<Factory> factory(new (std::nothrow) Factory());
    if (!factory) {
        return E_OUTOFMEMORY;
    }
    HRESULT hr = factory->QueryInterface(riid, ppv);
    if (FAILED(hr)) {
        *ppv = nullptr;
        return hr;
    }
    factory.release();
    return hr;
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

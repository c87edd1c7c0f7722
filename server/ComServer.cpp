#include "server/ComServer.h"

#include <memory>
#include <new>

#include "addin/TDConnectorCOM.h"
#include "addin/TalvornAddin.h"
#include "server/ClassFactory.h"

using CTalvornAddinCF = CClassFactory<CTalvornAddin>;
using CTDConnectorCOMCF = CClassFactory<CTDConnectorCOM>;

namespace {

// Touched only on the apartment's thread: plain integers, not atomics.
LONG g_liveObjects = 0;
LONG g_serverLocks = 0;

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

void ObjectCreated() noexcept { ++g_liveObjects; }
void ObjectDestroyed() noexcept { --g_liveObjects; }
LONG LiveObjectCount() noexcept { return g_liveObjects; }

void LockServer(bool lock) noexcept {
    if (lock) {
        ++g_serverLocks;
    } else {
        --g_serverLocks;
    }
}

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
    return (g_liveObjects != 0 || g_serverLocks != 0) ? S_FALSE : S_OK;
}

// The benchmark's floor: a COM add-in that does nothing. It has the two faces a host asks for
// (IDTExtensibility2 with its IDispatch, IRibbonExtensibility), a class factory, and a ribbon of
// no controls, and it is built with the same compiler, runtime and link options as the product,
// so that what the product costs beyond it is the product's own.
#include <windows.h>

#include <new>

#include "AddinClasses.h"
#include "addin/OfficeInterfaces.h"
#include "common/ComObject.h"
#include "common/ComPtr.h"

namespace {

long g_liveObjects = 0;

class EmptyAddin final
    : public ComObject<EmptyAddin, LiveCount::NotCounted,
                       Implements<IDTExtensibility2, IID_IDTExtensibility2, IID_IDispatch>,
                       Implements<IRibbonExtensibility, IID_IRibbonExtensibility>> {
public:
    EmptyAddin() noexcept { ++g_liveObjects; }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT count, LCID,
                                            DISPID* ids) noexcept override {
        for (UINT i = 0; ids && i < count; ++i) {
            ids[i] = DISPID_UNKNOWN;
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) noexcept override {
        return DISP_E_MEMBERNOTFOUND;
    }
    HRESULT STDMETHODCALLTYPE OnConnection(IDispatch*, ext_ConnectMode, IDispatch*,
                                           SAFEARRAY**) noexcept override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnDisconnection(ext_DisconnectMode, SAFEARRAY**) noexcept override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnAddInsUpdate(SAFEARRAY**) noexcept override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnStartupComplete(SAFEARRAY**) noexcept override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnBeginShutdown(SAFEARRAY**) noexcept override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetCustomUI(BSTR, BSTR* markup) noexcept override {
        if (!markup) {
            return E_POINTER;
        }
        *markup = SysAllocString(
            L"<customUI xmlns=\"http://schemas.microsoft.com/office/2006/01/customui\"/>");
        return *markup ? S_OK : E_OUTOFMEMORY;
    }

private:
    friend ComObject;
    ~EmptyAddin() override { --g_liveObjects; }
};

class EmptyFactory final : public ComObject<EmptyFactory, LiveCount::NotCounted,
                                            Implements<IClassFactory, IID_IClassFactory>> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid,
                                             void** object) noexcept override {
        if (!object) {
            return E_POINTER;
        }
        *object = nullptr;
        if (outer) {
            return CLASS_E_NOAGGREGATION;
        }
        try {
            return MakeComObject<EmptyAddin>()->QueryInterface(riid, object);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) noexcept override { return S_OK; }

private:
    friend ComObject;
    ~EmptyFactory() override = default;
};

}  // namespace

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() { return g_liveObjects == 0 ? S_OK : S_FALSE; }

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID riid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    if (clsid != kEmptyAddinClass) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    try {
        return MakeComObject<EmptyFactory>()->QueryInterface(riid, object);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

// The module's entry points: what COM and regsvr32 call. Thin adapters; the work is done in the
// server and registration units of the core library.
#include <windows.h>

#include "common/Module.h"
#include "server/ComServer.h"
#include "server/Registration.h"

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        SetModuleInstance(instance);
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
    return GetServerClassObject(clsid, riid, ppv);
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() { return CanUnloadServer(); }

HRESULT STDAPICALLTYPE DllRegisterServer() { return RegisterServer(); }

HRESULT STDAPICALLTYPE DllUnregisterServer() { return UnregisterServer(); }

}  // extern "C"

// rdosim.dll: an in-process COM server with no class of its own. It registers the ProgID of the
// MAPI library the Outlook capture uses, and its class object is whatever factory the hosting
// process installed (FakeRedemption does), so that the product reaches the simulated library
// through CLSIDFromProgID and CoGetClassObject as it would reach the real one.
#include <windows.h>
#include <objbase.h>

#include <string>

#include "common/ComPtr.h"
#include "common/UniqueResource.h"
#include "rdosim/RdoSim.h"

namespace {

HMODULE g_module = nullptr;
// Touched only on the installing apartment's thread.
ComPtr<IClassFactory> g_factory;

std::wstring ClsidText() {
    wchar_t text[40] = {};
    StringFromGUID2(kClsidRdoSimSession, text, ARRAYSIZE(text));
    return text;
}

std::wstring ModulePath() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(g_module, path, MAX_PATH);
    return length > 0 && length < MAX_PATH ? std::wstring(path, length) : std::wstring();
}

LSTATUS SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
    UniqueHKey handle;
    LSTATUS status = RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                                     nullptr, handle.put(), nullptr);
    if (status == ERROR_SUCCESS) {
        status = RegSetValueExW(handle.get(), name, 0, REG_SZ,
                                reinterpret_cast<const BYTE*>(text.c_str()),
                                static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }
    return status;
}

HRESULT Unregister() {
    const std::wstring keys[] = {kRdoSimProgId, L"CLSID\\" + ClsidText()};
    HRESULT result = S_OK;
    for (const std::wstring& key : keys) {
        const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
        if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND && SUCCEEDED(result)) {
            result = HRESULT_FROM_WIN32(status);
        }
    }
    return result;
}

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

HRESULT STDAPICALLTYPE RdoSimInstallFactory(IClassFactory* factory) {
    g_factory = ComPtr<IClassFactory>(factory);
    return S_OK;
}

HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    if (clsid != kClsidRdoSimSession || !g_factory) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    return g_factory->QueryInterface(iid, object);
}

HRESULT STDAPICALLTYPE DllCanUnloadNow() { return g_factory ? S_FALSE : S_OK; }

HRESULT STDAPICALLTYPE DllRegisterServer() {
    const std::wstring clsid = ClsidText();
    const std::wstring path = ModulePath();
    if (path.empty()) {
        return E_UNEXPECTED;
    }
    const std::wstring classKey = L"CLSID\\" + clsid;
    const LSTATUS statuses[] = {
        SetText(kRdoSimProgId, nullptr, L"RDOSession (simulated)"),
        SetText(std::wstring(kRdoSimProgId) + L"\\CLSID", nullptr, clsid),
        SetText(classKey, nullptr, L"RDOSession (simulated)"),
        SetText(classKey + L"\\ProgID", nullptr, kRdoSimProgId),
        SetText(classKey + L"\\InprocServer32", nullptr, path),
        SetText(classKey + L"\\InprocServer32", L"ThreadingModel", L"Apartment"),
    };
    for (LSTATUS status : statuses) {
        if (status != ERROR_SUCCESS) {
            Unregister();
            return HRESULT_FROM_WIN32(status);
        }
    }
    return S_OK;
}

HRESULT STDAPICALLTYPE DllUnregisterServer() { return Unregister(); }

}  // extern "C"

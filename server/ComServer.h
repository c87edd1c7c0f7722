// The in-process COM server: the class factories of its two classes and the unload decision. The
// DLL exports are thin adapters over these.
#pragma once

#include <windows.h>

// DllGetClassObject: a new class factory for the add-in or the connector class on every call.
HRESULT GetServerClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept;
// DllCanUnloadNow: S_FALSE while objects live or the server is locked.
HRESULT CanUnloadServer() noexcept;

// The in-process COM server: the process-wide counts that decide when the module may be unloaded,
// and the class factories of its two classes. The DLL exports are thin adapters over these.
#pragma once

#include <windows.h>

// A class factory's successful CreateInstance raises the live-object count; each object's final
// Release lowers it.
void ObjectCreated() noexcept;
void ObjectDestroyed() noexcept;
LONG LiveObjectCount() noexcept;

// DllGetClassObject: a new class factory for the add-in or the connector class on every call.
HRESULT GetServerClassObject(REFCLSID clsid, REFIID riid, void** ppv) noexcept;
// DllCanUnloadNow: S_FALSE while objects live or the server is locked.
HRESULT CanUnloadServer() noexcept;

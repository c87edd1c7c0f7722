// The counts that decide when the module may be unloaded: COM objects alive and class-factory
// locks held. Touched only on the apartment's thread, so they are plain integers, not atomics.
#pragma once

#include <windows.h>

// A class factory's successful CreateInstance raises the live-object count; each object's final
// Release lowers it.
void ObjectCreated() noexcept;
void ObjectDestroyed() noexcept;
LONG LiveObjectCount() noexcept;

void LockServer(bool lock) noexcept;
LONG ServerLockCount() noexcept;

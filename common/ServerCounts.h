// The counts that decide when the module may be unloaded: COM objects alive and class-factory
// locks held. Touched only on the apartment's thread, so they are plain integers, not atomics.
#pragma once

#include <windows.h>

// Raised and lowered by the COM object base (common/ComObject.h) for the objects of the server's
// own classes, from their construction to their destruction.
void ObjectCreated() noexcept;
void ObjectDestroyed() noexcept;
LONG LiveObjectCount() noexcept;

void LockServer(bool lock) noexcept;
LONG ServerLockCount() noexcept;

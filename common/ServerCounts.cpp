#include "common/ServerCounts.h"

namespace {
LONG g_liveObjects = 0;
LONG g_serverLocks = 0;
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

LONG ServerLockCount() noexcept { return g_serverLocks; }

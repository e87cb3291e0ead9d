// The lock of one database file between processes. Private to this folder.
#pragma once

#include "lib/harbrel/cache/cache.h"

// Waits for up to HBL_DB_LOCK_WAIT_MSEC. Null without the lock: *error is then an errno value, or 0 when the
// time ran out.
FileLockToken *NetCfgTakeLock(const char *path, int *error);
// 0, or an errno value.
int NetCfgGiveLockBack(const char *path, FileLockToken *token);

// The lock that a cache holds on its file. A failed release leaves the cache marked as locked.
inline bool NetCfgHoldsLock(const HBLNetworkConfigurationDB *db) {
    return db->lockToken != nullptr || db->lockLost != 0;
}
bool NetCfgLockCache(HBLNetworkConfigurationDB *db, int *error);
int NetCfgUnlockCache(HBLNetworkConfigurationDB *db);

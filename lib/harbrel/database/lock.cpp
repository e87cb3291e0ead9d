#include <cerrno>

#include "lib/err/errText.h"
#include "lib/file/fileLock.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/databaseLock.h"
#include "lib/harbrel/database/reading.h"

FileLockToken *NetCfgTakeLock(const char *path, int *error) {
    return FileLock_Lock(path, false, HBL_DB_LOCK_WAIT_MSEC, error);
}

int NetCfgGiveLockBack(const char *path, FileLockToken *token) {
    return FileLock_Unlock(path, token);
}

bool NetCfgLockCache(HBLNetworkConfigurationDB *db, int *error) {
    db->lockToken = NetCfgTakeLock(db->path, error);
    return db->lockToken != nullptr;
}

int NetCfgUnlockCache(HBLNetworkConfigurationDB *db) {
    if (db->lockToken == nullptr) {
        return db->lockLost != 0 ? EINVAL : 0;
    }
    // The token is gone in either case.
    const int error = NetCfgGiveLockBack(db->path, db->lockToken);
    db->lockToken = nullptr;
    db->lockLost = error != 0 ? 1 : 0;
    return error;
}

bool HBLNetCfgLockConfig(HBLNetworkConfigurationDB *db) {
    HBLNetworkConfigurationDB *const cache = NetCfgResolveCache(db, __func__);
    if (cache == nullptr) {
        return false;
    }
    if (NetCfgHoldsLock(cache)) {
        HBLLog(LOG_INFO, __func__, "Database file is already locked");
        return false;
    }
    int error = 0;
    if (!NetCfgLockCache(cache, &error)) {
        HBLLog(LOG_ERR, __func__, "Failed to lock config file, file: %s, error: %s", cache->path,
               error != 0 ? Err_ErrnoText(error) : "timed out");
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Database file locking success");
    // What another process has changed is seen now, because the change to come builds on it.
    if (NetCfgCatchUp(cache, __func__) == NetCfgReadResult::Failed) {
        HBLNetCfgUnlockConfig(cache);
        return false;
    }
    return true;
}

bool HBLNetCfgUnlockConfig(HBLNetworkConfigurationDB *db) {
    HBLNetworkConfigurationDB *const cache = NetCfgResolveCache(db, __func__);
    if (cache == nullptr) {
        return false;
    }
    if (!NetCfgHoldsLock(cache)) {
        HBLLog(LOG_INFO2, __func__, "Config file is not currently locked");
        return true;
    }
    const int error = NetCfgUnlockCache(cache);
    if (error != 0) {
        HBLLog(LOG_ERR, __func__, "Failed to unlock database file: %s, error: %s", cache->path,
               Err_ErrnoText(error));
        return false;
    }
    HBLLog(LOG_INFO2, __func__, "Config file unlocking success");
    return true;
}

ConfigLock::ConfigLock(FunctionLog log, const char *failureLine) : held_(HBLNetCfgLockConfig(nullptr)) {
    if (!held_) {
        log(LOG_ERR, "%s", failureLine);
    }
}

ConfigLock::~ConfigLock() {
    if (held_) {
        HBLNetCfgUnlockConfig(nullptr);
    }
}

// Bringing a cache into being from a file, the database lock, and writing a cache out as a fresh file.
#pragma once

#include <functional>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"

constexpr const char *HBL_NETWORKING_DB = "/etc/orvane/networking";
constexpr char HBL_NETWORKING_DB_TEMPLATE[] = "/etc/orvane/.networking.XXXXXX";
constexpr const char *HBL_HOST_CONFIG_PATH = "/etc/orvane/config";
constexpr uint32_t HBL_DB_LOCK_WAIT_MSEC = 2500;

// Reads the file at `path` into a new cache. With a null `out` that becomes the default cache, and when there
// is one already, nothing is read. A failure leaves no cache, no lock and the slot as it was.
bool HBLNetCfgLoad(const char *path, HBLNetworkConfigurationDB **out, bool isBackup);
// `slot` null means the default cache's. Always true; the slot is cleared. With `rewrite` the cache first
// takes the place of its file, sorted and without journal; a failure leaves the file as it is.
bool HBLNetCfgUnload(HBLNetworkConfigurationDB **slot, bool rewrite);
// The lock between processes; `db` null means the default cache. Does not nest: a second lock is false. The
// cache is brought up to the file if another process has changed that.
bool HBLNetCfgLockConfig(HBLNetworkConfigurationDB *db);
// True also when nothing was locked. After a failure the cache counts as locked.
bool HBLNetCfgUnlockConfig(HBLNetworkConfigurationDB *db);
// A journalled change that takes no lock, made on top of what others have appended to the file. When another
// process has put a new file in its place, before the change or while it was made, the change is made, once
// more if need be, under the lock: nobody rewrites the file then. False also when the file could not be read.
bool HBLNetCfgChangeWithoutLock(HBLNetworkConfigurationDB *db, const std::function<bool()> &change);
// Both write over what stands at `path` and leave no file there after a failure: one that holds the version
// line alone, and one with all records of the cache.
bool HBLNetCfgCreateDB(const char *path, bool isBackup);
bool NetCfgWriteDatabaseFile(HBLNetworkConfigurationDB *db, const char *path, bool isBackup);

// The database lock of an exported function, held for the object's life. A failed attempt logs `failureLine`.
class ConfigLock {
  public:
    explicit ConfigLock(FunctionLog log, const char *failureLine = "Failed to obtain lock on vnet config");
    ~ConfigLock();
    ConfigLock(const ConfigLock &) = delete;
    ConfigLock &operator=(const ConfigLock &) = delete;
    bool Held() const { return held_; }

  private:
    bool held_;
};

#include "lib/config/msg.h"
#include "lib/dict/dictionary.h"
#include "lib/err/errText.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/cache/tables.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/databaseLock.h"
#include "lib/harbrel/database/reading.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"

namespace {

constexpr int HOST_CONFIG_CLASS = 18;

// Reads the file into the cache under the database lock, and then the host configuration without it.
bool Fill(HBLNetworkConfigurationDB *db, FunctionLog log) {
    if (NetCfgReadFile(db, log) != NetCfgReadResult::Done) {
        return false;
    }
    const int error = NetCfgUnlockCache(db);
    if (error != 0) {
        log(LOG_ERR, "Failed to unlock database file: %s, error: %s", db->path, Err_ErrnoText(error));
        return false;
    }
    return NetCfgReadHostConfig(db, log);
}

void Publish(HBLNetworkConfigurationDB *db, HBLNetworkConfigurationDB **slot) {
    const CacheChanging alone;
    *slot = db;
}

}  // namespace

bool NetCfgReadHostConfig(HBLNetworkConfigurationDB *db, FunctionLog log) {
    const std::unique_ptr<Dictionary, decltype(&Dictionary_Free)> config(Dictionary_Create(),
                                                                         &Dictionary_Free);
    if (!Dictionary_Load(config.get(), HBL_HOST_CONFIG_PATH, HOST_CONFIG_CLASS, STRING_ENCODING_CURRENT)) {
        Msg_Reset(false);  // nobody asks for the reasons, and each failed load would add to them
        log(LOG_WRN, "Failed to load product config file: %s", HBL_HOST_CONFIG_PATH);
        return true;
    }
    const MallocString binDir(DictionaryGetString(config.get(), nullptr, "bindir"));
    if (binDir == nullptr) {
        log(LOG_WRN, "Value not found for bindir");
        return true;
    }
    if (!NetCfgHashAddAnswer(db, "BINDIR", binDir.get())) {
        log(LOG_ERR, "Failed to insert value of bindir");
        return false;
    }
    return true;
}

bool HBLNetCfgLoad(const char *path, HBLNetworkConfigurationDB **out, bool isBackup) {
    HBLNetworkConfigurationDB **const slot = out != nullptr ? out : HBLNetCfgDefaultSlot();
    if (out == nullptr && *slot != nullptr) {
        HBLLog(LOG_WRN, __func__, "Network configuration database cache is already loaded");
        return true;
    }
    if (!HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, path)) {
        HBLLog(LOG_ERR, __func__, "Import file does not exist");
        return false;
    }
    HBLNetworkConfigurationDB *db = NetCfgNewCache(path, isBackup, __func__);
    if (db == nullptr) {
        return false;
    }
    int error = 0;
    if (!NetCfgLockCache(db, &error)) {
        HBLLog(LOG_ERR, __func__, "Failed to lock config database file, error: %s", Err_ErrnoText(error));
        HBLNetCfgUnload(&db, false);
        return false;
    }
    if (!Fill(db, __func__)) {
        HBLLog(LOG_ERR, __func__, "Failed to load database cache with contents of file: %s", path);
        HBLNetCfgUnload(&db, false);
        return false;
    }
    Publish(db, slot);
    HBLLog(LOG_INFO, __func__, "Database cache loaded with contents of file: %s", path);
    return true;
}

#include "lib/harbrel/database/transfer.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "lib/err/errText.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/cache/records.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/databaseLock.h"
#include "lib/harbrel/database/exchange.h"
#include "lib/harbrel/database/reading.h"
#include "lib/harbrel/database/upgrade.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/files/sync.h"
#include "lib/misc/owners.h"
#include "lib/string/lineReader.h"

namespace {

// One import from the moment at which the backup is loaded and good.
struct Import {
    FunctionLog log;
    const char *databasePath;
    HBLNetworkConfigurationDB *backup;
    bool wasLoaded;  // a default cache was there when the import began
    NetCfgFormer former;
};

// Keeps other processes' changes out while the database is exchanged, as far as the lock can be had; the
// import goes on without it.
class ExchangeLock {
  public:
    explicit ExchangeLock(const char *path) : path_(path) {
        int error = 0;
        token_ = NetCfgTakeLock(path, &error);
    }
    ~ExchangeLock() {
        if (token_ != nullptr) {
            NetCfgGiveLockBack(path_, token_);
        }
    }
    ExchangeLock(const ExchangeLock &) = delete;
    ExchangeLock &operator=(const ExchangeLock &) = delete;

  private:
    const char *path_;
    FileLockToken *token_;
};

bool KeepOldDatabase(Import *import) {
    if (!HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, import->databasePath)) {
        return true;
    }
    switch (NetCfgKeepFormer(import->log, import->databasePath, &import->former)) {
        case NetCfgKeepResult::Kept:
            return true;
        case NetCfgKeepResult::NoName:
            import->log(LOG_ERR, "Failed to create backup file: %s", import->former.name.get());
            return false;
        case NetCfgKeepResult::Failed:
            break;
    }
    import->log(LOG_ERR, "Failed to backup existing database file, error: %s", Err_ErrnoText(errno));
    return false;
}

bool WriteNewDatabase(const Import &import) {
    const bool written = NetCfgPutInPlace(import.log, import.databasePath, [&import](const char *path) {
        return NetCfgWriteDatabaseFile(import.backup, path, false);
    });
    if (!written) {
        import.log(LOG_ERR, "Failed to write to database file: %s", import.databasePath);
    }
    return written;
}

// Makes the backup cache the cache of the new database, in the place of the default one.
bool InstallBackupCache(Import *import) {
    HBLNetworkConfigurationDB *const db = import->backup;
    fclose(db->stream);
    db->stream = nullptr;
    char *const path = strdup(import->databasePath);
    if (path == nullptr) {
        import->log(LOG_ERR, "Failed to copy DB file name");
        return false;
    }
    free(db->path);
    db->path = path;
    db->stream = HBLFopenRegular(path, "a+");
    if (db->stream == nullptr || !NetCfgTrackFile(db)) {
        import->log(LOG_ERR, "Failed to open database file after import, error: %s", Err_ErrnoText(errno));
        return false;
    }
    import->log(LOG_ERR, "Reopened database file: %s", path);
    // The filter has dropped BINDIR, without which no daemon could be started.
    NetCfgReadHostConfig(db, import->log);
    *HBLNetCfgDefaultSlot() = db;
    return true;
}

// The file that stood at the path before the import stands there again, or none if there was none.
bool RestoreOldDatabase(const Import &import, bool exchanged) {
    if (import.former.kept) {
        return NetCfgRestoreFormer(import.log, import.former, import.databasePath, exchanged);
    }
    HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, import.databasePath);
    return false;
}

// Steps from the exchange of the files on, under their lock. False: backup and new database are gone again,
// and *reload tells whether a former one stands at the path.
bool Exchange(Import *import, bool *reload) {
    if (!KeepOldDatabase(import)) {
        HBLNetCfgUnload(&import->backup, false);
        *reload = true;
        return false;
    }
    const bool exchanged = WriteNewDatabase(*import);
    if (exchanged && !import->wasLoaded) {
        return HBLNetCfgUnload(&import->backup, false);
    }
    if (exchanged && InstallBackupCache(import)) {
        return true;
    }
    HBLNetCfgUnload(&import->backup, false);
    *reload = RestoreOldDatabase(*import, exchanged);
    return false;
}

}  // namespace

bool HBLNetCfgExportConfig(HBLNetworkConfigurationDB *db, const char *path) {
    HBLNetworkConfigurationDB *const cache = NetCfgResolveCache(db, __func__);
    if (cache == nullptr) {
        return false;
    }
    if (!NetCfgWriteDatabaseFile(cache, path, true)) {
        HBLLog(LOG_ERR, __func__, "Failed to write records to database file: %s", path);
        return false;
    }
    if (!HBLSyncFile(path)) {
        HBLLog(LOG_ERR, __func__, "Failed to write records to database file: %s, error: %s", path,
               Err_ErrnoText(errno));
        HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, path);
        return false;
    }
    HBLSyncFolderOf(path);
    return true;
}

bool HBLNetCfgImportConfig(const char *backupPath, const char *databasePath) {
    const FunctionLog log(__func__);
    Import import = {log, databasePath, nullptr, false, {}};
    if (!HBLNetCfgLoad(backupPath, &import.backup, true)) {
        log(LOG_ERR, "Failed to parse and load configuration data from backup file: %s", backupPath);
        return false;
    }
    if (!NetCfgUpdateDatabaseFields(import.backup)) {
        log(LOG_ERR, "Failed to update fields in backup database cache");
        HBLNetCfgUnload(&import.backup, false);
        return false;
    }
    import.wasLoaded = *HBLNetCfgDefaultSlot() != nullptr;
    std::optional<ExchangeLock> lock(std::in_place, databasePath);
    const CacheChanging alone;  // readers find the former contents or the new ones, never none
    if (import.wasLoaded) {
        HBLNetCfgUnload(nullptr, false);  // its journal stands in the file
    }
    bool reload = false;
    const bool exchanged = Exchange(&import, &reload);
    lock.reset();  // the reload takes it for itself
    if (reload && import.wasLoaded && !HBLNetCfgLoad(databasePath, nullptr, false)) {
        log(LOG_ERR, "Failed to restore the default database cache, during error handling");
    }
    return exchanged;
}

bool HBLNetCfgCheckVersion(const char *path) {
    const FileStream stream(HBLFopenToRead(path));
    if (stream == nullptr) {
        HBLLog(LOG_ERR, __func__, "Unable to open network configuration database file, error: %s",
               Err_ErrnoText(errno));
        return false;
    }
    char *text = nullptr;
    if (ReadNextLine(stream.get(), &text, NETCFG_LINE_LIMIT, nullptr) != READ_LINE_OK) {
        HBLLog(LOG_ERR, __func__, "Failed to read version number, error: %s", Err_ErrnoText(errno));
        return false;
    }
    const MallocString line(text);
    const char *const version = NetCfgVersionText(line.get(), NETCFG_VERSION_KEY);
    if (version == nullptr) {
        HBLLog(LOG_ERR, __func__, "Cannot find version in database file");
        return false;
    }
    return ParseVersionString(version, nullptr, nullptr, NETCFG_MAJOR_VERSION);
}

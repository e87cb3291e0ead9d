#include "lib/harbrel/database/transfer.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/file/fileLock.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/cache/records.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/reading.h"
#include "lib/harbrel/database/upgrade.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"
#include "lib/string/lineReader.h"
#include "lib/string/str.h"

namespace {

constexpr const char *IMPORT = "HBLNetCfgImportConfig";

// One import from the moment at which the backup is loaded and good.
struct Import {
    const char *databasePath;
    HBLNetworkConfigurationDB *backup;
    bool wasLoaded;          // a default cache was there when the import began
    MallocString movedName;  // where the former database stands; null while it was not moved
};

// Keeps other processes' changes out while the database is exchanged, as far as the lock can be had; the
// import goes on without it.
class ExchangeLock {
  public:
    explicit ExchangeLock(const char *path) : path_(path) {
        int error = 0;
        token_ = FileLock_Lock(path, false, HBL_DB_LOCK_WAIT_MSEC, &error);
    }
    ~ExchangeLock() { Release(); }
    ExchangeLock(const ExchangeLock &) = delete;
    ExchangeLock &operator=(const ExchangeLock &) = delete;

    void Release() {
        if (token_ != nullptr) {
            FileLock_Unlock(path_, token_);
            token_ = nullptr;
        }
    }

  private:
    const char *path_;
    FileLockToken *token_ = nullptr;
};

void ReloadDefaultCache(const Import &import) {
    if (import.wasLoaded && !HBLNetCfgLoad(import.databasePath, nullptr, false)) {
        HBLLog(LOG_ERR, IMPORT, "Failed to restore the default database cache, during error handling");
    }
}

// The database is as it was: only the caches have to be put right.
bool EndWithOldDatabase(Import *import) {
    HBLNetCfgUnload(&import->backup, false);
    ReloadDefaultCache(*import);
    return false;
}

// The new database is there in part or whole: takes it away again.
bool EndWithRestore(Import *import) {
    HBLNetCfgUnload(&import->backup, false);
    if (import->movedName == nullptr) {
        HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, import->databasePath);
        return false;
    }
    if (Posix_Rename(import->movedName.get(), import->databasePath) != 0) {
        HBLLog(LOG_ERR, IMPORT, "Failed to restore database file during error handling from: %s to %s",
               import->movedName.get(), import->databasePath);
        return false;
    }
    // Two names of one file stay both when one is renamed to the other.
    Posix_Unlink(import->movedName.get());
    HBLLog(LOG_INFO, IMPORT, "Restored database file during error handling");
    ReloadDefaultCache(*import);
    return false;
}

// The old database gets its new name besides the present one, so that whenever the process may be killed a
// whole database stands at its path. Where the file system has no second names it is moved.
bool GiveName(const char *databasePath, const char *name) {
    Posix_Unlink(name);
    return Posix_Link(databasePath, name) == 0 || Posix_Rename(databasePath, name) == 0;
}

bool MoveOldDatabase(Import *import) {
    if (!HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, import->databasePath)) {
        return true;
    }
    MallocString name(HBLNetCfgFreeBackupName(import->databasePath));
    if (!HBLCreateFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, name.get())) {
        HBLLog(LOG_ERR, IMPORT, "Failed to create backup file: %s", name.get());
        return false;
    }
    if (!GiveName(import->databasePath, name.get())) {
        HBLLog(LOG_ERR, IMPORT, "Failed to backup existing database file, error: %s", Err_ErrnoText(errno));
        return false;
    }
    HBLLog(LOG_INFO, IMPORT, "Renamed database file: %s to: %s", import->databasePath, name.get());
    import->movedName = std::move(name);
    return true;
}

// Writes the new database beside the path and puts it there in one step.
bool WriteNewDatabase(const Import &import) {
    const char *const slash = strrchr(import.databasePath, '/');
    const int folderLength = slash != nullptr ? static_cast<int>(slash + 1 - import.databasePath) : 0;
    const MallocString temporary(
        Str_SafeAsprintf(nullptr, "%.*s.networking.XXXXXX", folderLength, import.databasePath));
    const FileDescriptor reserved(mkostemp(temporary.get(), O_CLOEXEC));
    if (!reserved) {
        return false;
    }
    // Made anew by the writer, because a database that was not rewritten yet has that one's mode.
    Posix_Unlink(temporary.get());
    if (!NetCfgWriteDatabaseFile(import.backup, temporary.get(), false)) {
        return false;
    }
    if (Posix_Rename(temporary.get(), import.databasePath) != 0) {
        Posix_Unlink(temporary.get());
        return false;
    }
    return true;
}

// Makes the backup cache the cache of the new database, in the place of the default one.
bool InstallBackupCache(Import *import) {
    HBLNetworkConfigurationDB *const db = import->backup;
    fclose(db->stream);
    db->stream = nullptr;
    char *const path = strdup(import->databasePath);
    if (path == nullptr) {
        HBLLog(LOG_ERR, IMPORT, "Failed to copy DB file name");
        return false;
    }
    free(db->path);
    db->path = path;
    db->stream = Posix_Fopen(path, "ab+e");
    if (db->stream == nullptr || !NetCfgTrackFile(db)) {
        HBLLog(LOG_ERR, IMPORT, "Failed to open database file after import, error: %s", Err_ErrnoText(errno));
        return false;
    }
    HBLLog(LOG_ERR, IMPORT, "Reopened database file: %s", path);
    // The filter has dropped BINDIR, without which no daemon could be started.
    NetCfgReadHostConfig(db, IMPORT);
    *HBLNetCfgDefaultSlot() = db;
    return true;
}

// Steps from the exchange of the files on.
bool Exchange(Import *import) {
    ExchangeLock lock(import->databasePath);
    if (!MoveOldDatabase(import)) {
        lock.Release();  // the reload takes it for itself
        return EndWithOldDatabase(import);
    }
    if (!WriteNewDatabase(*import)) {
        HBLLog(LOG_ERR, IMPORT, "Failed to write to database file: %s", import->databasePath);
        lock.Release();
        return EndWithRestore(import);
    }
    if (!import->wasLoaded) {
        return HBLNetCfgUnload(&import->backup, false);
    }
    if (!InstallBackupCache(import)) {
        lock.Release();
        return EndWithRestore(import);
    }
    return true;
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
    return true;
}

bool HBLNetCfgImportConfig(const char *backupPath, const char *databasePath) {
    Import import = {databasePath, nullptr, false, nullptr};
    if (!HBLNetCfgLoad(backupPath, &import.backup, true)) {
        HBLLog(LOG_ERR, __func__, "Failed to parse and load configuration data from backup file: %s",
               backupPath);
        return false;
    }
    if (!NetCfgUpdateDatabaseFields(import.backup)) {
        HBLLog(LOG_ERR, __func__, "Failed to update fields in backup database cache");
        HBLNetCfgUnload(&import.backup, false);
        return false;
    }
    import.wasLoaded = *HBLNetCfgDefaultSlot() != nullptr;
    const CacheChanging alone;  // readers find the former contents or the new ones, never none
    if (import.wasLoaded) {
        HBLNetCfgUnload(nullptr, false);  // its journal stands in the file
    }
    return Exchange(&import);
}

bool HBLNetCfgCheckVersion(const char *path) {
    const FileStream stream(Posix_Fopen(path, "re"));
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

#include <cerrno>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/transfer.h"
#include "lib/harbrel/files/fileDB.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

namespace {

constexpr const char *CREATE = "HBL_CreateNetworkingDB";
constexpr const char *DEFAULT_BACKUP_FILE = "/tmp/networking_export";

// Writes the exiting line of a function that works without a load.
class ExitingLine {
  public:
    explicit ExitingLine(const char *function) : function_(function) {}
    ~ExitingLine() { ApiLogExiting(function_); }
    ExitingLine(const ExitingLine &) = delete;
    ExitingLine &operator=(const ExitingLine &) = delete;

  private:
    const char *function_;
};

// The short log together with the file creation database, which opens before it and closes before it.
class ShortSession {
  public:
    explicit ShortSession(const char *function)
        : ownsFileDB_(!HBLIsLoaded()), fileDBLoaded_(!ownsFileDB_ || HBLFileDBLoad()) {
        if (!fileDBLoaded_) {
            HBLLog(LOG_ERR, function, "Failed to load the file creation database");
        }
    }
    ~ShortSession() {
        if (ownsFileDB_ && fileDBLoaded_) {
            HBLFileDBUnload();
        }
    }
    ShortSession(const ShortSession &) = delete;
    ShortSession &operator=(const ShortSession &) = delete;

    bool IsUp() const { return fileDBLoaded_; }

  private:
    bool ownsFileDB_;
    bool fileDBLoaded_;
    ShortLog log_;
};

// The entering line and the loaded test turned around; like that, its refusal ends without an exiting line.
bool EnterUnloaded(const char *function) {
    ApiLogEntering(function);
    if (!HBLIsLoaded()) {
        return true;
    }
    HBLLog(LOG_ERR, function,
           "harbrel is initialized, unload the data structures and delete existing networking configuration "
           "database before creating new one");
    return false;
}

bool DatabaseExists() {
    return HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, HBL_NETWORKING_DB);
}

// Moves the existing database to the first free backup name and gives that; null, with the reason logged,
// when it could not be moved.
MallocString MoveExistingDatabase() {
    MallocString name(HBLNetCfgFreeBackupName(HBL_NETWORKING_DB));
    if (!HBLCreateFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, name.get()) ||
        Posix_Rename(HBL_NETWORKING_DB, name.get()) != 0) {
        HBLLog(LOG_ERR, CREATE, "Failed to backup existing database file, error: %s", Err_ErrnoText(errno));
        return nullptr;
    }
    HBLLog(LOG_INFO, CREATE, "Renamed database file: %s to: %s", HBL_NETWORKING_DB, name.get());
    HBLLog(LOG_INFO2, CREATE, "Existing database will be overwritten");
    return name;
}

void RestoreDatabase(const char *movedName) {
    if (Posix_Rename(movedName, HBL_NETWORKING_DB) == 0) {
        HBLLog(LOG_INFO, CREATE, "Restored database file during error handling");
    } else {
        HBLLog(LOG_ERR, CREATE, "Failed to restore database file during error handling from: %s to %s",
               movedName, HBL_NETWORKING_DB);
    }
}

bool CreateDatabase(bool overwrite) {
    MallocString movedName;
    if (DatabaseExists()) {
        if (!overwrite) {
            HBLLog(LOG_ERR, CREATE,
                   "Existing networking configuration database must be deleted before creating new one");
            return false;
        }
        movedName = MoveExistingDatabase();
        if (movedName == nullptr) {
            return false;
        }
    }
    if (HBLNetCfgCreateDB(HBL_NETWORKING_DB, false)) {
        HBLLog(LOG_OK, CREATE, "Created and initialized networking configuration database: %s",
               HBL_NETWORKING_DB);
        return true;
    }
    HBLLog(LOG_ERR, CREATE, "Failed to create/initialize database file: %s", HBL_NETWORKING_DB);
    if (movedName != nullptr) {
        RestoreDatabase(movedName.get());
    }
    return false;
}

}  // namespace

bool HBL_CreateNetworkingDB(bool overwrite) {
    if (!EnterUnloaded(__func__)) {
        return false;
    }
    const ExitingLine exiting(__func__);
    const ShortSession session(__func__);
    if (!session.IsUp()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - o: %u", overwrite);
    return CreateDatabase(overwrite);
}

bool HBL_DeleteNetworkingDB(void) {
    if (!EnterUnloaded(__func__)) {
        return false;
    }
    const ExitingLine exiting(__func__);
    return HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, HBL_NETWORKING_DB);
}

bool HBL_CheckNetworkingDB(void) {
    const ShortLog log;
    return HBLNetCfgCheckVersion(HBL_NETWORKING_DB);
}

bool HBL_NetworkingDBExists(void) {
    return DatabaseExists();
}

bool HBL_ExportDatabaseToFile(const char *file) {
    const ApiFrame frame(__func__);
    if (!frame.Loaded()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - f: %p,%s", static_cast<const void *>(file), TextOrNull(file));
    const ConfigLock lock(__func__);
    if (!lock.Held()) {
        return false;
    }
    const char *const path = file != nullptr ? file : DEFAULT_BACKUP_FILE;
    const bool exported = HBLNetCfgExportConfig(nullptr, path);
    if (exported) {
        HBLLog(LOG_OK, __func__, "Exported configuration database to backup file: %s", path);
    } else {
        HBLLog(LOG_ERR, __func__, "Failed to export configuration database to backup file:%s", path);
    }
    return exported;
}

bool HBL_ImportDatabaseFromFile(const char *file) {
    ApiLogEntering(__func__);
    const ExitingLine exiting(__func__);
    HBLLog(LOG_INFO2, __func__, "harbrel is %sloaded", HBLIsLoaded() ? "" : "not ");
    const ShortSession session(__func__);
    if (!session.IsUp()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - f: %p,%s", static_cast<const void *>(file), TextOrNull(file));
    const char *const path = file != nullptr ? file : DEFAULT_BACKUP_FILE;
    if (!HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, path)) {
        HBLLog(LOG_ERR, __func__, "Import file does not exist");
        return false;
    }
    const bool imported = HBLNetCfgImportConfig(path, HBL_NETWORKING_DB);
    if (imported) {
        HBLLog(LOG_OK, __func__, "Imported configration data from backup file: %s", path);
    } else {
        HBLLog(LOG_ERR, __func__, "Failed to import configuration data from backup file: %s", path);
    }
    return imported;
}

#include <cerrno>

#include "lib/err/errText.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/exchange.h"
#include "lib/harbrel/database/transfer.h"
#include "lib/harbrel/files/fileDB.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/files/sync.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"

namespace {

constexpr const char *DEFAULT_BACKUP_FILE = "/tmp/networking_export";

// The short log together with the file creation database, which opens before it and closes before it.
class ShortSession {
  public:
    explicit ShortSession(FunctionLog log)
        : ownsFileDB_(!HBLIsLoaded()), fileDBLoaded_(!ownsFileDB_ || HBLFileDBLoad()) {
        if (!fileDBLoaded_) {
            log(LOG_ERR, "Failed to load the file creation database");
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

bool DatabaseExists() {
    return HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, HBL_NETWORKING_DB);
}

bool KeepExistingDatabase(FunctionLog log, NetCfgFormer *former) {
    if (NetCfgKeepFormer(log, HBL_NETWORKING_DB, former) != NetCfgKeepResult::Kept) {
        log(LOG_ERR, "Failed to backup existing database file, error: %s", Err_ErrnoText(errno));
        return false;
    }
    log(LOG_INFO2, "Existing database will be overwritten");
    return true;
}

bool CreateDatabase(FunctionLog log, bool overwrite) {
    NetCfgFormer former;
    if (DatabaseExists()) {
        if (!overwrite) {
            log(LOG_ERR,
                "Existing networking configuration database must be deleted before creating new one");
            return false;
        }
        if (!KeepExistingDatabase(log, &former)) {
            return false;
        }
    }
    if (NetCfgPutInPlace(log, HBL_NETWORKING_DB,
                         [](const char *path) { return HBLNetCfgCreateDB(path, false); })) {
        log(LOG_OK, "Created and initialized networking configuration database: %s", HBL_NETWORKING_DB);
        return true;
    }
    log(LOG_ERR, "Failed to create/initialize database file: %s", HBL_NETWORKING_DB);
    if (former.kept) {
        NetCfgRestoreFormer(log, former, HBL_NETWORKING_DB, false);
    }
    return false;
}

}  // namespace

bool HBL_CreateNetworkingDB(bool overwrite) {
    const ApiFrame frame(__func__, ApiFrame::Kind::WhileNotLoaded);
    if (!frame.Passed()) {
        return false;
    }
    const ShortSession session(frame.log);
    if (!session.IsUp()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - o: %u", overwrite);
    return CreateDatabase(frame.log, overwrite);
}

bool HBL_DeleteNetworkingDB(void) {
    const ApiFrame frame(__func__, ApiFrame::Kind::WhileNotLoaded);
    if (!frame.Passed()) {
        return false;
    }
    const bool removed = HBLRemoveFile(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, HBL_NETWORKING_DB);
    HBLSyncFolderOf(HBL_NETWORKING_DB);
    return removed;
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
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - f: %p,%s", static_cast<const void *>(file), TextOrNull(file));
    const ConfigLock lock(frame.log);
    if (!lock.Held()) {
        return false;
    }
    const char *const path = file != nullptr ? file : DEFAULT_BACKUP_FILE;
    const bool exported = HBLNetCfgExportConfig(nullptr, path);
    if (exported) {
        frame.log(LOG_OK, "Exported configuration database to backup file: %s", path);
    } else {
        frame.log(LOG_ERR, "Failed to export configuration database to backup file:%s", path);
    }
    return exported;
}

bool HBL_ImportDatabaseFromFile(const char *file) {
    const ApiFrame frame(__func__, ApiFrame::Kind::Always);
    frame.log(LOG_INFO2, "harbrel is %sloaded", HBLIsLoaded() ? "" : "not ");
    const ShortSession session(frame.log);
    if (!session.IsUp()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - f: %p,%s", static_cast<const void *>(file), TextOrNull(file));
    const char *const path = file != nullptr ? file : DEFAULT_BACKUP_FILE;
    if (!HBLFileExists(HBL_CUSTOM_VNET, HBL_FILE_CUSTOM, path)) {
        frame.log(LOG_ERR, "Import file does not exist");
        return false;
    }
    const bool imported = HBLNetCfgImportConfig(path, HBL_NETWORKING_DB);
    if (imported) {
        frame.log(LOG_OK, "Imported configration data from backup file: %s", path);
    } else {
        frame.log(LOG_ERR, "Failed to import configuration data from backup file: %s", path);
    }
    return imported;
}

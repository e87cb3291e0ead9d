#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/database/carryOver.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/databaseLock.h"
#include "lib/harbrel/database/reading.h"
#include "lib/harbrel/database/sameFile.h"
#include "lib/harbrel/files/sync.h"
#include "lib/misc/hashTable.h"
#include "lib/misc/owners.h"

namespace {

// Makes sure that a rewrite takes no other process's change away: the lock is taken, and what others have
// written is taken into the cache. Failed when the file has to be left as it is, which loses nothing, because
// every change of this run stands in it. Without the lock for a reason other than its time (no space, no
// descriptor, no memory) the rewrite is tried all the same: it fails for that reason too, or harms nobody.
NetCfgReadResult PrepareRewrite(HBLNetworkConfigurationDB *db, FunctionLog log) {
    if (!NetCfgHoldsLock(db)) {
        int error = 0;
        if (!NetCfgLockCache(db, &error) && error == 0) {
            log(LOG_WRN, "Database file: %s is in use by another process, not rewriting it", db->path);
            return NetCfgReadResult::Failed;
        }
    }
    const NetCfgReadResult result = NetCfgCatchUp(db, log);
    if (result == NetCfgReadResult::Failed) {
        log(LOG_WRN, "Database file: %s cannot be compared, not rewriting it", db->path);
    }
    return result;
}

// Puts the finished temporary file in the place of the database, with which the cache agreed before or not.
bool PutInPlace(const HBLNetworkConfigurationDB *db, FunctionLog log, const char *temporary, bool agreed) {
    // A change through the answer calls takes no lock, so the file is looked at once more.
    if (agreed && !NetCfgFileIsAsLastSeen(db)) {
        log(LOG_WRN, "Database file: %s was changed meanwhile, not rewriting it", db->path);
        return false;
    }
    if (Posix_Rename(temporary, db->path) != 0) {
        log(LOG_ERR, "Failed to reame: %s to %s, error: %s", temporary, db->path, Err_ErrnoText(errno));
        return false;
    }
    log(LOG_INFO2, "Renamed temp file: %s to %s", temporary, db->path);
    return true;
}

// Behind a rewrite that changes nothing: makes `temporary` a second name of the database, which is on the
// disk already. A new file in its place is not, and a loss of power could cost both. False where a file
// system knows no second names: the database stays what it is then.
bool JoinWithDatabase(const HBLNetworkConfigurationDB *db, const char *temporary) {
    Posix_Unlink(temporary);
    return Posix_Link(db->path, temporary) == 0;
}

void FinishJoined(const HBLNetworkConfigurationDB *db, const char *temporary) {
    Posix_Unlink(temporary);    // renaming one name of a file to another leaves both
    if (db->hasChanged != 0) {  // another process has written our changes out, and may have been stopped then
        HBLSyncFile(db->path);
        HBLSyncFolderOf(db->path);
    }
}

void Rewrite(HBLNetworkConfigurationDB *db, FunctionLog log, int former, bool agreed) {
    char temporary[sizeof HBL_NETWORKING_DB_TEMPLATE];
    memcpy(temporary, HBL_NETWORKING_DB_TEMPLATE, sizeof temporary);
    const FileDescriptor file(mkostemp(temporary, O_CLOEXEC));
    if (!file) {
        log(LOG_ERR, "Failed to create temporary backup file, error: %s", Err_ErrnoText(errno));
        return;
    }
    if (!NetCfgWriteDatabaseFile(db, temporary, false)) {
        log(LOG_ERR, "Failed to write to temp database file: %s", temporary);
        Posix_Unlink(temporary);
        return;
    }
    const bool changesNothing = agreed && NetCfgIsSameFile(db->path, file.get());
    if (changesNothing && !JoinWithDatabase(db, temporary)) {
        return;
    }
    if (!changesNothing && fsync(file.get()) != 0) {
        log(LOG_ERR, "Failed to write to temp database file: %s", temporary);
        Posix_Unlink(temporary);
        return;
    }
    if (!PutInPlace(db, log, temporary, agreed)) {
        Posix_Unlink(temporary);
        return;
    }
    if (changesNothing) {
        FinishJoined(db, temporary);
        return;
    }
    if (agreed) {
        NetCfgCarryOver(db, log, former);
    }
    HBLSyncFolderOf(db->path);
}

void CloseStream(HBLNetworkConfigurationDB *db) {
    if (db->stream != nullptr) {
        fclose(db->stream);
        db->stream = nullptr;
    }
}

void FreeCache(HBLNetworkConfigurationDB *db) {
    for (uint32_t vnet = 0; vnet < HBL_NUM_VNETS; vnet++) {
        HBLNetCfgRemoveAllNATPortFwd(db, vnet, true, true, false);
    }
    for (uint32_t vnet = 0; vnet < HBL_NUM_VNETS; vnet++) {
        HBLNetCfgRemoveAllDHCPMACToIPMapping(db, vnet, false);
    }
    if (db->bridgeHash != nullptr) {
        HashTable_Free(db->bridgeHash);
    }
    free(db->bridgeArray);
    if (db->dictHash != nullptr) {
        HashTable_Free(db->dictHash);
    }
    free(db->path);
    free(db);
}

// From here on no reader has the cache any more.
void Clear(HBLNetworkConfigurationDB **slot) {
    const CacheChanging alone;
    *slot = nullptr;
}

}  // namespace

bool HBLNetCfgUnload(HBLNetworkConfigurationDB **slot, bool rewrite) {
    if (slot == nullptr) {
        slot = HBLNetCfgDefaultSlot();
    }
    HBLNetworkConfigurationDB *db = *slot;
    if (db == nullptr) {
        HBLLog(LOG_ERR, __func__, "Requested cache is not loaded");
        return true;
    }
    const NetCfgReadResult prepared = rewrite ? PrepareRewrite(db, __func__) : NetCfgReadResult::Failed;
    if (prepared != NetCfgReadResult::Failed) {
        const FileDescriptor former(db->stream != nullptr ? fcntl(fileno(db->stream), F_DUPFD_CLOEXEC, 0)
                                                          : -1);
        CloseStream(db);
        Rewrite(db, __func__, former.get(), prepared == NetCfgReadResult::Done);
    }
    CloseStream(db);
    NetCfgUnlockCache(db);
    Clear(slot);
    FreeCache(db);
    return true;
}

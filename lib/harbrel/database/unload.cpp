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
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/reading.h"
#include "lib/misc/hashTable.h"
#include "lib/misc/owners.h"

namespace {

constexpr const char *UNLOAD = "HBLNetCfgUnload";

// Makes sure that a rewrite takes no other process's change away: the lock is taken, and what others have
// written is taken into the cache. Failed when the file has to be left as it is, which loses nothing, because
// every change of this run stands in it. A lock that fails for a reason other than its time does not count:
// then no other process can hold it either.
NetCfgReadResult PrepareRewrite(HBLNetworkConfigurationDB *db) {
    if (db->lockToken == nullptr) {
        int error = 0;
        db->lockToken = FileLock_Lock(db->path, false, HBL_DB_LOCK_WAIT_MSEC, &error);
        if (db->lockToken == nullptr && error == 0) {
            HBLLog(LOG_WRN, UNLOAD, "Database file: %s is in use by another process, not rewriting it",
                   db->path);
            return NetCfgReadResult::Failed;
        }
    }
    const NetCfgReadResult result = NetCfgCatchUp(db, UNLOAD);
    if (result == NetCfgReadResult::Failed) {
        HBLLog(LOG_WRN, UNLOAD, "Database file: %s cannot be compared, not rewriting it", db->path);
    }
    return result;
}

// Puts the finished temporary file in the place of the database, with which the cache agreed before or not.
bool PutInPlace(const HBLNetworkConfigurationDB *db, const char *temporary, bool agreed) {
    // A change through the answer calls takes no lock, so the file is looked at once more.
    if (agreed && !NetCfgFileIsAsLastSeen(db)) {
        HBLLog(LOG_WRN, UNLOAD, "Database file: %s was changed meanwhile, not rewriting it", db->path);
        return false;
    }
    if (Posix_Rename(temporary, db->path) != 0) {
        HBLLog(LOG_ERR, UNLOAD, "Failed to reame: %s to %s, error: %s", temporary, db->path,
               Err_ErrnoText(errno));
        return false;
    }
    HBLLog(LOG_INFO2, UNLOAD, "Renamed temp file: %s to %s", temporary, db->path);
    return true;
}

void Rewrite(HBLNetworkConfigurationDB *db, bool agreed) {
    char temporary[sizeof HBL_NETWORKING_DB_TEMPLATE];
    memcpy(temporary, HBL_NETWORKING_DB_TEMPLATE, sizeof temporary);
    const FileDescriptor file(mkostemp(temporary, O_CLOEXEC));
    if (!file) {
        HBLLog(LOG_ERR, UNLOAD, "Failed to create temporary backup file, error: %s", Err_ErrnoText(errno));
        return;
    }
    if (!NetCfgWriteDatabaseFile(db, temporary, false)) {
        HBLLog(LOG_ERR, UNLOAD, "Failed to write to temp database file: %s", temporary);
        Posix_Unlink(temporary);
    } else if (!PutInPlace(db, temporary, agreed)) {
        Posix_Unlink(temporary);
    }
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
    const NetCfgReadResult prepared = rewrite ? PrepareRewrite(db) : NetCfgReadResult::Failed;
    CloseStream(db);
    if (prepared != NetCfgReadResult::Failed) {
        Rewrite(db, prepared == NetCfgReadResult::Done);
    }
    if (db->lockToken != nullptr) {
        NetCfgReleaseLock(db);
    }
    Clear(slot);
    FreeCache(db);
    return true;
}

#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/databaseLock.h"
#include "lib/harbrel/database/reading.h"

namespace {

bool IsGone(const char *path) {
    struct stat status;
    return Posix_Stat(path, &status) != 0 && errno == ENOENT;
}

// The cache takes the fresh contents; what belongs to this process stays with it. `fresh` is left with the
// former contents.
void TakeContents(HBLNetworkConfigurationDB *db, HBLNetworkConfigurationDB *fresh) {
    const CacheChanging alone;
    std::swap(*db, *fresh);
    std::swap(db->lockToken, fresh->lockToken);
    std::swap(db->lockLost, fresh->lockLost);
    std::swap(db->hasChanged, fresh->hasChanged);
}

// Reads the whole file at the cache's path into *fresh, which the caller unloads, whatever the result.
NetCfgReadResult ReadAfresh(const HBLNetworkConfigurationDB *db, FunctionLog log,
                            HBLNetworkConfigurationDB **fresh) {
    log(LOG_INFO, "Database file: %s was changed by another process, reading it again", db->path);
    *fresh = NetCfgNewCache(db->path, false, log);
    if (*fresh == nullptr) {
        return NetCfgReadResult::Failed;
    }
    NetCfgReadResult result = NetCfgReadFile(*fresh, log);
    if (result == NetCfgReadResult::Done && !NetCfgReadHostConfig(*fresh, log)) {
        result = NetCfgReadResult::Failed;
    }
    if (result != NetCfgReadResult::Done) {
        log(LOG_ERR, "Failed to load database cache with contents of file: %s", db->path);
    }
    return result;
}

enum class Followed {
    Done,
    Replaced,  // another file stands at the path
    Failed,
};

// Takes what others have appended to the tracked file. A file that has come into its place is not taken here:
// whoever put it there may still be carrying changes over into it, under the lock.
Followed FollowGrowth(HBLNetworkConfigurationDB *db, FunctionLog log) {
    if (NetCfgFileWasReplaced(db)) {
        return Followed::Replaced;
    }
    if (NetCfgFileIsAsLastSeen(db) || IsGone(db->path)) {
        return Followed::Done;
    }
    HBLNetworkConfigurationDB *fresh = nullptr;
    const NetCfgReadResult result = ReadAfresh(db, log, &fresh);
    Followed followed = Followed::Done;
    if (result == NetCfgReadResult::Failed) {
        followed = Followed::Failed;
    } else if (result == NetCfgReadResult::Done) {
        if (NetCfgSameFile(db, fresh)) {
            TakeContents(db, fresh);
        } else {
            followed = Followed::Replaced;
        }
    }
    if (fresh != nullptr) {
        HBLNetCfgUnload(&fresh, false);
    }
    return followed;
}

}  // namespace

NetCfgReadResult NetCfgCatchUp(HBLNetworkConfigurationDB *db, FunctionLog log) {
    if (NetCfgFileIsAsLastSeen(db)) {
        return NetCfgReadResult::Done;
    }
    if (IsGone(db->path)) {
        return NetCfgReadResult::NoDatabase;
    }
    HBLNetworkConfigurationDB *fresh = nullptr;
    const NetCfgReadResult result = ReadAfresh(db, log, &fresh);
    if (result == NetCfgReadResult::Done) {
        TakeContents(db, fresh);
    }
    if (fresh != nullptr) {
        HBLNetCfgUnload(&fresh, false);
    }
    return result;
}

bool HBLNetCfgChangeWithoutLock(HBLNetworkConfigurationDB *db, const std::function<bool()> &change) {
    HBLNetworkConfigurationDB *const cache = NetCfgResolveCache(db, __func__);
    if (cache == nullptr) {
        return false;
    }
    const Followed followed = FollowGrowth(cache, __func__);
    if (followed == Followed::Failed) {
        return false;
    }
    if (followed == Followed::Done) {
        const bool changed = change();
        if (!changed || !NetCfgFileWasReplaced(cache)) {
            return changed;
        }
    }
    if (!HBLNetCfgLockConfig(cache)) {
        return false;
    }
    const bool changed = change();
    HBLNetCfgUnlockConfig(cache);
    return changed;
}

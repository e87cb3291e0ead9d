#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cacheGuard.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/reading.h"

namespace {

bool IsGone(const char *path) {
    struct stat status;
    return Posix_Stat(path, &status) != 0 && errno == ENOENT;
}

// The cache takes the fresh contents, with its own lock; `fresh` is left with the former ones.
void TakeContents(HBLNetworkConfigurationDB *db, HBLNetworkConfigurationDB *fresh) {
    const CacheChanging alone;
    std::swap(*db, *fresh);
    std::swap(db->lockToken, fresh->lockToken);
}

}  // namespace

NetCfgReadResult NetCfgCatchUp(HBLNetworkConfigurationDB *db, const char *function) {
    if (NetCfgFileIsAsLastSeen(db)) {
        return NetCfgReadResult::Done;
    }
    if (IsGone(db->path)) {
        return NetCfgReadResult::NoDatabase;
    }
    HBLLog(LOG_INFO, function, "Database file: %s was changed by another process, reading it again",
           db->path);
    HBLNetworkConfigurationDB *fresh = NetCfgNewCache(db->path, false, function);
    if (fresh == nullptr) {
        return NetCfgReadResult::Failed;
    }
    NetCfgReadResult result = NetCfgReadFile(fresh, function);
    if (result == NetCfgReadResult::Done && !NetCfgReadHostConfig(fresh, function)) {
        result = NetCfgReadResult::Failed;
    }
    if (result != NetCfgReadResult::Done) {
        HBLLog(LOG_ERR, function, "Failed to load database cache with contents of file: %s", db->path);
        HBLNetCfgUnload(&fresh, false);
        return result;
    }
    TakeContents(db, fresh);
    HBLNetCfgUnload(&fresh, false);
    return result;
}

bool HBLNetCfgFollowFile(HBLNetworkConfigurationDB *db) {
    HBLNetworkConfigurationDB *const cache = NetCfgResolveCache(db, __func__);
    return cache != nullptr && NetCfgCatchUp(cache, __func__) != NetCfgReadResult::Failed;
}

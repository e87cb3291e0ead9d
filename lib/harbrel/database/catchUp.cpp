#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "lib/file/posix.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/database/reading.h"

namespace {

bool IsGone(const char *path) {
    struct stat status;
    return Posix_Stat(path, &status) != 0 && errno == ENOENT;
}

// The cache takes the fresh contents; its own lock stays, and `fresh` is left behind with the former ones.
void Exchange(HBLNetworkConfigurationDB *db, HBLNetworkConfigurationDB *fresh) {
    std::swap(*db, *fresh);
    std::swap(db->lockToken, fresh->lockToken);
    if (fresh->stream != nullptr) {
        fclose(fresh->stream);
        fresh->stream = nullptr;
    }
    db->retired = fresh;
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
    Exchange(db, fresh);
    return result;
}

bool HBLNetCfgFollowFile(HBLNetworkConfigurationDB *db) {
    HBLNetworkConfigurationDB *const cache = NetCfgResolveCache(db, __func__);
    return cache != nullptr && NetCfgCatchUp(cache, __func__) != NetCfgReadResult::Failed;
}

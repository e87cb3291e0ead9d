#include "lib/harbrel/cache/defaultCache.h"

#include "lib/harbrel/base/hblLog.h"

static HBLNetworkConfigurationDB *defaultCache = nullptr;

HBLNetworkConfigurationDB **HBLNetCfgDefaultSlot() {
    return &defaultCache;
}

HBLNetworkConfigurationDB *NetCfgResolveCache(HBLNetworkConfigurationDB *db, const char *function) {
    HBLNetworkConfigurationDB *resolved = db != nullptr ? db : defaultCache;
    if (resolved == nullptr) {
        HBLLog(LOG_ERR, function, "Database cache is not loaded");
    }
    return resolved;
}

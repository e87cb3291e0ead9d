#include "lib/harbrel/cache/defaultCache.h"

#include "lib/harbrel/base/hblLog.h"

static HBLNetworkConfigurationDB *defaultCache = nullptr;

HBLNetworkConfigurationDB **HBLNetCfgDefaultSlot() {
    return &defaultCache;
}

HBLNetworkConfigurationDB *NetCfgResolveCache(HBLNetworkConfigurationDB *db, FunctionLog log) {
    HBLNetworkConfigurationDB *resolved = db != nullptr ? db : defaultCache;
    if (resolved == nullptr) {
        log(LOG_ERR, "Database cache is not loaded");
    }
    return resolved;
}

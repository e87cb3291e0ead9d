#include "lib/harbrel/cache/defaultCache.h"

#include "lib/harbrel/base/hblLog.h"

namespace {

HBLNetworkConfigurationDB *defaultCache = nullptr;

}  // namespace

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

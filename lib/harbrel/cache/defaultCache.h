// Which cache a function with the prefix HBLNetCfg works on.
#pragma once

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"

// `db`, or the default cache when it is null. Null, with a line in its log, when there is neither.
HBLNetworkConfigurationDB *NetCfgResolveCache(HBLNetworkConfigurationDB *db, FunctionLog log);

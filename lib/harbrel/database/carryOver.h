// Changes that come while a rewrite exchanges the file. Private to this folder.
#pragma once

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"

// Appends to the file at the cache's path the lines that have reached the former file, open as `former`,
// since the cache last agreed with it. Their writers took no lock. Whoever writes there later finds another
// file at the path, and waits for our lock before the line is written anew.
void NetCfgCarryOver(const HBLNetworkConfigurationDB *db, FunctionLog log, int former);

// The reading of a database file into a cache, shared by the load, by the look at what another process has
// written, and by import. Private to this folder.
#pragma once

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"

enum class NetCfgReadResult {
    Done,
    NoDatabase,  // nothing stands at the path, or it is empty or has no version line of its kind
    Failed,      // it could not be opened or read to its end, or its version is not supported
};

// A zeroed cache for `path`. Null, with a line under the caller's name, when memory ran out.
HBLNetworkConfigurationDB *NetCfgNewCache(const char *path, bool isBackup, FunctionLog log);

// Opens the stream of a fresh cache and replays the whole file into its tables. The stream of a live database
// is unbuffered, stands at the end of the file and is tracked; that of a backup is read-only. Failures are
// logged under the caller's name; the caller unloads the cache then.
NetCfgReadResult NetCfgReadFile(HBLNetworkConfigurationDB *db, FunctionLog log);

// Puts the host's `bindir` into the cache as the answer BINDIR, which lives in memory only. A file that
// cannot be read and a missing value are warnings; false means that the answer could not be stored.
bool NetCfgReadHostConfig(HBLNetworkConfigurationDB *db, FunctionLog log);

// What follows "<key>=" in a version line, or null when the line is none of that key.
const char *NetCfgVersionText(const char *line, const char *key);

// Brings a cache up to its file if another process has appended to that or replaced it since this cache last
// saw it; Done says that cache and file agree. Without a database at its path the cache stays as it is. The
// caller holds the database lock.
NetCfgReadResult NetCfgCatchUp(HBLNetworkConfigurationDB *db, FunctionLog log);

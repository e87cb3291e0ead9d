// Import, export and version upgrade of the whole database.
#pragma once

#include "lib/harbrel/cache/cache.h"

// Writes the cache, by default the default one, as a backup file. After a failure no file stands at `path`.
bool HBLNetCfgExportConfig(HBLNetworkConfigurationDB *db, const char *path);
// Makes what a backup file or an older database holds the database; the former one keeps a backup name. A
// default cache is replaced by the new contents. A failure leaves database and default cache as they were, as
// far as they can be put back.
bool HBLNetCfgImportConfig(const char *backupPath, const char *databasePath);
// Whether the file's first line is a readable VERSION line of a supported major version.
bool HBLNetCfgCheckVersion(const char *path);

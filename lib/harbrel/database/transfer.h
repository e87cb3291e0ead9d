// Import, export and version upgrade of the whole database.
#pragma once

#include <cstddef>

#include "lib/harbrel/cache/cache.h"

bool HBLNetCfgExportConfig(HBLNetworkConfigurationDB *db, const char *path);
bool HBLNetCfgImportConfig(const char *backupPath, const char *databasePath);
// Whether the file's first line is a readable VERSION line of a supported major version.
bool HBLNetCfgCheckVersion(const char *path);
// The first "<path>.bak.<N>" at which nothing stands, not even a dangling link. A new text that the caller
// frees.
char *HBLNetCfgFreeBackupName(const char *path);

// Making what a backup file held fit for a new database. Private to this folder.
#pragma once

#include "lib/harbrel/cache/cache.h"

// Drops the answers that may not enter a new database and turns those of version 0 into present records.
// False when that could not be done; the cache is then of no further use.
bool NetCfgUpdateDatabaseFields(HBLNetworkConfigurationDB *db);

// Exchanging the database file: whenever the process may be killed, a whole database stands at its path.
// Private to this folder and to the calls on the database as a whole.
#pragma once

#include <functional>

#include "lib/harbrel/base/hblLog.h"
#include "lib/misc/owners.h"

// The backup name of the former database.
struct NetCfgFormer {
    MallocString name;
    bool kept = false;
    bool isLink = false;  // the database stands at its own path as well
};

// The errors are in errno.
enum class NetCfgKeepResult {
    Kept,
    NoName,  // no file could be made at the name
    Failed,  // the empty file at the name stays, and the next one passes over it
};

// Gives the database at `path` the first "<path>.bak.<N>" at which nothing stands, not even a dangling link.
NetCfgKeepResult NetCfgKeepFormer(FunctionLog log, const char *path, NetCfgFormer *former);
// Puts the former database back to `path`, if need be. `exchanged`: something else may stand there by now.
bool NetCfgRestoreFormer(FunctionLog log, const NetCfgFormer &former, const char *path, bool exchanged);

// Lets `write` make a file beside `path`, brings it to the disk and renames it to `path`. False, with the
// reason logged where `write` does not, when nothing has changed at `path`.
bool NetCfgPutInPlace(FunctionLog log, const char *path, const std::function<bool(const char *)> &write);

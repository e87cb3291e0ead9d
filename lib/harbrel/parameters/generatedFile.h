// What the writers of the daemons' configuration files have in common.
#pragma once

#include <cstdint>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/files/files.h"
#include "lib/misc/owners.h"

// The path of one of a network's files; `failure` is the line for not having it.
bool HBLGeneratedFilePath(FunctionLog log, uint32_t vnet, uint32_t fileType, const char *failure,
                          char (&path)[HBL_PATH_SIZE]);
// "<what>, error: <the last one's text>". Always false.
bool HBLLogFileFailure(FunctionLog log, const char *what);
// What is still buffered reaches the disk only at the end, and a full one shows only there; so does the name
// of a new file. Gives `written`, and false after `failure` when the contents did not get there.
bool HBLFinishGeneratedFile(FunctionLog log, FileStream stream, const char *path, bool isNew, bool written,
                            const char *failure);

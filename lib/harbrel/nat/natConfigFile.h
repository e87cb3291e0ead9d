// The generator of a network's nat.conf, which belongs to the library as a whole.
#pragma once

#include <cstdint>

#include "lib/harbrel/base/hblLog.h"

// Writes the file from the database, after the previous one was copied to the backup. The daemon is stopped
// and the caller holds the database lock.
bool HBLNATWriteConfigFile(FunctionLog log, uint32_t vnet);

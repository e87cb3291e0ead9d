// Appending lines to the database file: a line is in the file whole or not at all.
#pragma once

#include <string_view>

#include "lib/harbrel/cache/cache.h"

// `line` ends in its line feed and becomes one write call. False, with errno, when it did not reach the file.
bool NetCfgAppendLine(HBLNetworkConfigurationDB *db, std::string_view line);

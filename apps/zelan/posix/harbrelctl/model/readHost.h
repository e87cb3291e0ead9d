// Reading the host through the loaded library.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "apps/zelan/posix/harbrelctl/model/network.h"

enum ReadDepth {
    READ_CONFIG,  // what is configured, and the paths; the rest of Host stays empty
    READ_ALL,
};
// The library is loaded. False when a question was refused, with the reason.
bool ReadHost(ReadDepth depth, Host *host, std::string *error);

// The bridge mappings that replaying the database's lines leaves behind. Pure.
std::map<std::string, int> ReplayMappings(std::string_view database);

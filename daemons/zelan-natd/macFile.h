// The MAC address of a network's gateway, kept in a file so that the guests' tables stay right when the
// daemon is started again. The file outlives the daemon.
#pragma once

#include <string_view>

#include "daemons/common/link.h"

// One line as "02:1F:00:A0:55:3C". False for anything else, for a group's address and for none at all.
bool MacFile_Parse(std::string_view text, MacAddress *mac);

// The address in the file. Without a usable one a random address is made and written there; when that is not
// possible, which costs a line in the log, it lasts as long as the daemon.
MacAddress MacFile_Obtain(const char *path);

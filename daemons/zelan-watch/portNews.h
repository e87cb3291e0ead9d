// The kernel's announcements of interfaces that join a bridge or leave one, and no others: a start of many
// networks makes thousands.
#pragma once

#include "daemons/common/rtnetlink.h"

// False after a line in the log.
bool PortNews_Open(RtSocket *socket);

// Takes what is waiting and says whether somebody has left a bridge, or may have.
bool PortNews_HasLeft(RtSocket *socket);

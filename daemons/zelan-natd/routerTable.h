// The packet filter of a router's own namespace.
//
// A guest's packet is translated twice: here from the guest's address to the router's on the uplink, and on
// the host from that to the host's own. The host thus needs no route to the guests, whose subnet may be
// anything, and a forward goes the same way back.
#pragma once

#include <vector>

#include "daemons/zelan-natd/natConf.h"

// Interfaces of the router.
inline constexpr const char *GUESTS_LINK = "guests";
inline constexpr const char *UPLINK_LINK = "uplink";

// Loads the rules into the current network namespace. What the kernel lacks costs what the host's table has
// said already. False after a line in the log.
bool RouterTable_Load(const NatConf &conf, const std::vector<PortForward> &forwards);
